#include "harness/clock.h"

#include <algorithm>
#include <cerrno>
#include <numeric>

namespace velt::bench {

namespace {

double At(std::vector<std::uint32_t> const& sorted, double share) {
  auto const rank = static_cast<std::size_t>(share * static_cast<double>(sorted.size()));
  return sorted[std::min(rank, sorted.size() - 1)];
}

}  // namespace

void SleepUntilNs(std::int64_t when) {
  timespec const until{when / kNsPerSecond, when % kNsPerSecond};
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
  }
}

void SleepNs(std::int64_t ns) { SleepUntilNs(NowNs() + ns); }

ClockCost MeasureClock() {
  constexpr std::size_t kReadings = 100'000;
  std::vector<std::uint32_t> costs(kReadings);
  std::int64_t step = kNsPerSecond;
  for (auto& cost : costs) {
    std::int64_t const begin = NowNs();
    std::int64_t const end = NowNs();
    cost = static_cast<std::uint32_t>(end - begin);
  }
  std::sort(costs.begin(), costs.end());
  for (std::size_t i = 1; i < kReadings; ++i) {
    // One nanosecond is what converting the ticks of a coarse clock rounds away.
    std::int64_t const difference = static_cast<std::int64_t>(costs[i]) - costs[i - 1];
    if (difference > 1) step = std::min(step, difference);
  }
  return {At(costs, 0.5), static_cast<double>(step)};
}

Percentiles Summarize(std::vector<std::uint32_t>& samples) {
  if (samples.empty()) return {};
  std::sort(samples.begin(), samples.end());
  double const sum = std::accumulate(samples.begin(), samples.end(), 0.0);
  return {At(samples, 0.5), At(samples, 0.99), At(samples, 0.999), sum / static_cast<double>(samples.size()),
          static_cast<double>(samples.back())};
}

}  // namespace velt::bench
