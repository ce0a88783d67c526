// The queue of a channel: bounded ring, taking without waiting, and giving up in a forked child.
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <new>

#include <ace/Message_Block.h>
#include <ace/Thread_Mutex.h>

#include "velt/channel.h"

namespace {

// What children gave up, as one chain: it is never read, but leak checkers must find it.
std::atomic<ACE_Message_Block*> given_up{nullptr};

// Takes the lock as ACE_Guard does, without its two calls into ACE's library, which every record would pay
// for.
class QueueLock {
 public:
  explicit QueueLock(ACE_Thread_Mutex& mutex) : mutex_(const_cast<ACE_thread_mutex_t*>(&mutex.lock())) {
    int const error = pthread_mutex_lock(mutex_);
    locked_ = error == 0;
    if (!locked_) errno = error;
  }
  ~QueueLock() {
    if (locked_) (void)pthread_mutex_unlock(mutex_);
  }
  QueueLock(QueueLock const&) = delete;
  QueueLock& operator=(QueueLock const&) = delete;

  bool locked() const { return locked_; }

 private:
  ACE_thread_mutex_t* mutex_;
  bool locked_;
};

}  // namespace

VeltRecordQueue::VeltRecordQueue() : m_nCallersWaiting(0) {}

bool VeltRecordQueue::EnqueueRecord(ACE_Message_Block* block, ACE_Time_Value& deadline) {
  bool wake = false;
  {
    QueueLock const guard(lock_);
    if (!guard.locked()) return false;
    if (state_ == ACE_Message_Queue_Base::DEACTIVATED) {
      errno = ESHUTDOWN;
      return false;
    }
    if (cur_bytes_ >= high_water_mark_) {
      m_nCallersWaiting.fetch_add(1, std::memory_order_relaxed);
      int const waited = wait_not_full_cond(&deadline);
      m_nCallersWaiting.fetch_sub(1, std::memory_order_relaxed);
      if (waited == -1) return false;
    }
    Append_i(block);
    wake = m_bTakerWaits;
    m_bTakerWaits = false;
  }
  // After the lock, so that the thread that wakes up does not run into it.
  if (wake) (void)not_empty_cond_.signal();
  return true;
}

ACE_Message_Block* VeltRecordQueue::TakeAll(ACE_Time_Value* deadline) {
  QueueLock const guard(lock_);
  if (!guard.locked()) return nullptr;
  while (head_ == nullptr) {
    if (state_ == ACE_Message_Queue_Base::DEACTIVATED) {
      errno = ESHUTDOWN;
      return nullptr;
    }
    m_bTakerWaits = true;
    bool const woken = not_empty_cond_.wait(deadline) != -1;
    m_bTakerWaits = false;
    if (!woken && head_ == nullptr) {
      if (errno == ETIME) errno = EWOULDBLOCK;
      return nullptr;
    }
    if (state_ != ACE_Message_Queue_Base::ACTIVATED) {
      errno = ESHUTDOWN;
      return nullptr;
    }
  }
  ACE_Message_Block* const all = head_;
  Uncount_i(1);  // the one that is dealt with now is queued no longer
  head_ = tail_ = nullptr;
  return all;
}

void VeltRecordQueue::Settle(std::size_t count) {
  QueueLock const guard(lock_);
  Uncount_i(count);
}

void VeltRecordQueue::Uncount_i(std::size_t count) {
  cur_count_ -= count;
  cur_bytes_ -= count * sizeof(OutDataUnit);
  if (m_nCallersWaiting.load(std::memory_order_relaxed) != 0 && cur_bytes_ <= low_water_mark_) {
    (void)not_full_cond_.broadcast();
  }
}

void VeltRecordQueue::PutBack(ACE_Message_Block* chain) {
  if (chain == nullptr) return;
  ACE_Message_Block* last = chain;
  while (last->next() != nullptr) last = last->next();
  QueueLock const guard(lock_);
  last->next(head_);
  if (head_ == nullptr) {
    tail_ = last;
  } else {
    head_->prev(last);
  }
  head_ = chain;
  chain->prev(nullptr);
}

bool VeltRecordQueue::EnqueueEvicting(ACE_Message_Block* block, std::size_t capacity,
                                      ACE_Time_Value& deadline, ACE_Message_Block*& evicted) {
  evicted = nullptr;
  QueueLock const guard(lock_);
  if (!guard.locked()) return false;
  if (state_ == ACE_Message_Queue_Base::DEACTIVATED) {
    errno = ESHUTDOWN;
    return false;
  }
  while (head_ != nullptr && cur_count_ >= capacity) {
    ACE_Message_Block* const oldest = head_;
    head_ = oldest->next();
    if (head_ == nullptr) {
      tail_ = nullptr;
    } else {
      head_->prev(nullptr);
    }
    Uncount_i(1);
    oldest->next(evicted);
    evicted = oldest;
  }
  if (cur_bytes_ >= high_water_mark_ && wait_not_full_cond(&deadline) == -1) return false;
  bool const was_empty = head_ == nullptr;
  Append_i(block);
  if (was_empty) (void)not_empty_cond_.broadcast();  // who waits has found it empty
  return true;
}

void VeltRecordQueue::Append_i(ACE_Message_Block* block) {
  block->next(nullptr);
  block->prev(tail_);
  if (tail_ == nullptr) {
    head_ = block;
  } else {
    tail_->next(block);
  }
  tail_ = block;
  ++cur_count_;
  cur_bytes_ += sizeof(OutDataUnit);
}

ACE_Message_Block* VeltRecordQueue::TryDequeue() {
  QueueLock const guard(lock_);
  ACE_Message_Block* block = nullptr;
  if (!guard.locked() || head_ == nullptr || dequeue_head_i(block) == -1) return nullptr;
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
  m_bTakerWaits = false;
  m_nCallersWaiting.store(0, std::memory_order_relaxed);
  // Not destroyed first: destroying a condition waits for its waiters, and the parent's threads are not here.
  using QueueCondition = ACE_Condition<ACE_Thread_Mutex>;
  new (&lock_) ACE_Thread_Mutex;
  new (&not_empty_cond_) QueueCondition(lock_, cond_attr_);
  new (&not_full_cond_) QueueCondition(lock_, cond_attr_);
}
