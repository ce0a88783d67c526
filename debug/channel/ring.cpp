#include "debug/channel/ring.h"

#include <memory>

#include <ace/Message_Block.h>

#include "debug/channel/channel_state.h"
#include "debug/channel/clear_queue.h"
#include "debug/channel/record.h"

namespace velt {

bool KeepInRing(ChannelState& state, std::unique_ptr<OutDataUnit>& rec, ACE_Message_Block* block) {
  if (state.m_nFiltLogBufSize == 0) return true;
  ACE_Message_Block* evicted = nullptr;
  bool const kept = state.m_DiscardQueue.EnqueueEvicting(block, state.m_nFiltLogBufSize, evicted);
  if (kept) (void)rec.release();
  DeleteChain(evicted);
  return kept;
}

std::size_t RecordsInRing(ChannelState& state) { return state.m_DiscardQueue.message_count(); }

bool TakeFromRing(ChannelState& state, std::unique_ptr<OutDataUnit>& rec) {
  ACE_Message_Block* const block = state.m_DiscardQueue.TryDequeue();
  if (block == nullptr) return false;
  rec = UnwrapRecord(BlockPtr(block));
  return true;
}

void ClearRing(ChannelState& state) {
  std::size_t const cleared = ClearQueue(state, state.m_DiscardQueue, "dequeue from m_DiscardQueue fail.\n");
  state.m_counts.clearedRing.fetch_add(cleared, std::memory_order_relaxed);
}

}  // namespace velt
