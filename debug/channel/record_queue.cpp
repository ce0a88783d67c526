// The queue of a channel: bounded ring, taking without waiting, and giving up in a forked child.
#include <atomic>
#include <cerrno>
#include <new>

#include <ace/Guard_T.h>
#include <ace/Message_Block.h>

#include "velt/channel.h"

#include "platform/locks.h"

namespace {

// What children gave up, as one chain: it is never read, but leak checkers must find it.
std::atomic<ACE_Message_Block*> given_up{nullptr};

}  // namespace

VeltRecordQueue::VeltRecordQueue() = default;

bool VeltRecordQueue::EnqueueEvicting(ACE_Message_Block* block, std::size_t capacity,
                                      ACE_Time_Value& deadline, ACE_Message_Block*& evicted) {
  evicted = nullptr;
  velt::MutexLock const guard(lock_);
  if (!guard.locked()) return false;
  if (state_ == ACE_Message_Queue_Base::DEACTIVATED) {
    errno = ESHUTDOWN;
    return false;
  }
  while (cur_count_ > 0 && cur_count_ >= capacity) {
    ACE_Message_Block* oldest = nullptr;
    if (dequeue_head_i(oldest) == -1) return false;
    oldest->next(evicted);
    evicted = oldest;
  }
  return wait_not_full_cond(&deadline) != -1 && enqueue_tail_i(block) != -1;
}

ACE_Message_Block* VeltRecordQueue::TryDequeue() {
  velt::MutexLock const guard(lock_);
  ACE_Message_Block* block = nullptr;
  if (!guard.locked() || cur_count_ == 0 || dequeue_head_i(block) == -1) return nullptr;
  return block;
}

void VeltRecordQueue::Abandon() {
  if (head_ != nullptr && tail_ != nullptr) {
    // Release: a later reader of the chain, were there one, would see its links.
    ACE_Message_Block* const before = given_up.exchange(head_, std::memory_order_acq_rel);
    tail_->next(before);
  }
  head_ = tail_ = nullptr;
  cur_bytes_ = cur_length_ = cur_count_ = 0;
  // Not destroyed first: destroying a condition waits for its waiters, and the parent's threads are not here.
  using QueueCondition = ACE_Condition<ACE_Thread_Mutex>;
  new (&lock_) ACE_Thread_Mutex;
  new (&not_empty_cond_) QueueCondition(lock_, cond_attr_);
  new (&not_full_cond_) QueueCondition(lock_, cond_attr_);
}
