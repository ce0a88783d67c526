// Records and the message blocks that carry them through the queues.
#ifndef VELT_DEBUG_CHANNEL_RECORD_H
#define VELT_DEBUG_CHANNEL_RECORD_H

#include <memory>

#include <ace/Message_Block.h>

#include "velt/channel.h"

namespace velt {

struct ReleaseBlock {
  void operator()(ACE_Message_Block* block) const { block->release(); }
};
using BlockPtr = std::unique_ptr<ACE_Message_Block, ReleaseBlock>;
using RecordPtr = std::unique_ptr<OutDataUnit>;

// Wraps `record`, which the caller still owns. Throws std::bad_alloc.
BlockPtr WrapRecord(OutDataUnit* record);

// Takes the record out of a block that came off a queue and releases the block. May be null.
RecordPtr UnwrapRecord(BlockPtr block);

// A record that tells the output thread to end.
inline bool IsStopMarker(OutDataUnit const& record) {
  return record.m_pTimeStamp == nullptr && record.m_pText == nullptr && record.m_pAsn == nullptr;
}

// Releases the blocks of a chain and deletes their records.
void DeleteChain(ACE_Message_Block* chain);

}  // namespace velt

#endif
