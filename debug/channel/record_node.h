// The memory of a record that a trace call makes: the record, its arrays and its message block in one piece.
#ifndef VELT_DEBUG_CHANNEL_RECORD_NODE_H
#define VELT_DEBUG_CHANNEL_RECORD_NODE_H

#include <cstddef>

#include <ace/Message_Block.h>

#include "velt/channel.h"

#include "platform/time_stamp.h"

namespace velt {

// A message block that exists as long as its node: releasing it only takes it out of its list.
class RecordBlock : public ACE_Message_Block {
 public:
  explicit RecordBlock(ACE_Data_Block* data);
  ACE_Message_Block* release() override;
};

inline constexpr std::size_t kNodeTextBytes = 208;  // a longer record text is an array of its own
inline constexpr std::size_t kNodeStampBytes = kTimeStampRoom;

// The parts that one trace call touches are next to each other, from the links of the block to the beginning
// of the text: a node comes from another core's cache, and each further cache line costs a caller as much as
// formatting a number.
struct alignas(64) RecordNode {
  RecordNode();

  // Makes the record of this node use the node's arrays.
  void LendArrays(OutDataUnit& lies_here) noexcept;
  // Whether `array` belongs to the node of `record`; false for a record that is not in a node.
  static bool IsLent(OutDataUnit const& record, char const* array) noexcept;

  RecordBlock block;                                  // wraps `record`; constructed once per node
  alignas(16) std::byte record[sizeof(OutDataUnit)];  // constructed by whoever takes the node
  RecordNode* next = nullptr;                         // in a bunch of idle nodes
  RecordNode* next_bunch = nullptr;                   // in a bunch's first node
  char stamp[kNodeStampBytes];
  char text[kNodeTextBytes];
  ACE_Data_Block data;
  RecordNode* next_chain = nullptr;  // in a chain's first node, like the next
  std::size_t bunches = 0;           // of the chain
};
static_assert(sizeof(RecordNode) == 512);

// The node around a record that OutDataUnit's own operator new made.
RecordNode* NodeOf(OutDataUnit* record);

// The record of a node's own block; null for any other block. Does not read the block's inner part, which is
// in another cache line.
OutDataUnit* RecordOfNodeBlock(ACE_Message_Block* block);

// Prefetches what the output thread reads of a record into this core's cache; does nothing for null.
void PrefetchRecord(ACE_Message_Block* block);

// Writes a byte to each cache line that a usual record uses, outside the block, whose record is destroyed.
//
// The output thread reads most of them only. A line that one core has written and another has read is shared
// by both, and the next write waits until the other core has given it up: five lines took a caller 300 ns
// where the cores have no cache in common. A line that was written last moves as a whole, which the
// recycler's prefetch hides.
void WriteEachLine(RecordNode& node) noexcept;

}  // namespace velt

#endif
