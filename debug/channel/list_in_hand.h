// The room of the records that the output thread has taken off its queue as one list.
#ifndef VELT_DEBUG_CHANNEL_LIST_IN_HAND_H
#define VELT_DEBUG_CHANNEL_LIST_IN_HAND_H

#include <chrono>
#include <cstddef>

#include "debug/channel/record_queue.h"

namespace velt {

// Records of the list count as queued until their room is given back, every 512 records or 10 ms. Giving it
// back after every record would cost a context switch each; less often, blocked callers would time out.
// Output thread only.
class ListInHand {
 public:
  explicit ListInHand(RecordQueue& queue) : queue_(queue) {}

  // Call it when a new list was taken; the queue has then given back the room of its first record.
  void Begin();

  // Call it before the next record of the list is dealt with.
  void NextRecord();

  // Gives back the room of all records until now. Call it before anything that may take long, and before the
  // host's code, whose trace calls wait for this room.
  void GiveBack();

 private:
  RecordQueue& queue_;
  std::size_t counted_ = 0;                   // records dealt with that still count as queued
  std::chrono::nanoseconds given_back_at_{};  // on the coarse clock
};

}  // namespace velt

#endif
