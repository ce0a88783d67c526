#include "debug/channel/record_node.h"

#include <cstddef>

namespace velt {
namespace {

constexpr std::size_t kLine = 64;  // bytes of a cache line

// RecordNode has base classes of ACE in it, for which the macro is only conditionally supported; g++ and
// clang do.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
static_assert(offsetof(RecordNode, block) == 0);
constexpr std::size_t kRecordAt = offsetof(RecordNode, record);
constexpr ACE_Message_Block::Message_Flags kNodeFlag = ACE_Message_Block::USER_FLAGS;
constexpr std::size_t kTextAt = offsetof(RecordNode, text);
static_assert(offsetof(RecordNode, next_bunch) + sizeof(void*) < 3 * kLine, "WriteEachLine keeps the links");
#pragma GCC diagnostic pop
constexpr std::size_t kUsualTextBytes = 112;
constexpr std::size_t kUsualBytes = kTextAt + kUsualTextBytes;

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

void RecordNode::LendArrays(OutDataUnit& lies_here) noexcept {
  lies_here.m_bLent = true;
  lies_here.m_pTimeStamp = stamp;
  lies_here.m_pText = text;
}

bool RecordNode::IsLent(OutDataUnit const& record, char const* array) noexcept {
  if (!record.m_bLent) return false;
  // A host may have replaced either array with one of its own.
  auto const& node = *reinterpret_cast<RecordNode const*>(reinterpret_cast<char const*>(&record) - kRecordAt);
  return array == node.stamp || array == node.text;
}

OutDataUnit* RecordOfNodeBlock(ACE_Message_Block* block) {
  if ((block->self_flags() & kNodeFlag) == 0) return nullptr;
  return reinterpret_cast<OutDataUnit*>(reinterpret_cast<char*>(block) + kRecordAt);
}

void PrefetchRecord(ACE_Message_Block* block) {
  if (block == nullptr) return;
  auto const* const from = reinterpret_cast<char const*>(block);
  for (std::size_t at = 0; at < kUsualBytes; at += kLine) __builtin_prefetch(from + at);
}

void WriteEachLine(RecordNode& node) noexcept {
  // Volatile: the compiler would leave the writes out, since nothing reads them. The first line has been
  // written, when the block left its list. What is at the end of the others is of no use in an idle node.
  auto* const from = reinterpret_cast<char volatile*>(&node);
  for (std::size_t end = 2 * kLine; end <= kUsualBytes; end += kLine) from[end - 1] = 0;
}

RecordNode* NodeOf(OutDataUnit* record) {
  return reinterpret_cast<RecordNode*>(reinterpret_cast<char*>(record) - kRecordAt);
}

}  // namespace velt
