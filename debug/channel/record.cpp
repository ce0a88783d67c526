#include "debug/channel/record.h"

#include <new>
#include <utility>

#include "debug/channel/record_node.h"
#include "debug/channel/record_recycler.h"

OutDataUnit::OutDataUnit() = default;

OutDataUnit::~OutDataUnit() {
  if (!velt::RecordNode::IsLent(*this, m_pTimeStamp)) delete[] m_pTimeStamp;
  if (!velt::RecordNode::IsLent(*this, m_pText)) delete[] m_pText;
  delete m_pAsn;
}

void* OutDataUnit::operator new(std::size_t /*size*/) { return velt::TakeNode()->record; }

void* OutDataUnit::operator new(std::size_t size, std::nothrow_t const& /*tag*/) noexcept try {
  return OutDataUnit::operator new(size);
} catch (std::bad_alloc const&) {
  return nullptr;
}

void OutDataUnit::operator delete(void* memory) noexcept {
  if (memory != nullptr) velt::GiveNode(velt::NodeOf(static_cast<OutDataUnit*>(memory)));
}

namespace velt {

BlockPtr WrapRecord(OutDataUnit* record) {
  BlockPtr block(new ACE_Message_Block(reinterpret_cast<char*>(record), sizeof(OutDataUnit), 0));
  // ACE constructs the block even if memory for its inner part runs out, and would crash on it later.
  if (block->data_block() == nullptr) throw std::bad_alloc();
  return block;
}

RecordPtr UnwrapRecord(BlockPtr block) {
  // Moved here so that it is released when this function returns. A parameter lives until the end of the
  // caller's statement, which may delete the record, and with it the memory of its block.
  BlockPtr const released = std::move(block);
  OutDataUnit* const own = RecordOfNodeBlock(released.get());
  return RecordPtr(own != nullptr ? own : reinterpret_cast<OutDataUnit*>(released->base()));
}

void DeleteChain(ACE_Message_Block* chain) {
  while (chain != nullptr) {
    ACE_Message_Block* const next = chain->next();
    UnwrapRecord(BlockPtr(chain));
    chain = next;
  }
}

}  // namespace velt
