#include "tests/support/failing_locks.h"

#include <dlfcn.h>
#include <pthread.h>

#include <cstddef>
#include <ctime>
#include <utility>

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

thread_local std::function<void()>* before_mutex_lock = nullptr;
thread_local std::vector<TimedWait>* timed_waits = nullptr;

void RunBeforeMutexLock() {
  std::function<void()>* const run = std::exchange(before_mutex_lock, nullptr);
  if (run == nullptr) return;
  (*run)();
  delete run;
}

// Whether this thread's waits end at once; then this one is noted.
bool EndsAtOnce(clockid_t clock, timespec const* deadline) {
  if (timed_waits == nullptr) return false;
  timespec now{};
  clock_gettime(clock, &now);
  std::chrono::nanoseconds const remaining = std::chrono::seconds(deadline->tv_sec - now.tv_sec) +
                                             std::chrono::nanoseconds(deadline->tv_nsec - now.tv_nsec);
  timed_waits->push_back({std::chrono::steady_clock::now(), remaining});
  return true;
}

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
using TimedFunction = int(pthread_cond_t*, pthread_mutex_t*, timespec const*);
using ClockFunction = int(pthread_cond_t*, pthread_mutex_t*, clockid_t, timespec const*);

}  // namespace

Failing::Failing(Lock lock, int first_failing, int count) : lock_(lock) {
  errno = 0;
  PlanOf(lock) = {true, first_failing, count, 0};
}

Failing::~Failing() { PlanOf(lock_).armed = false; }

void BeforeNextMutexLock(std::function<void()> run) {
  before_mutex_lock = new std::function<void()>(std::move(run));
}

TimedWaitsEndAtOnce::TimedWaitsEndAtOnce(std::vector<TimedWait>& waits) { timed_waits = &waits; }

TimedWaitsEndAtOnce::~TimedWaitsEndAtOnce() { timed_waits = nullptr; }

void FailOnce(Lock lock, int first_failing) { PlanOf(lock) = {true, first_failing, 1, 0}; }

}  // namespace velt::test

// Not instrumented, since these functions may run before a sanitizer is ready. It sees the calls that they
// pass on.
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

// A release that fails has released the lock all the same: the test could not go on with a held one.
VELT_INTERPOSED int pthread_rwlock_unlock(pthread_rwlock_t* lock) noexcept {
  static auto* const real = velt::test::Real<velt::test::RwFunction>("pthread_rwlock_unlock");
  int const result = real(lock);
  return velt::test::Fails(velt::test::Lock::kRwUnlock) ? velt::test::kFailure : result;
}

VELT_INTERPOSED int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  static auto* const real = velt::test::Real<velt::test::MutexFunction>("pthread_mutex_lock");
  velt::test::RunBeforeMutexLock();
  return velt::test::Fails(velt::test::Lock::kMutexLock) ? velt::test::kFailure : real(mutex);
}

// A try that finds the lock taken is not counted: its caller tries again, here or with pthread_mutex_lock.
VELT_INTERPOSED int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept {
  static auto* const real = velt::test::Real<velt::test::MutexFunction>("pthread_mutex_trylock");
  static auto* const unlock = velt::test::Real<velt::test::MutexFunction>("pthread_mutex_unlock");
  velt::test::RunBeforeMutexLock();
  int const result = real(mutex);
  if (result != 0 || !velt::test::Fails(velt::test::Lock::kMutexLock)) return result;
  (void)unlock(mutex);
  return velt::test::kFailure;
}

VELT_INTERPOSED int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
  static auto* const real = velt::test::Real<velt::test::MutexFunction>("pthread_mutex_unlock");
  int const result = real(mutex);
  return velt::test::Fails(velt::test::Lock::kMutexUnlock) ? velt::test::kFailure : result;
}

VELT_INTERPOSED int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                           timespec const* deadline) {
  static auto* const real = velt::test::Real<velt::test::TimedFunction>("pthread_cond_timedwait");
  if (velt::test::EndsAtOnce(CLOCK_REALTIME, deadline)) return ETIMEDOUT;
  return real(condition, mutex, deadline);
}

VELT_INTERPOSED int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                                           timespec const* deadline) {
  static auto* const real = velt::test::Real<velt::test::ClockFunction>("pthread_cond_clockwait");
  if (velt::test::EndsAtOnce(clock, deadline)) return ETIMEDOUT;
  return real(condition, mutex, clock, deadline);
}
