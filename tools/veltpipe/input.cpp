// Reads standard input until its end or a stop signal.
#include "tools/veltpipe/input.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <vector>

namespace velt::tools {
namespace {

constexpr std::size_t kBlockBytes = 65536;

// Returns once there is something to read, the input has ended, a signal has come, or the time is up (-1:
// never).
void WaitForEither(int descriptor, int stop_descriptor, int milliseconds) {
  std::array<pollfd, 2> waited{{{descriptor, POLLIN, 0}, {stop_descriptor, POLLIN, 0}}};
  // The result is not needed: the caller checks both descriptors.
  (void)poll(waited.data(), waited.size(), milliseconds);
}

bool IsTemporary(int reason) { return reason == EINTR || reason == EAGAIN || reason == EWOULDBLOCK; }

}  // namespace

int ReadInput(int descriptor, StopSignal& stop, LineSplitter& lines, Statistics& statistics,
              Progress& progress) {
  std::vector<char> block(kBlockBytes);
  int const longest_wait = progress.IsShown() ? static_cast<int>(Progress::kEvery.count()) : -1;
  for (;;) {
    WaitForEither(descriptor, stop.Descriptor(), longest_wait);
    progress.Tick();
    if (stop.Raised()) return 0;
    pollfd input{descriptor, POLLIN, 0};
    if (poll(&input, 1, 0) == 0) continue;  // a read would block and miss the stop signal
    ssize_t const count = read(descriptor, block.data(), block.size());
    if (count == 0) return 0;
    if (count > 0) {
      statistics.bytes_in += static_cast<std::uint64_t>(count);
      lines.Push({block.data(), static_cast<std::size_t>(count)});
      statistics.lines_in = lines.Lines();
    } else if (int const reason = errno; !IsTemporary(reason)) {
      return reason;
    }
  }
}

}  // namespace velt::tools
