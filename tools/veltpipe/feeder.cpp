// Hands messages to the channel of veltpipe.
#include "tools/veltpipe/feeder.h"

#include <unistd.h>

#include <chrono>

namespace velt::tools {
namespace {

constexpr std::chrono::milliseconds kRetryPause(10);
constexpr std::chrono::seconds kDropFor(1);  // as long as a refused call has waited

// A record in the file is "MM-DD hh:mm:ss.uuuuuu", ".T" and the thread id, " module ", the tag, the message
// and a newline.
std::size_t RecordOverhead(Options const& options) {
  std::size_t const stamp = 21;
  std::size_t const thread = 2 + std::to_string(gettid()).size();
  std::size_t const module = 1 + options.module.size() + 1;
  std::size_t const tag = options.level <= 3 ? 3 : 0;
  return stamp + thread + module + tag + 1;
}

}  // namespace

Feeder::Feeder(Options const& options, Limits const& limits, StopSignal& stop, Statistics& statistics)
    : module_(options.module),
      level_(static_cast<VeltLogLevel>(options.level)),
      print_(options.print),
      drop_on_stall_(options.drop_on_stall),
      overhead_bytes_(RecordOverhead(options)),
      stop_(stop),
      statistics_(statistics),
      family_(options.directory, options.name),
      pacer_(family_, stop, statistics, limits.file_bytes, options.drop_on_stall) {
  pacer_.WaitForFreeSecond();
  channel_ = std::make_unique<VeltDebugInfo>(family_.Directory(), options.name, "", false, false,
                                             limits.ring_records, limits.file_bytes, limits.archives,
                                             limits.files_per_archive, true);
  (void)pacer_.WaitForFirstFile(*channel_);  // if a signal ends the wait, no input is read
}

void Feeder::Feed(std::string const& message) {
  if (drop_on_stall_ && StopSignal::Clock::now() < next_try_) {
    ++statistics_.records_dropped;
    return;
  }
  std::size_t const record_bytes = overhead_bytes_ + message.size();
  if (!pacer_.Admit(record_bytes) || !TryUntilAccepted(message)) {
    ++(drop_on_stall_ ? statistics_.records_dropped : statistics_.records_given_up);
    next_try_ = StopSignal::Clock::now() + kDropFor;
    return;
  }
  ++statistics_.records_out;
  pacer_.Count(record_bytes);
}

void Feeder::Finish() {
  channel_.reset();
  pacer_.CheckEnd();
}

bool Feeder::TryUntilAccepted(std::string const& message) {
  while (!channel_->Trace(module_, level_, message.c_str(), nullptr, print_, true)) {
    if (drop_on_stall_ || pacer_.IsHopeless()) return false;
    ++statistics_.retries;
    stop_.Pause(kRetryPause);
  }
  return true;
}

}  // namespace velt::tools
