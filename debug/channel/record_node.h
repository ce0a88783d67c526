// The memory of a record that a trace call makes: the record, its arrays and its message block in one piece.
#ifndef VELT_DEBUG_CHANNEL_RECORD_NODE_H
#define VELT_DEBUG_CHANNEL_RECORD_NODE_H

#include <cstddef>

#include <ace/Message_Block.h>

#include "velt/channel.h"

#include "platform/time_stamp.h"

namespace velt {

// A message block that lives as long as its node: releasing it only takes it out of its list.
class RecordBlock : public ACE_Message_Block {
 public:
  explicit RecordBlock(ACE_Data_Block* data);
  ACE_Message_Block* release() override;
};

inline constexpr std::size_t kNodeTextBytes = 176;  // a longer record text is an array of its own

// What one trace call touches stands together, from the links of the block to the head of the stamp: a node
// comes from another core's cache, and each further line of it costs a caller as much as the formatting of a
// number.
//
// `text` and `stamp` lie 8 bytes off the 16-byte grid on which allocators place arrays. That is how a record
// tells its own arrays from arrays that a host allocated for it.
struct alignas(64) RecordNode {
  RecordNode();

  RecordBlock block;                                  // wraps `record`; constructed once per node
  alignas(16) std::byte record[sizeof(OutDataUnit)];  // constructed by whoever takes the node
  RecordNode* next = nullptr;                         // in a chain of idle nodes
  char text[kNodeTextBytes];
  char stamp[kTimeStampCapacity];
  ACE_Data_Block data;
  RecordNode* next_chain = nullptr;  // in the first node of a chain
};

// The node around a record that OutDataUnit's own operator new made.
RecordNode* NodeOf(OutDataUnit* record);

// The record of a block that is a node's own; null for any other. Spares the way through the block's inner
// part, which lies in a line of its own.
OutDataUnit* RecordOfNodeBlock(ACE_Message_Block* block);

// Brings what is read of a record into this core's cache; null is nothing to do.
void PrefetchRecord(ACE_Message_Block* block);

// Whether `array` is the stamp or the text of the node around `record`, were there one.
bool IsNodeStamp(OutDataUnit const* record, char const* array);
bool IsNodeText(OutDataUnit const* record, char const* array);

}  // namespace velt

#endif
