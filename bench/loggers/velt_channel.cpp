// A channel of this library by itself, whose file never reaches its limit.
#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "velt/channel.h"

#include "harness/figures.h"
#include "loggers/velt_setup.h"

namespace velt::bench {
namespace {

class ChannelLogger {
 public:
  static constexpr std::size_t kFixedLength = kVeltFixedLength;
  static constexpr std::size_t kThreadIdWidth = 1;

  ChannelLogger(Options const& options, Modules const& modules)
      : modules_(modules),
        channel_(options.LogDirectory(), kFamily, "", false, false, 100, kFileLimit, 30, 10, true) {}

  bool Log(std::size_t module, char const* customer, int worker, int step) {
    std::array<char, kMessageCapacity> message;
    (void)std::snprintf(message.data(), message.size(), VELT_BENCH_PRINTF_MESSAGE, customer, worker, step);
    return channel_.Trace(modules_[module], kInformation, message.data(), nullptr, false, true);
  }

  void Stall() {
    if (!channel_.Trace(modules_[0], kInformation, "stalled", gate_.ClosedValue().get(), false, true)) {
      Fail("the stalling record was refused");
    }
  }
  void Resume() { gate_.Open(); }

 private:
  static constexpr unsigned kFileLimit = 2'000'000'000;

  Modules modules_;
  OutputGate gate_;
  VeltDebugInfo channel_;
};

}  // namespace
}  // namespace velt::bench

int main(int argc, char** argv) {
  return velt::bench::Run<velt::bench::ChannelLogger>(velt::bench::Options(argc, argv));
}
