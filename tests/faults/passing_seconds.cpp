// A clock of seconds for programs whose channels open many files: those are named by the second, and here
// every look at the clock is another one. A channel may end fifty files without waiting for fifty seconds.
#include <atomic>
#include <ctime>

extern "C" __attribute__((visibility("default"))) time_t time(time_t* result) noexcept {
  static std::atomic<time_t> next{[] {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec;
  }()};
  time_t const second = ++next;
  if (result != nullptr) *result = second;
  return second;
}
