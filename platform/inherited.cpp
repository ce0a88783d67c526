#include "platform/inherited.h"

#include <atomic>

namespace velt {
namespace {

std::atomic<Inherited*> kept{nullptr};

}  // namespace

void KeepInherited(Inherited& link, void* object) noexcept {
  link.object = object;
  link.next = kept.load(std::memory_order_relaxed);
  // Relaxed: only a leak checker reads the list, when the process has stopped.
  while (!kept.compare_exchange_weak(link.next, &link, std::memory_order_relaxed)) {
  }
}

}  // namespace velt
