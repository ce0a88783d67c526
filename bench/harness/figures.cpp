#include "harness/figures.h"

#include <cstdio>
#include <cstring>
#include <fstream>

namespace velt::bench {

namespace {

// A line of /proc/self/status, which counts in kB.
double StatusMb(std::string const& name) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind(name + ':', 0) == 0) return std::stod(line.substr(name.size() + 1)) / 1024;
  }
  Fail("no " + name + " in /proc/self/status");
}

}  // namespace

double PeakMemoryMb() { return StatusMb("VmHWM"); }
double CurrentMemoryMb() { return StatusMb("VmRSS"); }

void CheckMessageLength() {
  std::array<char, kMessageCapacity> message{};
  int const length = std::snprintf(message.data(), message.size(), VELT_BENCH_PRINTF_MESSAGE, Customer(0),
                                   kFirstWorker, kFirstStep);
  if (length != static_cast<int>(kMessageLength)) Fail("the message has " + std::to_string(length));
}

void DemandLineLength(Ledger const& ledger) {
  constexpr double kTolerance = 4;  // thread ids may be longer or shorter than the main thread's
  double const length = ledger.MeanLineLength();
  if (length < kLineLength - kTolerance || length > kLineLength + kTolerance) {
    Fail("a line has " + std::to_string(length) + " bytes");
  }
}

void AddPercentiles(std::string const& prefix, std::vector<std::uint32_t>& samples, Result& result) {
  Percentiles const cost = Summarize(samples);
  result.Add(prefix + "p50", cost.p50);
  result.Add(prefix + "p99", cost.p99);
  result.Add(prefix + "p999", cost.p999);
  result.Add(prefix + "mean", cost.mean);
  result.Add(prefix + "max", cost.max);
}

void AddClock(Result& result) {
  ClockCost const clock = MeasureClock();
  result.Add("clock_ns", clock.overhead_ns);
  result.Add("clock_step_ns", clock.step_ns);
}

}  // namespace velt::bench
