// Tells the host's problem handler, or standard error, what went wrong.
#ifndef VELT_PLATFORM_PROBLEM_REPORT_H
#define VELT_PLATFORM_PROBLEM_REPORT_H

#include <atomic>
#include <cstdint>
#include <string>

#include "velt/problem.h"

namespace velt {

// Reads VELT_PROBLEMS. For constructors: other threads of the host may change the environment later.
void ReadProblemSetting() noexcept;

// Calls the handler, or writes the line. `sentence` gets ": TEXT (NUMBER)" for an `error` other than 0.
// Nothing on a thread that is inside the handler. To be called with no lock held.
void TellProblem(VeltProblemKind kind, std::string const& sentence, std::string const& path, int error,
                 std::uint64_t count) noexcept;

// Lets the first report of a kind through at once and then one in ten seconds, and counts what comes between.
// Any thread.
class ProblemGate {
 public:
  // Counts `count` more. Returns whether to tell now: `all` is then what has come since the last time.
  bool Pass(std::uint64_t count, std::uint64_t& all) noexcept;

 private:
  // Relaxed both: they decide what is told, and publish nothing.
  std::atomic<std::int64_t> told_at_ms_{INT64_MIN};  // of a monotonic clock
  std::atomic<std::uint64_t> untold_{0};
};

}  // namespace velt

#endif
