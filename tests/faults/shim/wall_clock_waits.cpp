// To be preloaded before the library that changes the clock: a wait until a time of the wall clock follows
// that clock when it is set, as it does when the kernel's is. The other library turns the time into a
// duration.
#include <pthread.h>

#include <cerrno>
#include <ctime>

#include "tests/faults/shim/next.h"

namespace {

constexpr long kLookEvery = 20'000'000;  // nanoseconds
constexpr long kSecond = 1'000'000'000;

bool Before(timespec const& a, timespec const& b) {
  return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec < b.tv_nsec);
}

}  // namespace

VELT_SHIM_EXPORT int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                            timespec const* deadline) {
  using Wait = int(pthread_cond_t*, pthread_mutex_t*, timespec const*);
  static auto* const next = velt::shim::Next<Wait>("pthread_cond_timedwait");
  for (;;) {
    timespec look{};
    clock_gettime(CLOCK_REALTIME, &look);
    look.tv_nsec += kLookEvery;
    if (look.tv_nsec >= kSecond) {
      look.tv_nsec -= kSecond;
      ++look.tv_sec;
    }
    bool const last = !Before(look, *deadline);
    int const waited = next(condition, mutex, last ? deadline : &look);
    if (waited != ETIMEDOUT || last) return waited;
  }
}
