// The ring of filtered records: the newest are kept, and written when a record of level 0 comes.
#ifndef VELT_DEBUG_CHANNEL_RING_H
#define VELT_DEBUG_CHANNEL_RING_H

#include <cstddef>
#include <memory>

#include "velt/channel.h"

class ACE_Message_Block;

namespace velt {

struct ChannelState;

// Puts `rec`, whose block is `block`, into the ring, in place of the oldest if it is full. Returns true with
// `rec` released when it was kept; true with `rec` still the caller's when there is no ring; false when it
// was not kept.
bool KeepInRing(ChannelState& state, std::unique_ptr<OutDataUnit>& rec, ACE_Message_Block* block);

// How many records the ring holds now.
std::size_t RecordsInRing(ChannelState& state);

// Takes the oldest record into `rec`, which becomes null for a block without a record. Returns false when the
// ring is empty or its lock fails.
bool TakeFromRing(ChannelState& state, std::unique_ptr<OutDataUnit>& rec);

// VeltDebugInfo::DequeueMsg.
void ClearRing(ChannelState& state);

}  // namespace velt

#endif
