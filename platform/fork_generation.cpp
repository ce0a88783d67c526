#include "platform/fork_generation.h"

#include <pthread.h>

namespace velt {

namespace detail {
std::atomic<std::uint32_t> fork_generation{0};
}

namespace {

void (*run_in_child)() = nullptr;

void CountFork() {
  detail::fork_generation.fetch_add(1, std::memory_order_relaxed);
  run_in_child();
}

}  // namespace

void WatchForks(void (*in_child)()) {
  run_in_child = in_child;
  // It fails only for want of memory while the library loads; forks then go unnoticed, as in any other
  // library.
  (void)pthread_atfork(nullptr, nullptr, CountFork);
}

}  // namespace velt
