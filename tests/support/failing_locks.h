// Locks that fail on demand. Linked into the tests that ask for it, it replaces the C library's lock
// functions for the whole program; a switch of each thread makes them fail.
#ifndef VELT_TESTS_SUPPORT_FAILING_LOCKS_H
#define VELT_TESTS_SUPPORT_FAILING_LOCKS_H

#include <cerrno>
#include <chrono>
#include <functional>
#include <ostream>
#include <vector>

namespace velt::test {

constexpr int kFailure = ENOLCK;  // nothing else on these paths sets it

enum class Lock { kReadLock, kWriteLock, kRwUnlock, kMutexLock, kMutexUnlock };

inline constexpr int kAllOfThem = 0;

// Makes calls of one kind fail in this thread while it lives: `count` from the first-th on, counted from 1.
class Failing {
 public:
  explicit Failing(Lock lock, int first_failing = 1, int count = kAllOfThem);
  ~Failing();
  Failing(Failing const&) = delete;
  Failing& operator=(Failing const&) = delete;

 private:
  Lock lock_;
};

// The same without an object: in this thread the first-th call of `lock` from now on fails, and only that
// one.
void FailOnce(Lock lock, int first_failing);

// Runs `run` once, in this thread, before the next lock of a mutex in this thread.
void BeforeNextMutexLock(std::function<void()> run);

// A wait for a condition with a deadline.
struct TimedWait {
  std::chrono::steady_clock::time_point asked_at;
  std::chrono::nanoseconds remaining;  // from then to the deadline
};

// While it lives, such waits of this thread end at once, as if the deadline had passed, and are added to
// `waits`.
class TimedWaitsEndAtOnce {
 public:
  explicit TimedWaitsEndAtOnce(std::vector<TimedWait>& waits);
  ~TimedWaitsEndAtOnce();
  TimedWaitsEndAtOnce(TimedWaitsEndAtOnce const&) = delete;
  TimedWaitsEndAtOnce& operator=(TimedWaitsEndAtOnce const&) = delete;
};

// The result of an operation and the errno that it left.
struct Result {
  int answer;
  int error;

  bool operator==(Result const& other) const { return answer == other.answer && error == other.error; }
};

inline std::ostream& operator<<(std::ostream& out, Result const& result) {
  return out << "{" << result.answer << ", errno " << result.error << "}";
}

template <typename Operation>
Result With(Lock lock, int first_failing, Operation operation) {
  Failing const failing(lock, first_failing);
  int const answer = static_cast<int>(operation());
  return {answer, errno};
}

inline constexpr Result kRefused{0, kFailure};
inline constexpr Result kDoneButNotReleased{1, kFailure};

}  // namespace velt::test

#endif
