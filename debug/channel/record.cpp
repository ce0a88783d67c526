#include "debug/channel/record.h"

#include <new>
#include <utility>

OutDataUnit::OutDataUnit() = default;

OutDataUnit::~OutDataUnit() {
  delete[] m_pTimeStamp;
  delete[] m_pText;
  delete m_pAsn;
}

namespace velt {

BlockPtr WrapRecord(OutDataUnit* record) {
  BlockPtr block(new ACE_Message_Block(reinterpret_cast<char*>(record), sizeof(OutDataUnit), 0));
  // ACE constructs the block even when there is no memory for its inner part, and would crash on it later.
  if (block->data_block() == nullptr) throw std::bad_alloc();
  return block;
}

RecordPtr UnwrapRecord(BlockPtr block) { return RecordPtr(reinterpret_cast<OutDataUnit*>(block->base())); }

void DeleteChain(ACE_Message_Block* chain) {
  while (chain != nullptr) {
    ACE_Message_Block* const next = chain->next();
    UnwrapRecord(BlockPtr(chain));
    chain = next;
  }
}

}  // namespace velt
