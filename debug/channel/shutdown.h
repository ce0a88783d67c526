// Ends a channel: queues the stop marker, waits for the output thread, writes the last lines and deletes what
// is left.
#ifndef VELT_DEBUG_CHANNEL_SHUTDOWN_H
#define VELT_DEBUG_CHANNEL_SHUTDOWN_H

namespace velt {

struct ChannelState;

// All of it is for one thread at a time.

// Tells the output thread to end after it has dealt with everything queued. Never waits: EndOutputThread
// makes up for a full queue. Does nothing if the thread was told already, was never started, or is the
// parent's.
void AskOutputThreadToEnd(ChannelState& state) noexcept;

// Whether AskOutputThreadToEnd was called.
bool IsAskedToEnd(ChannelState const& state) noexcept;

// The same as AskOutputThreadToEnd, then waits without limit until the thread has ended.
void EndOutputThread(ChannelState& state) noexcept;

// Whether EndOutputThread would return at once.
bool HasEnded(ChannelState const& state) noexcept;

// Ends the output thread, deletes what the queues still hold and closes the file.
void EndChannel(ChannelState& state) noexcept;

}  // namespace velt

#endif
