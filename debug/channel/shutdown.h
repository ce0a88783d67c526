// The end of a channel: the stop marker, the wait for the output thread, and what is said and deleted
// afterwards.
#ifndef VELT_DEBUG_CHANNEL_SHUTDOWN_H
#define VELT_DEBUG_CHANNEL_SHUTDOWN_H

namespace velt {

struct ChannelState;

// Ends the output thread once it has dealt with what was queued, and waits for that without limit. Nothing
// where it has ended, was never started, or is the parent's.
void EndOutputThread(ChannelState& state) noexcept;

// Whether EndOutputThread was called.
bool HasEnded(ChannelState const& state) noexcept;

// Ends the output thread, deletes what the queues still hold and closes the file.
void EndChannel(ChannelState& state) noexcept;

}  // namespace velt

#endif
