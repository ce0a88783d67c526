// The progress line of veltpipe on a terminal.
#include "tools/veltpipe/progress.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <string>
#include <utility>

namespace velt::tools {
namespace {

constexpr double kMegabyte = 1048576;

bool IsInFront() {
  pid_t const front = tcgetpgrp(STDERR_FILENO);
  return front < 0 || front == getpgrp();  // below 0: not the controlling terminal, so no other job has it
}

bool TakesOutput() {
  pollfd terminal{STDERR_FILENO, POLLOUT, 0};
  return poll(&terminal, 1, 0) == 1 && (terminal.revents & POLLOUT) != 0;
}

// The line is cut to the terminal's width: a line that wraps could not be redrawn.
std::size_t Columns() {
  constexpr std::size_t kUsual = 80;
  winsize size{};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col : kUsual;
}

double Seconds(Progress::Clock::duration time) { return std::chrono::duration<double>(time).count(); }

}  // namespace

Progress::Progress(bool wanted, Statistics const& statistics, std::function<void()> refresh)
    : statistics_(statistics),
      refresh_(std::move(refresh)),
      shown_(wanted && isatty(STDERR_FILENO) == 1),
      began_(Clock::now()),
      renewed_(began_) {}

void Progress::Tick() {
  auto const now = Clock::now();
  if (!shown_ || now - renewed_ < kEvery) return;
  refresh_();
  auto const new_bytes = static_cast<double>(statistics_.bytes_in - renewed_bytes_);
  Write(new_bytes / Seconds(now - renewed_), "\r");
  renewed_ = now;
  renewed_bytes_ = statistics_.bytes_in;
}

void Progress::Finish() {
  if (!shown_) return;
  double const time = std::max(Seconds(Clock::now() - began_), 0.001);
  Write(static_cast<double>(statistics_.bytes_in) / time, "\n");
}

void Progress::Write(double bytes_per_second, char const* end) {
  if (!IsInFront() || !TakesOutput()) return;
  std::array<char, 160> text{};
  int const length = std::snprintf(
      text.data(), text.size(), "veltpipe: %" PRIu64 " lines, %.1f MB, %.1f MB/s, %" PRIu64 " files rotated",
      statistics_.lines_in, static_cast<double>(statistics_.bytes_in) / kMegabyte,
      bytes_per_second / kMegabyte, statistics_.files_rotated);
  auto const size = static_cast<std::size_t>(std::max(length, 0));
  std::string line(text.data(), std::min({size, text.size() - 1, Columns() - 1}));
  std::size_t const shown = line.size();
  if (shown < width_) line.append(width_ - shown, ' ');
  width_ = shown;
  std::fputs(("\r" + line + end).c_str(), stderr);
}

}  // namespace velt::tools
