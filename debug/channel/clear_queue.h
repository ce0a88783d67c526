// Deletes the records of a queue without writing them.
#ifndef VELT_DEBUG_CHANNEL_CLEAR_QUEUE_H
#define VELT_DEBUG_CHANNEL_CLEAR_QUEUE_H

#include <cstddef>

#include "debug/channel/record_queue.h"

namespace velt {

struct ChannelState;

// Deletes every record of `queue`. If one cannot be taken out, writes the line `failure` to the log file and
// stops. Returns how many were deleted.
std::size_t ClearQueue(ChannelState& state, RecordQueue& queue, char const* failure);

}  // namespace velt

#endif
