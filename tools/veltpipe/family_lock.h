// Keeps a second veltpipe away from a log family.
#ifndef VELT_TOOLS_VELTPIPE_FAMILY_LOCK_H
#define VELT_TOOLS_VELTPIPE_FAMILY_LOCK_H

#include <string>

namespace velt::tools {

// FamilyLock locks the hidden file `.<name>.lock` of the directory, for as long as it lives. The kernel gives
// the lock back when the process ends, however it ends. The file stays: were it removed, a third process
// could lock a new one beside a second that still waits at the old. Neither housekeeping nor a listing
// without hidden files sees it, and unlike a name in memory it is the same for every container that the
// directory is mounted in.
class FamilyLock {
 public:
  // Does not wait.
  FamilyLock(std::string const& directory, std::string const& name);
  ~FamilyLock();
  FamilyLock(FamilyLock const&) = delete;
  FamilyLock& operator=(FamilyLock const&) = delete;

  // Whether another process has it.
  bool IsTaken() const { return taken_; }

  // The errno of a lock that can be neither had nor refused: no room for the file, no locks on this file
  // system; or 0.
  int Error() const { return error_; }

 private:
  int descriptor_ = -1;
  bool taken_ = false;
  int error_ = 0;
};

}  // namespace velt::tools

#endif
