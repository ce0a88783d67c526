// Wrapper of what starts threads.
#include <pthread.h>

#include "tests/faults/shim/next.h"
#include "tests/faults/shim/shim.h"

// clang's sanitizers put their own pthread_create into the program, and need it to know of threads.
#ifdef __clang__
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VELT_SHIM_WITHOUT_THREADS 1
#endif
#endif

#ifndef VELT_SHIM_WITHOUT_THREADS
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
#endif
