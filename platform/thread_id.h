// The kernel's id of the calling thread, asked for once per thread.
#ifndef VELT_PLATFORM_THREAD_ID_H
#define VELT_PLATFORM_THREAD_ID_H

#include <cstdint>

namespace velt {

// What gettid gives. A forked child's thread has a new id, and gets it here.
std::int64_t ThreadId();

}  // namespace velt

#endif
