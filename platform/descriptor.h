// Opens files for the library's own use.
#ifndef VELT_PLATFORM_DESCRIPTOR_H
#define VELT_PLATFORM_DESCRIPTOR_H

#include <sys/types.h>

namespace velt {

// open(2) with O_CLOEXEC, and never as descriptor 0, 1 or 2: a host that has closed one of them would
// otherwise read from or print into the library's file. Returns the descriptor, which the caller closes; -1
// with errno on failure.
int OpenAboveStandard(char const* path, int flags, mode_t mode = 0);

}  // namespace velt

#endif
