#include "tests/support/failing_locks.h"

#include <dlfcn.h>
#include <pthread.h>

#include <cstddef>

namespace velt::test {
namespace {

constexpr std::size_t kLocks = 5;

// Which calls of this thread fail.
struct Plan {
  bool armed = false;
  int first_failing = 0;
  int count = kAllOfThem;
  int calls = 0;
};

thread_local Plan plans[kLocks];

Plan& PlanOf(Lock lock) { return plans[static_cast<std::size_t>(lock)]; }

bool Fails(Lock lock) {
  Plan& plan = PlanOf(lock);
  if (!plan.armed) return false;
  ++plan.calls;
  return plan.calls >= plan.first_failing &&
         (plan.count == kAllOfThem || plan.calls < plan.first_failing + plan.count);
}

template <typename Function>
Function* Real(char const* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

using RwFunction = int(pthread_rwlock_t*);
using MutexFunction = int(pthread_mutex_t*);

}  // namespace

Failing::Failing(Lock lock, int first_failing, int count) : lock_(lock) {
  errno = 0;
  PlanOf(lock) = {true, first_failing, count, 0};
}

Failing::~Failing() { PlanOf(lock_).armed = false; }

void FailOnce(Lock lock, int first_failing) { PlanOf(lock) = {true, first_failing, 1, 0}; }

}  // namespace velt::test

// The sanitizers see the calls that these pass on; the functions themselves may run before a sanitizer is
// ready.
#define VELT_INTERPOSED \
  extern "C" __attribute__((visibility("default"), no_sanitize("thread", "address", "undefined")))

VELT_INTERPOSED int pthread_rwlock_rdlock(pthread_rwlock_t* lock) noexcept {
  static auto* const real = velt::test::Real<velt::test::RwFunction>("pthread_rwlock_rdlock");
  return velt::test::Fails(velt::test::Lock::kReadLock) ? velt::test::kFailure : real(lock);
}

VELT_INTERPOSED int pthread_rwlock_wrlock(pthread_rwlock_t* lock) noexcept {
  static auto* const real = velt::test::Real<velt::test::RwFunction>("pthread_rwlock_wrlock");
  return velt::test::Fails(velt::test::Lock::kWriteLock) ? velt::test::kFailure : real(lock);
}

// A failing release does release: a lock that stays held would end the test.
VELT_INTERPOSED int pthread_rwlock_unlock(pthread_rwlock_t* lock) noexcept {
  static auto* const real = velt::test::Real<velt::test::RwFunction>("pthread_rwlock_unlock");
  int const result = real(lock);
  return velt::test::Fails(velt::test::Lock::kRwUnlock) ? velt::test::kFailure : result;
}

VELT_INTERPOSED int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  static auto* const real = velt::test::Real<velt::test::MutexFunction>("pthread_mutex_lock");
  return velt::test::Fails(velt::test::Lock::kMutexLock) ? velt::test::kFailure : real(mutex);
}

VELT_INTERPOSED int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
  static auto* const real = velt::test::Real<velt::test::MutexFunction>("pthread_mutex_unlock");
  int const result = real(mutex);
  return velt::test::Fails(velt::test::Lock::kMutexUnlock) ? velt::test::kFailure : result;
}
