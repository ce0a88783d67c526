#include "debug/channel/clear_queue.h"

#include <ace/Message_Block.h>

#include "debug/channel/channel_state.h"
#include "debug/channel/current_file.h"
#include "debug/channel/record.h"

namespace velt {

std::size_t ClearQueue(ChannelState& state, RecordQueue& queue, char const* failure) {
  std::size_t deleted = 0;
  while (queue.message_count() != 0) {
    ACE_Message_Block* const block = queue.TryDequeue();
    if (block == nullptr) {
      WriteFile(state, failure);
      break;
    }
    DeleteChain(block);
    ++deleted;
  }
  return deleted;
}

}  // namespace velt
