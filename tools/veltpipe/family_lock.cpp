// Keeps a second veltpipe away from a log family.
#include "tools/veltpipe/family_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

namespace velt::tools {
namespace {

int OpenLockFile(std::string const& path) {
  constexpr int kFlags = O_CREAT | O_CLOEXEC | O_NOFOLLOW;
  constexpr mode_t kMode = 0644;
  int const descriptor =
      open(path.c_str(), O_RDWR | kFlags, kMode);  // some file systems lock only files opened for writing
  if (descriptor >= 0 || errno != EACCES) return descriptor;
  return open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);  // another user's file, from an earlier run
}

}  // namespace

FamilyLock::FamilyLock(std::string const& directory, std::string const& name)
    : descriptor_(OpenLockFile(directory + "/." + name + ".lock")) {
  bool const locked = descriptor_ >= 0 && flock(descriptor_, LOCK_EX | LOCK_NB) == 0;
  if (locked) return;
  taken_ = descriptor_ >= 0 && errno == EWOULDBLOCK;
  if (!taken_) error_ = errno;
}

FamilyLock::~FamilyLock() {
  if (descriptor_ >= 0) close(descriptor_);
}

}  // namespace velt::tools
