// The clock of every figure, and what reading it costs.
#ifndef VELT_BENCH_HARNESS_CLOCK_H
#define VELT_BENCH_HARNESS_CLOCK_H

#include <time.h>

#include <cstdint>
#include <vector>

namespace velt::bench {

constexpr std::int64_t kNsPerSecond = 1'000'000'000;

inline std::int64_t ReadClock(clockid_t clock) {
  timespec now{};
  (void)clock_gettime(clock, &now);  // cannot fail for the clocks used here
  return now.tv_sec * kNsPerSecond + now.tv_nsec;
}

inline std::int64_t NowNs() { return ReadClock(CLOCK_MONOTONIC); }

void SleepNs(std::int64_t ns);
void SleepUntilNs(std::int64_t when);

// What measuring an empty call gives, and the step in which the clock advances.
struct ClockCost {
  double overhead_ns;
  double step_ns;
};
ClockCost MeasureClock();

// Sorts `samples` and gives the value below which `share` of them lie.
struct Percentiles {
  double p50 = 0;
  double p99 = 0;
  double p999 = 0;
  double mean = 0;
  double max = 0;
};
Percentiles Summarize(std::vector<std::uint32_t>& samples);

}  // namespace velt::bench

#endif
