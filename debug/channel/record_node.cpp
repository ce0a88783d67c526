#include "debug/channel/record_node.h"

#include <cstddef>

namespace velt {
namespace {

// RecordNode has base classes of ACE in it, for which the macro is only conditionally supported; g++ and
// clang do.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
static_assert(offsetof(RecordNode, block) == 0);
constexpr std::size_t kRecordAt = offsetof(RecordNode, record);
constexpr ACE_Message_Block::Message_Flags kNodeFlag = ACE_Message_Block::USER_FLAGS;
constexpr std::size_t kTextAt = offsetof(RecordNode, text);
constexpr std::size_t kStampAt = offsetof(RecordNode, stamp);
#pragma GCC diagnostic pop
static_assert(kStampAt / 64 == (kStampAt + kTimeStampLength) / 64, "the head of the stamp lies in one line");
static_assert(kRecordAt % 16 == 0 && kTextAt % 16 == 8 && kStampAt % 16 == 8);

char const* Inside(OutDataUnit const* record, std::size_t at) {
  return reinterpret_cast<char const*>(record) + (at - kRecordAt);
}

}  // namespace

RecordBlock::RecordBlock(ACE_Data_Block* data) : ACE_Message_Block(data, ACE_Message_Block::DONT_DELETE) {
  set_self_flags(kNodeFlag);
}

ACE_Message_Block* RecordBlock::release() {
  next(nullptr);
  prev(nullptr);
  return nullptr;
}

RecordNode::RecordNode()
    : block(&data),
      data(sizeof(OutDataUnit), ACE_Message_Block::MB_DATA, reinterpret_cast<char*>(record), nullptr, nullptr,
           ACE_Message_Block::DONT_DELETE, nullptr) {}

OutDataUnit* RecordOfNodeBlock(ACE_Message_Block* block) {
  if ((block->self_flags() & kNodeFlag) == 0) return nullptr;
  return reinterpret_cast<OutDataUnit*>(reinterpret_cast<char*>(block) + kRecordAt);
}

void PrefetchRecord(ACE_Message_Block* block) {
  if (block == nullptr) return;
  auto const* const from = reinterpret_cast<char const*>(block);
  for (std::size_t at = 0; at < kStampAt + kTimeStampLength; at += 64) __builtin_prefetch(from + at);
}

RecordNode* NodeOf(OutDataUnit* record) {
  return reinterpret_cast<RecordNode*>(reinterpret_cast<char*>(record) - kRecordAt);
}

bool IsNodeStamp(OutDataUnit const* record, char const* array) { return array == Inside(record, kStampAt); }

bool IsNodeText(OutDataUnit const* record, char const* array) { return array == Inside(record, kTextAt); }

}  // namespace velt
