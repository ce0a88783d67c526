// Wrapper of what starts threads.
#include <pthread.h>

#include "tests/faults/shim/next.h"
#include "tests/faults/shim/shim.h"

VELT_SHIM_EXPORT int pthread_create(pthread_t* thread, pthread_attr_t const* attributes, void* (*body)(void*),
                                    void* argument) noexcept {
  using Create = int(pthread_t*, pthread_attr_t const*, void* (*)(void*), void*);
  static auto* const next = velt::shim::Next<Create>("pthread_create");
  if (velt::shim::Watched(velt::shim::Call::kPthreadCreate)) {
    velt::shim::Verdict const verdict = velt::shim::Ask(velt::shim::Call::kPthreadCreate, nullptr);
    if (verdict.fail) return verdict.error;
  }
  return next(thread, attributes, body, argument);
}
