// Ends a channel: queues the stop marker, waits for the output thread, writes the last lines and deletes what
// is left.
#ifndef VELT_DEBUG_CHANNEL_SHUTDOWN_H
#define VELT_DEBUG_CHANNEL_SHUTDOWN_H

namespace velt {

struct ChannelState;

// Ends the output thread after it has dealt with everything queued, and waits for that without limit. Does
// nothing if the thread has ended, was never started, or is the parent's.
void EndOutputThread(ChannelState& state) noexcept;

// Whether EndOutputThread was called.
bool HasEnded(ChannelState const& state) noexcept;

// Ends the output thread, deletes what the queues still hold and closes the file.
void EndChannel(ChannelState& state) noexcept;

}  // namespace velt

#endif
