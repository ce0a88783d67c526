// Delays records so that no two files of the family are opened within one second.
#include "tools/veltpipe/pacer.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>

namespace velt::tools {
namespace {

using Clock = StopSignal::Clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds kLookEvery(20);
constexpr seconds kQuietTime(1);  // a file that should grow and does not for so long is stuck
constexpr seconds kGrace(3);      // the channel tries to open a file every second
constexpr seconds kExplainAfter(3);
constexpr seconds kPatience(1);  // the longest wait with --on-stall drop

// Far more than the bytes in a file that are not counted: its header, and a line for each new day.
constexpr std::uint64_t kUncountedBytes = 65536;

}  // namespace

Pacer::Pacer(LogFamily& family, StopSignal& stop, Statistics& statistics, std::uint64_t file_limit_bytes,
             bool drops)
    : family_(family),
      stop_(stop),
      statistics_(statistics),
      limit_bytes_(file_limit_bytes),
      drops_(drops),
      last_move_(Clock::now()),
      last_record_(last_move_) {}

void Pacer::WaitForFreeSecond() {
  while (family_.SecondIsTaken()) stop_.Pause(kLookEvery);
}

bool Pacer::WaitForFirstFile(VeltDebugInfo& channel) {
  auto const began = Clock::now();
  while (!family_.FindNewerLog()) {
    if (stop_.Raised() || IsTimeUp(began)) return false;  // nothing was read yet
    (void)channel.Init();  // starts the thread if it could not be started before
    ExplainWait();
    stop_.Pause(kLookEvery);
  }
  has_file_ = true;
  NoteMove();
  return true;
}

bool Pacer::Admit(std::size_t record_bytes) {
  if (given_up_) return false;
  if (!MayOutgrow(record_bytes)) return true;
  Look();
  if (expected_bytes_ > limit_bytes_ && !WaitForNewerFile()) return false;
  if (MayOutgrow(record_bytes)) WaitForFreeSecond();
  return true;
}

void Pacer::Count(std::size_t record_bytes) {
  expected_bytes_ += record_bytes;
  last_record_ = Clock::now();
}

bool Pacer::IsHopeless() {
  Look();
  return stop_.Raised() && Clock::now() - std::max(stop_.RaisedAt(), last_move_) > kGrace;
}

void Pacer::CheckEnd() {
  if (family_.FindNewerLog()) {
    if (has_file_) ++statistics_.files_rotated;
    return;
  }
  Look();
  statistics_.no_log_file = seen_.log_bytes < 0;
  auto const held = static_cast<std::uint64_t>(std::max<std::int64_t>(seen_.log_bytes, 0));
  if (expected_bytes_ > held) statistics_.bytes_missing += expected_bytes_ - held;
}

bool Pacer::MayOutgrow(std::size_t record_bytes) const {
  return expected_bytes_ + record_bytes + kUncountedBytes > limit_bytes_;
}

bool Pacer::WaitForNewerFile() {
  auto const began = Clock::now();
  while (!family_.FindNewerLog()) {
    if (IsTimeUp(began)) return false;
    if (IsHopeless()) {
      given_up_ = true;
      return false;
    }
    if (IsStuck()) {
      GoOnDespiteRefusal();
      return true;
    }
    ExplainWait();
    stop_.Pause(kLookEvery);
  }
  if (has_file_) ++statistics_.files_rotated;
  has_file_ = true;
  expected_bytes_ = 0;
  probed_at_bytes_ = -1;
  Look();
  return true;
}

bool Pacer::IsTimeUp(Clock::time_point began) const { return drops_ && Clock::now() - began > kPatience; }

// Whether the file does not grow although more was traced than its limit and it has not reached the limit.
bool Pacer::IsStuck() const {
  bool const below_limit =
      seen_.log_bytes >= 0 && static_cast<std::uint64_t>(seen_.log_bytes) <= limit_bytes_;
  return below_limit && Clock::now() - std::max(last_move_, last_record_) > kQuietTime;
}

// Admits one record at a time, since the device may only be slow: more could fill another file. When one has
// arrived and the file is quiet again, the queue is empty, and the count starts again at the file's size.
void Pacer::GoOnDespiteRefusal() {
  bool const arrived = probed_at_bytes_ >= 0 && seen_.log_bytes > probed_at_bytes_;
  if (arrived) {
    auto const held = static_cast<std::uint64_t>(seen_.log_bytes);
    statistics_.bytes_missing += expected_bytes_ - held;
    expected_bytes_ = held;
  }
  probed_at_bytes_ = arrived ? -1 : seen_.log_bytes;
}

void Pacer::Look() {
  LogFamily::Footprint const now = family_.Measure();
  if (!(now == seen_)) NoteMove();
  seen_ = now;
  if (now.log_bytes > 0)
    expected_bytes_ = std::max(expected_bytes_, static_cast<std::uint64_t>(now.log_bytes));
}

void Pacer::NoteMove() { last_move_ = Clock::now(); }

void Pacer::ExplainWait() {
  if (explained_ || Clock::now() - last_move_ < kExplainAfter) return;
  explained_ = true;
  std::string const reason = family_.WhyNoFile();
  std::fprintf(stderr, "veltpipe: waiting for a log file to be opened in %s%s%s\n",
               family_.Directory().c_str(), reason.empty() ? "" : ": ", reason.c_str());
}

}  // namespace velt::tools
