// Keeps a second veltpipe away from a log family.
#ifndef VELT_TOOLS_VELTPIPE_FAMILY_LOCK_H
#define VELT_TOOLS_VELTPIPE_FAMILY_LOCK_H

#include <string>

namespace velt::tools {

// FamilyLock locks the hidden file `.<name>.lock` of the directory while the object exists. The kernel
// releases the lock when the process ends, however it ends. The file is not removed: another process could
// have it open, lock the removed file, and run beside a third one that locks a new file. A file works for all
// containers that mount the directory; housekeeping and listings without hidden files do not show it.
class FamilyLock {
 public:
  // Tries to take the lock; does not wait.
  FamilyLock(std::string const& directory, std::string const& name);
  ~FamilyLock();
  FamilyLock(FamilyLock const&) = delete;
  FamilyLock& operator=(FamilyLock const&) = delete;

  // Whether another process has the lock.
  bool IsTaken() const { return taken_; }

  // The errno when locking itself failed: the file cannot be created, or the file system has no locks. Else
  // 0.
  int Error() const { return error_; }

 private:
  int descriptor_ = -1;
  bool taken_ = false;
  int error_ = 0;
};

}  // namespace velt::tools

#endif
