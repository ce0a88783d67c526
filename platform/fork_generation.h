// Tells a forked child from the process that made an object.
#ifndef VELT_PLATFORM_FORK_GENERATION_H
#define VELT_PLATFORM_FORK_GENERATION_H

#include <atomic>
#include <cstdint>

namespace velt {

namespace detail {
// Defined beside what calls WatchForks: a host that links the static library then gets both, or neither.
extern std::atomic<std::uint32_t> fork_generation;
}  // namespace detail

// A number that is one higher in a forked child than in its parent. An object stores the number when it is
// made; if the current number differs, the object was inherited over a fork. Relaxed: the number changes only
// in a new child, which has one thread.
inline std::uint32_t ForkGeneration() noexcept {
  return detail::fork_generation.load(std::memory_order_relaxed);
}

// What runs around each fork: `before` and `in_parent` in the forking thread of the parent, `in_child` in the
// child before fork returns there.
struct ForkHooks {
  void (*before)();
  void (*in_parent)();
  void (*in_child)();
};

// Counts forks from now on, and runs `hooks`. Called once, at load.
void WatchForks(ForkHooks const& hooks);

}  // namespace velt

#endif
