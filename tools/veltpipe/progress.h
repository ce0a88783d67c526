// The progress line of veltpipe on a terminal.
#ifndef VELT_TOOLS_VELTPIPE_PROGRESS_H
#define VELT_TOOLS_VELTPIPE_PROGRESS_H

#include <chrono>
#include <cstddef>
#include <cstdint>

#include "tools/veltpipe/statistics.h"

namespace velt::tools {

// Progress rewrites one line of standard error with what `statistics` say. It shows nothing where standard
// error is no terminal, or is one that another job has in front; a terminal that is held (Ctrl-S) is passed
// over, so that the log never waits for it.
//
// Threads: the main thread's.
class Progress {
 public:
  using Clock = std::chrono::steady_clock;

  Progress(bool wanted, Statistics const& statistics);

  bool IsShown() const { return shown_; }

  // Renews the line, unless that was done less than kEvery ago.
  void Tick();

  // Renews the line a last time, with the rate of the whole run, and leaves it standing.
  void Finish();

  static constexpr std::chrono::milliseconds kEvery{250};

 private:
  void Write(double bytes_per_second, char const* end);

  Statistics const& statistics_;
  bool const shown_;
  Clock::time_point const began_;
  Clock::time_point renewed_;
  std::uint64_t renewed_bytes_ = 0;
  std::size_t width_ = 0;  // of what stands on the terminal
};

}  // namespace velt::tools

#endif
