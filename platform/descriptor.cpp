#include "platform/descriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace velt {

namespace {
constexpr int kFirstAboveStandard = STDERR_FILENO + 1;
}

int OpenAboveStandard(char const* path, int flags, mode_t mode) {
  int const opened = open(path, flags | O_CLOEXEC, mode);
  if (opened == -1 || opened >= kFirstAboveStandard) return opened;
  int const moved = fcntl(opened, F_DUPFD_CLOEXEC, kFirstAboveStandard);
  int const reason = errno;
  (void)close(opened);  // nothing was written through it
  errno = reason;
  return moved;
}

}  // namespace velt
