#include "platform/problem_report.h"

#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "platform/no_cancellation.h"
#include "platform/signal_withheld.h"

namespace velt {
namespace {

constexpr std::int64_t kMillisecondsBetweenReports = 10'000;

// Stored with release, loaded with acquire: what the host prepared for its handler is seen with the pointer.
std::atomic<VeltProblemHandler> problem_handler{nullptr};
std::atomic<bool> to_standard_error{false};  // relaxed: a setting

thread_local bool telling = false;

std::string WithReason(std::string const& sentence, int error) {
  if (error == 0) return sentence;
  char text[256] = "";
  return sentence + ": " + strerror_r(error, text, sizeof text) + " (" + std::to_string(error) + ")";
}

// A reader that is gone or does not read must not end or stall the thread that traces: the line is lost then.
void WriteLine(std::string const& sentence) {
  std::string const line = "veltbaseutil: " + sentence + "\n";
  pollfd error{STDERR_FILENO, POLLOUT, 0};
  if (poll(&error, 1, 0) != 1 || (error.revents & POLLOUT) == 0) return;
  SignalWithheld const sigpipe(SIGPIPE);
  SignalWithheld const sigxfsz(SIGXFSZ);  // standard error may be a file at its size limit
  (void)!write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace

void ReadProblemSetting() noexcept {
  char const* const value = std::getenv("VELT_PROBLEMS");
  to_standard_error.store(value != nullptr && std::strcmp(value, "stderr") == 0, std::memory_order_relaxed);
}

void TellProblem(VeltProblemKind kind, std::string const& sentence, std::string const& path, int error,
                 std::uint64_t count) noexcept {
  VeltProblemHandler const handler = problem_handler.load(std::memory_order_acquire);
  if (telling || (handler == nullptr && !to_standard_error.load(std::memory_order_relaxed))) return;
  NoCancellation const none;  // writing is a cancellation point, and this function lets nothing through
  telling = true;
  try {
    std::string const whole = WithReason(sentence, error);
    if (handler != nullptr) {
      handler({kind, whole.c_str(), path.c_str(), error, count});
    } else {
      WriteLine(whole);
    }
  } catch (...) {
    // a report that cannot be made, or whose handler throws, must not reach a trace call or a thread's end
  }
  telling = false;
}

bool ProblemGate::Pass(std::uint64_t count, std::uint64_t& all) noexcept {
  untold_.fetch_add(count, std::memory_order_relaxed);
  auto const since_boot = std::chrono::steady_clock::now().time_since_epoch();
  std::int64_t const now = std::chrono::duration_cast<std::chrono::milliseconds>(since_boot).count();
  std::int64_t told_at = told_at_ms_.load(std::memory_order_relaxed);
  if (told_at != INT64_MIN && now - told_at < kMillisecondsBetweenReports) return false;
  if (!told_at_ms_.compare_exchange_strong(told_at, now, std::memory_order_relaxed)) return false;
  all = untold_.exchange(0, std::memory_order_relaxed);
  return true;
}

}  // namespace velt

VeltProblemHandler VeltSetProblemHandler(VeltProblemHandler handler) {
  return velt::problem_handler.exchange(handler, std::memory_order_acq_rel);
}
