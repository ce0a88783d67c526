#include "debug/channel/flush.h"

#include <pthread.h>
#include <time.h>

#include <algorithm>

#include "debug/channel/channel_state.h"
#include "debug/channel/counts.h"

namespace velt {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;

constexpr microseconds kShortestPause(50);
constexpr microseconds kLongestPause(2000);
constexpr std::chrono::seconds kWithoutProgress(1);

pthread_mutex_t live_lock = PTHREAD_MUTEX_INITIALIZER;  // never destroyed: used until the process has ended
ChannelState* live_channels = nullptr;                  // under live_lock

// Ask it whether it holds the lock. A channel that cannot be added because the lock fails is not flushed at
// exit.
class LiveLock {
 public:
  LiveLock() : locked_(pthread_mutex_lock(&live_lock) == 0) {}
  ~LiveLock() {
    if (locked_) (void)pthread_mutex_unlock(&live_lock);
  }
  LiveLock(LiveLock const&) = delete;
  LiveLock& operator=(LiveLock const&) = delete;

  bool locked() const { return locked_; }

 private:
  bool locked_;
};

void Pause(microseconds length) {
  timespec const rest{0, static_cast<long>(length.count() * 1000)};
  (void)nanosleep(&rest, nullptr);  // if it ends early, the caller checks once more
}

// Pauses that grow: a short wait ends soon, and a long one takes little time of the processor.
class Pauses {
 public:
  // Returns how long the pause was meant to be.
  microseconds Take() {
    microseconds const length = next_;
    Pause(length);
    next_ = std::min(length * 2, kLongestPause);
    return length;
  }

 private:
  microseconds next_ = kShortestPause;
};

// Whether live channels still have to write what the flush waits for, and how far these are. Under live_lock.
struct Progress {
  bool pending = false;
  std::uint64_t steps = 0;
};

Progress LookAtLiveChannels_i() {
  Progress now;
  for (ChannelState const* state = live_channels; state != nullptr; state = state->m_pNextLive) {
    // An archive that is being made is waited for: half of one would be left behind. Other threads may trace
    // to a channel that is done for as long as the process lives.
    bool const tidying = state->m_bHousekeeping.load(std::memory_order_acquire);
    if (state->InheritedByFork() || (QueueDealtWith(*state, state->m_nFlushTarget) && !tidying)) continue;
    now.pending = true;
    now.steps += state->m_counts.dealtWith.Get() + state->m_counts.bytesWritten.Get() +
                 state->m_counts.archiveBlocks.load(std::memory_order_relaxed);
  }
  return now;
}

void SetTargets() {
  LiveLock const lock;
  if (!lock.locked()) return;
  for (ChannelState* state = live_channels; state != nullptr; state = state->m_pNextLive) {
    state->m_nFlushTarget = AcceptedByQueue(*state);
  }
}

Progress LookAtLiveChannels() {
  LiveLock const lock;
  return lock.locked() ? LookAtLiveChannels_i() : Progress();
}

// Runs after the destructors of the host's static objects, so that their traces are flushed too. The output
// threads still run. Ends when all is written, or when nothing was written for a second.
[[gnu::destructor]] void FlushAtExit() {
  SetTargets();
  Pauses pauses;
  std::uint64_t steps = 0;
  // Counted in pauses, not by a clock: on a busy machine the output threads may have had no processor for a
  // second, and the pauses of this thread then take as much longer.
  microseconds without_progress(0);
  for (Progress now = LookAtLiveChannels(); now.pending; now = LookAtLiveChannels()) {
    if (now.steps != steps) {
      steps = now.steps;
      without_progress = microseconds(0);
    } else if (without_progress > kWithoutProgress) {
      return;
    }
    without_progress += pauses.Take();
  }
}

}  // namespace

bool Flush(std::vector<ChannelState*> const& channels, std::chrono::milliseconds wait) {
  Clock::time_point const deadline = Clock::now() + wait;
  std::vector<std::uint64_t> targets;
  targets.reserve(channels.size());
  for (ChannelState* const state : channels) {
    if (state->InheritedByFork()) return false;
    targets.push_back(AcceptedByQueue(*state));
  }
  for (std::size_t i = 0; i < channels.size(); ++i) {
    Pauses pauses;
    while (!QueueDealtWith(*channels[i], targets[i])) {
      if (Clock::now() >= deadline || channels[i]->m_OutputQueue.OnTakersThread()) return false;
      pauses.Take();
    }
  }
  return true;
}

void EnterLiveChannel(ChannelState& state) noexcept {
  LiveLock const lock;
  if (!lock.locked()) return;
  state.m_pNextLive = live_channels;
  live_channels = &state;
}

void LeaveLiveChannel(ChannelState& state) noexcept {
  LiveLock const lock;  // goes on even without the lock: a deleted channel must not stay in the list
  ChannelState** at = &live_channels;
  while (*at != nullptr && *at != &state) at = &(*at)->m_pNextLive;
  if (*at != nullptr) *at = state.m_pNextLive;
}

void LockLiveChannels() noexcept { (void)pthread_mutex_lock(&live_lock); }

void UnlockLiveChannels() noexcept { (void)pthread_mutex_unlock(&live_lock); }

}  // namespace velt
