// Reports problems to the host's handler, or on standard error.
#ifndef VELT_PLATFORM_PROBLEM_REPORT_H
#define VELT_PLATFORM_PROBLEM_REPORT_H

#include <atomic>
#include <cstdint>
#include <string>

#include "velt/problem.h"

namespace velt {

// Reads VELT_PROBLEMS. Called by constructors only: later, other threads of the host may change the
// environment.
void ReadProblemSetting() noexcept;

// Calls the handler, or writes the line. Adds ": TEXT (NUMBER)" to `sentence` for an `error` other than 0.
// Does nothing on a thread that is inside the handler. The caller must hold no lock.
void TellProblem(VeltProblemKind kind, std::string const& sentence, std::string const& path, int error,
                 std::uint64_t count) noexcept;

// Limits the reports of one kind: the first is made at once, later ones at most every ten seconds. Counts
// what happens in between. Any thread.
class ProblemGate {
 public:
  // Counts `count` more. Returns whether to report now; `all` is then the count since the last report.
  bool Pass(std::uint64_t count, std::uint64_t& all) noexcept;

 private:
  // Both relaxed: they decide what is reported, and publish nothing.
  std::atomic<std::int64_t> told_at_ms_{INT64_MIN};  // time of the last report, on a monotonic clock
  std::atomic<std::uint64_t> untold_{0};
};

}  // namespace velt

#endif
