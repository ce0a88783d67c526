// Deletes what a queue holds, unwritten.
#ifndef VELT_DEBUG_CHANNEL_CLEAR_QUEUE_H
#define VELT_DEBUG_CHANNEL_CLEAR_QUEUE_H

#include <cstddef>

#include "debug/channel/record_queue.h"

namespace velt {

struct ChannelState;

// Deletes every record of `queue`. One that cannot be taken out ends it, with the line `failure` in the log
// file. Returns how many were deleted.
std::size_t ClearQueue(ChannelState& state, RecordQueue& queue, char const* failure);

}  // namespace velt

#endif
