// The output thread of a channel: takes records off the queue and writes them.
#ifndef VELT_DEBUG_CHANNEL_OUTPUT_THREAD_H
#define VELT_DEBUG_CHANNEL_OUTPUT_THREAD_H

#include "velt/channel.h"

namespace velt {

struct ChannelState;

// VeltDebugInfo::Init: creates the thread unless it was created.
bool StartOutputThread(ChannelState& state, VeltDebugInfo* channel);

// The thread's work from its start to its end.
void RunOutputThread(ChannelState& state);

// Whether the calling thread is in RunOutputThread: it cannot wait for the end of an output thread. False in
// a child that such a thread forked.
bool OnAnyOutputThread() noexcept;

}  // namespace velt

#endif
