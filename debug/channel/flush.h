// Waiting until what was accepted has been dealt with.
#ifndef VELT_DEBUG_CHANNEL_FLUSH_H
#define VELT_DEBUG_CHANNEL_FLUSH_H

#include <chrono>
#include <cstdint>
#include <vector>

namespace velt {

struct ChannelState;

// Waits until each channel has dealt with what it had accepted when this was called. Returns whether all have
// within `wait`. False at once for a channel of a forked child's parent, and on an output thread that has
// records left.
bool Flush(std::vector<ChannelState*> const& channels, std::chrono::milliseconds wait);

// Enters a channel among those that are flushed when the process ends by exit or by returning from main.
void EnterLiveChannel(ChannelState& state) noexcept;

// Takes it out again. Waits for a flush at the process's end that is running.
void LeaveLiveChannel(ChannelState& state) noexcept;

// Around a fork: the lock of that list.
void LockLiveChannels() noexcept;
void UnlockLiveChannels() noexcept;

}  // namespace velt

#endif
