#include "harness/stalled_output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "harness/clock.h"
#include "harness/options.h"

namespace velt::bench {

StalledOutput::StalledOutput(std::string const& directory, std::vector<std::string> const& names) {
  for (std::string const& name : names) {
    std::string const path = directory + name;
    // For reading and writing, so that neither side waits for the other to open.
    int const pipe =
        mkfifo(path.c_str(), 0600) == 0 ? open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC) : -1;
    if (pipe == -1) Fail("cannot make the pipe " + path);
    pipes_.push_back(pipe);
  }
}

StalledOutput::~StalledOutput() {
  FinishReading();
  for (int const pipe : pipes_) (void)close(pipe);
}

void StalledOutput::StartReading(Ledger& ledger) {
  reader_ = std::thread([this, &ledger] {
    constexpr std::int64_t kNapNs = 200'000;
    while (!closed_) {
      if (!ReadOnce(ledger)) SleepNs(kNapNs);
    }
    while (ReadOnce(ledger)) {
    }
  });
}

void StalledOutput::FinishReading() {
  closed_ = true;
  if (reader_.joinable()) reader_.join();
}

bool StalledOutput::ReadOnce(Ledger& ledger) const {
  static thread_local std::array<char, 65'536> piece;
  bool any = false;
  for (int const pipe : pipes_) {
    ssize_t const length = read(pipe, piece.data(), piece.size());
    if (length <= 0) continue;
    ledger.TakeText({piece.data(), static_cast<std::size_t>(length)});
    any = true;
  }
  return any;
}

}  // namespace velt::bench
