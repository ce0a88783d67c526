#include "platform/fork_generation.h"

#include <pthread.h>

namespace velt {

namespace {

void (*hook_in_child)() = nullptr;

void InChild() {
  detail::fork_generation.fetch_add(1, std::memory_order_relaxed);
  hook_in_child();
}

}  // namespace

void WatchForks(ForkHooks const& hooks) {
  hook_in_child = hooks.in_child;
  // Fails only if memory runs out while the library loads; forks then go unnoticed.
  (void)pthread_atfork(hooks.before, hooks.in_parent, &InChild);
}

}  // namespace velt
