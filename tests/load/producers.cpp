#include "tests/load/producers.h"

#include <unistd.h>

#include <algorithm>
#include <string>

#include "velt/manager.h"

namespace velt::load {
namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kStepsBetweenLooks = 16;  // at the clock
// "11-21 14:07:20.298572.T" and " load E: ", and the newline; the digits of the thread are between them.
constexpr std::size_t kAroundMessage = 33;
constexpr std::chrono::milliseconds kMayBeRefused(900);

// Must be exact: a byte too many in each record would use up the pacer's window, a byte too few would widen
// it.
std::size_t LineLength(std::size_t message) {
  thread_local std::size_t const digits = std::to_string(gettid()).size();
  return kAroundMessage + digits + message;
}

// Printf returns nothing: counts as true.
bool TraceText(Step const& step, std::string const& text) {
  VeltDebugMgr* const manager = VeltDebugMgr::Instance();
  VeltLogLevel const level{LevelOf(step.kind)};
  static std::string const module = kModule;
  switch (step.call) {
    case Call::kPrintf:
      manager->Printf(level, VeltInterString(module), "%s", text.c_str());
      return true;
    case Call::kTrace:
      return manager->Trace(module, level, text.c_str(), nullptr, false, false);
    case Call::kAppTrace:
      break;
  }
  return manager->AppTrace(module, level, text.c_str(), nullptr, false, false, SubNameOf(step.family));
}

}  // namespace

Producers::Producers(Scale const& scale, Pacer& pacer) : scale_(scale), pacer_(pacer), start_(Clock::now()) {
  for (unsigned i = 0; i < kProducers; ++i) threads_.emplace_back([this, i] { Run(i); });
}

Producers::~Producers() { Release(); }

void Producers::Release() {
  {
    std::lock_guard<std::mutex> const lock(release_lock_);
    released_ = true;
  }
  release_changed_.notify_all();
  for (auto& thread : threads_) thread.join();
  threads_.clear();
}

std::uint64_t Producers::Traced() const {
  std::uint64_t traced = 0;
  for (auto const& producer : producers_) traced += producer.traced.load(std::memory_order_relaxed);
  return traced;
}

void Producers::Run(unsigned number) {
  auto const between = std::chrono::nanoseconds(1'000'000'000ULL * kProducers / scale_.records_per_second);
  for (unsigned index = 0; index < scale_.records_each; ++index) {
    if (index % kStepsBetweenLooks == 0) std::this_thread::sleep_until(start_ + index * between);
    Take(number, index);
    producers_[number].traced.store(index + 1, std::memory_order_relaxed);  // a figure
  }
  ++finished_;
  std::unique_lock<std::mutex> lock(release_lock_);
  release_changed_.wait(lock, [this] { return released_; });
}

void Producers::Take(unsigned number, unsigned index) {
  Step const step = StepOf(number, index);
  Answers& answers = producers_[number].answers;
  if (step.kind == Kind::kFiltered) {
    if (!TraceFiltered(step)) answers.filtered_refused.push_back(index);
    return;
  }
  checker::RecordId id{kOrdinaryRun, number, index};
  if (step.kind == Kind::kAlarm) {
    Ring& ring = rings_[step.family];
    std::lock_guard<std::mutex> const lock(ring.lock);
    id.run = kFirstAlarmRun + ring.count;
  }
  std::string const text = MessageOf(id, step.length);
  if (step.kind != Kind::kBadLevel)
    pacer_.Admit(step.family, LineLength(std::min(text.size(), LimitOf(step.call))));
  auto const start = Clock::now();
  bool const accepted = TraceText(step, text);
  if (!accepted) {
    answers.refused.push_back(index);
  } else if (step.call == Call::kPrintf && Clock::now() - start >= kMayBeRefused) {
    answers.unknown.push_back(index);
  }
}

bool Producers::TraceFiltered(Step const& step) {
  Ring& ring = rings_[step.family];
  std::lock_guard<std::mutex> const lock(ring.lock);
  bool const accepted = TraceText(step, MessageOf({kFilteredRun, step.family, ring.count}, step.length));
  ring.count += accepted ? 1 : 0;
  return accepted;
}

}  // namespace velt::load
