// Waits until accepted records are written, printed or lost.
#ifndef VELT_DEBUG_CHANNEL_FLUSH_H
#define VELT_DEBUG_CHANNEL_FLUSH_H

#include <chrono>
#include <cstdint>
#include <vector>

namespace velt {

struct ChannelState;

// Waits until each channel has dealt with all records that it had accepted before the call. Returns true
// then; false when that takes longer than `wait`; false at once if a channel was inherited over a fork, and
// on an output thread that has records left.
bool Flush(std::vector<ChannelState*> const& channels, std::chrono::milliseconds wait);

// Adds a channel to the list of those that are flushed when the process ends by exit or by returning from
// main.
void EnterLiveChannel(ChannelState& state) noexcept;

// Removes it from the list. Waits for a flush at exit that is under way.
void LeaveLiveChannel(ChannelState& state) noexcept;

// Around a fork: lock and unlock the list.
void LockLiveChannels() noexcept;
void UnlockLiveChannels() noexcept;

}  // namespace velt

#endif
