// Hands messages to the channel of veltpipe.
#include "tools/veltpipe/feeder.h"

#include <algorithm>
#include <chrono>

namespace velt::tools {
namespace {

using Clock = StopSignal::Clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds kRetryPause(10);
constexpr unsigned kFlushMilliseconds = 100;  // then the stop signal is looked at
constexpr seconds kGrace(3);                  // the channel tries to open a file every second
constexpr seconds kPatience(1);               // the same with --on-stall drop

}  // namespace

Feeder::Feeder(Options const& options, Limits const& limits, StopSignal& stop, Statistics& statistics)
    : module_(options.module),
      level_(static_cast<VeltLogLevel>(options.level)),
      print_(options.print),
      drop_on_stall_(options.drop_on_stall),
      stop_(stop),
      statistics_(statistics),
      problems_(options.drop_on_stall),
      channel_(std::make_unique<VeltDebugInfo>(options.directory, options.name, "", false, false,
                                               limits.ring_records, limits.file_bytes, limits.archives,
                                               limits.files_per_archive, true)),
      last_move_(Clock::now()) {
  problems_.Watch(channel_.get());
  if (drop_on_stall_) channel_->SetQueueWait(0);
}

Feeder::~Feeder() { problems_.Watch(nullptr); }

void Feeder::Feed(std::string const& message) {
  if (given_up_) {
    ++statistics_.records_given_up;
  } else if (!TryUntilAccepted(message)) {
    ++(drop_on_stall_ ? statistics_.records_dropped : statistics_.records_given_up);
  }
}

bool Feeder::TryUntilAccepted(std::string const& message) {
  while (!channel_->Trace(module_, level_, message.c_str(), nullptr, print_, true)) {
    (void)channel_->Init();  // starts the thread if it could not be started before
    if (drop_on_stall_) return false;
    given_up_ = IsHopeless();
    if (given_up_) return false;
    ++statistics_.retries;
    stop_.Pause(kRetryPause);
  }
  return true;
}

void Feeder::Finish() {
  finishing_ = true;
  last_move_ = Clock::now();
  while (!IsDone() && !IsHopeless()) {
  }
  Refresh();
  VeltTraceCounts const counts = channel_->Counts();
  statistics_.no_log_file = problems_.IsWithoutFile(counts.filesOpened) || counts.filesOpened == 0;
  statistics_.records_given_up += counts.queued;
  problems_.Watch(nullptr);
  channel_.reset();
}

void Feeder::Refresh() {
  VeltTraceCounts const counts = channel_->Counts();
  statistics_.records_out = counts.written;
  statistics_.records_lost = counts.lost;
  statistics_.files_rotated = counts.filesOpened > 0 ? counts.filesOpened - 1 : 0;
}

// Waits for a moment, and says whether all is in the log or lost.
bool Feeder::IsDone() {
  if (!channel_->Flush(kFlushMilliseconds)) return false;
  if (channel_->Counts().filesOpened > 0) return true;
  (void)channel_->Init();  // as in TryUntilAccepted
  stop_.Pause(kRetryPause);
  return false;
}

// Whether no file can be opened and veltpipe must not wait for one any longer. An output that is only slow is
// waited for, whatever it takes.
bool Feeder::IsHopeless() {
  VeltTraceCounts const counts = channel_->Counts();
  std::uint64_t const steps = counts.written + counts.printedOnly + counts.lost + counts.filesOpened;
  auto const now = Clock::now();
  if (steps != steps_) {
    steps_ = steps;
    last_move_ = now;
  }
  if (!problems_.IsWithoutFile(counts.filesOpened) && channel_->Init()) return false;
  if (stop_.Raised() && now - std::max(stop_.RaisedAt(), last_move_) > kGrace) return true;
  return finishing_ && drop_on_stall_ && now - last_move_ > kPatience;
}

}  // namespace velt::tools
