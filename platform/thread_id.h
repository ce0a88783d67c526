// The kernel's id of the calling thread, asked for once per thread.
#ifndef VELT_PLATFORM_THREAD_ID_H
#define VELT_PLATFORM_THREAD_ID_H

#include <cstdint>

namespace velt {

// Returns gettid(). In a forked child it returns the child's id, not the parent's.
std::int64_t ThreadId();

}  // namespace velt

#endif
