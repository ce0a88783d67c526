// The progress line of veltpipe on a terminal.
#ifndef VELT_TOOLS_VELTPIPE_PROGRESS_H
#define VELT_TOOLS_VELTPIPE_PROGRESS_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>

#include "tools/veltpipe/statistics.h"

namespace velt::tools {

// Progress shows the figures of `statistics` in one line on standard error. It shows nothing if standard
// error is not a terminal, or if another job is in the terminal's foreground. It skips a redraw if the
// terminal is stopped (Ctrl-S), so that the log never waits for it.
//
// Threads: only the main thread may use it.
class Progress {
 public:
  using Clock = std::chrono::steady_clock;

  // `refresh` is called before each redraw but the last: it brings the statistics up to date.
  Progress(bool wanted, Statistics const& statistics, std::function<void()> refresh);

  bool IsShown() const { return shown_; }

  // Redraws the line, unless the last redraw was less than kEvery ago.
  void Tick();

  // Draws the line a last time, with the rate of the whole run, and ends it.
  void Finish();

  static constexpr std::chrono::milliseconds kEvery{250};

 private:
  void Write(double bytes_per_second, char const* end);

  Statistics const& statistics_;
  std::function<void()> const refresh_;
  bool const shown_;
  Clock::time_point const began_;
  Clock::time_point renewed_;
  std::uint64_t renewed_bytes_ = 0;
  std::size_t width_ = 0;  // columns of the line on the terminal
};

}  // namespace velt::tools

#endif
