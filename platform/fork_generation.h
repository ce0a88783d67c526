// Tells a forked child from the process that made an object.
#ifndef VELT_PLATFORM_FORK_GENERATION_H
#define VELT_PLATFORM_FORK_GENERATION_H

#include <atomic>
#include <cstdint>

namespace velt {

namespace detail {
extern std::atomic<std::uint32_t> fork_generation;
}

// A number that is one higher in a forked child than in its parent. An object that keeps the number of its
// making is inherited when the two differ. Relaxed: it changes only in a child that has one thread yet.
inline std::uint32_t ForkGeneration() noexcept {
  return detail::fork_generation.load(std::memory_order_relaxed);
}

// Counts forks from now on, and runs `in_child` in each child before fork returns there. Called once, at
// load.
void WatchForks(void (*in_child)());

}  // namespace velt

#endif
