#include "debug/channel/record_queue.h"

#include <pthread.h>

#include <cerrno>

#include <ace/Message_Block.h>
#include <ace/OS_NS_sys_time.h>

#include "velt/channel.h"

#include "platform/no_cancellation.h"

namespace velt {
namespace {

void Pause() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#endif
}

// The lock is held for less than 20 ns at a time. A thread that goes to sleep for it wakes up tens of
// microseconds later, so it is tried for about 1 us first: with four producers on four cores that is
// the 99.9th percentile of a call. No longer, for its holder may have lost its core.
int LockAfterTrying(ACE_thread_mutex_t* mutex) {
  constexpr int kMostTries = 8;
  for (int tries = 1; tries <= kMostTries; ++tries) {
    int const error = pthread_mutex_trylock(mutex);
    if (error != EBUSY) return error;
    for (int pauses = 0; pauses < tries; ++pauses) Pause();
  }
  return pthread_mutex_lock(mutex);
}

// Takes the lock as ACE_Guard does, but without its two calls into ACE's library for every record.
class QueueLock {
 public:
  explicit QueueLock(ACE_Thread_Mutex& mutex) : mutex_(const_cast<ACE_thread_mutex_t*>(&mutex.lock())) {
    int const error = LockAfterTrying(mutex_);
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

RecordQueue::RecordQueue() = default;

void RecordQueue::SetWait(std::chrono::milliseconds wait) noexcept {
  wait_ms_.store(wait.count(), std::memory_order_relaxed);
  QueueLock const guard(lock_);
  if (!guard.locked()) return;
  ACE_Time_Value const deadline = ACE_OS::gettimeofday() + ACE_Time_Value(wait);
  for (Caller* caller = first_caller_; caller != nullptr; caller = caller->next) {
    if (caller->deadline <= deadline) continue;
    caller->deadline = deadline;
    (void)caller->queued_cond.signal();  // it begins to wait again, until its new deadline
  }
}

std::chrono::milliseconds RecordQueue::Wait() const noexcept {
  return std::chrono::milliseconds(wait_ms_.load(std::memory_order_relaxed));
}

bool RecordQueue::EnqueueRecord(ACE_Message_Block* block) { return EnqueueWithin(block, Wait()); }

bool RecordQueue::EnqueueWithin(ACE_Message_Block* block, std::chrono::milliseconds wait) {
  bool wake = false;
  {
    QueueLock const guard(lock_);
    if (!guard.locked()) return false;
    if (state_ == ACE_Message_Queue_Base::DEACTIVATED) {
      errno = ESHUTDOWN;
      return false;
    }
    if (cur_bytes_ < high_water_mark_) {
      Append_i(block);
    } else if (!AppendWhenRoom_i(block, wait)) {
      return false;
    }
    wake = taker_waits_;
    taker_waits_ = false;
  }
  // Without the lock, so that the thread that wakes up does not have to wait for it.
  if (wake) (void)not_empty_cond_.signal();
  return true;
}

bool RecordQueue::AppendWhenRoom_i(ACE_Message_Block* block, std::chrono::milliseconds wait) {
  bool const own_thread = has_taker_ && pthread_equal(taker_, pthread_self()) != 0;
  if (own_thread || wait.count() <= 0) {
    errno = EWOULDBLOCK;
    return false;
  }
  // The wait begins here, so that the time in which the caller made its record does not count.
  ACE_Time_Value const deadline = ACE_OS::gettimeofday() + ACE_Time_Value(wait);
  NoCancellation const none;  // a cancelled caller would lose its record and stay counted as waiting
  Caller caller{block, lock_, deadline};
  (last_caller_ == nullptr ? first_caller_ : last_caller_->next) = &caller;
  last_caller_ = &caller;
  callers_wait_.store(true, std::memory_order_relaxed);
  while (!caller.queued) {
    // A copy: ACE writes the value back after the wait and would undo what SetWait has set meanwhile.
    ACE_Time_Value const until = caller.deadline;
    if (caller.queued_cond.wait(&until) != -1 || caller.queued) continue;
    if (errno == ETIME) errno = EWOULDBLOCK;
    RemoveCaller_i(caller);
    return false;
  }
  return true;
}

void RecordQueue::GiveRoomToCallers_i() {
  if (first_caller_ == nullptr || cur_bytes_ > low_water_mark_) return;
  bool const was_empty = head_ == nullptr;
  while (first_caller_ != nullptr && cur_bytes_ < high_water_mark_) {
    Caller& caller = *first_caller_;
    RemoveCaller_i(caller);
    Append_i(caller.block);
    caller.queued = true;
    (void)caller.queued_cond
        .signal();  // under the lock: the condition is destroyed when its caller's wait ends
  }
  if (was_empty) (void)not_empty_cond_.broadcast();  // who waits has found it empty
}

void RecordQueue::RemoveCaller_i(Caller const& caller) {
  Caller* before = nullptr;
  Caller** link = &first_caller_;
  while (*link != &caller) {
    before = *link;
    link = &before->next;
  }
  *link = caller.next;
  if (last_caller_ == &caller) last_caller_ = before;
  callers_wait_.store(first_caller_ != nullptr, std::memory_order_relaxed);
}

ACE_Message_Block* RecordQueue::TakeAll(ACE_Time_Value* deadline) {
  QueueLock const guard(lock_);
  if (!guard.locked()) return nullptr;
  while (head_ == nullptr) {
    if (state_ == ACE_Message_Queue_Base::DEACTIVATED) {
      errno = ESHUTDOWN;
      return nullptr;
    }
    taker_waits_ = true;
    bool const woken = not_empty_cond_.wait(deadline) != -1;
    taker_waits_ = false;
    if (!woken && head_ == nullptr) {
      if (errno == ETIME) errno = EWOULDBLOCK;
      return nullptr;
    }
    if (state_ != ACE_Message_Queue_Base::ACTIVATED) {
      errno = ESHUTDOWN;
      return nullptr;
    }
  }
  taker_ = pthread_self();
  has_taker_ = true;
  ACE_Message_Block* const all = head_;
  head_ = tail_ = nullptr;
  GiveBack_i(1);  // the first block, which is dealt with now, no longer counts
  return all;
}

void RecordQueue::GiveBack(std::size_t count) {
  QueueLock const guard(lock_);
  GiveBack_i(count);
}

void RecordQueue::GiveBack_i(std::size_t count) {
  cur_count_ -= count;
  cur_bytes_ -= count * sizeof(OutDataUnit);
  GiveRoomToCallers_i();
}

void RecordQueue::PutBack(ACE_Message_Block* chain) {
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

bool RecordQueue::EnqueueEvicting(ACE_Message_Block* block, std::size_t capacity,
                                  ACE_Message_Block*& evicted) {
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
    GiveBack_i(1);
    oldest->next(evicted);
    evicted = oldest;
    evicted_.store(evicted_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  }
  bool const was_empty = head_ == nullptr;
  if (cur_bytes_ < high_water_mark_) {
    Append_i(block);
  } else if (!AppendWhenRoom_i(block, Wait())) {
    return false;
  }
  if (was_empty) (void)not_empty_cond_.broadcast();  // who waits has found it empty
  return true;
}

void RecordQueue::Append_i(ACE_Message_Block* block) {
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
  accepted_.store(accepted_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

void RecordQueue::BeginTaking() {
  QueueLock const guard(lock_);
  if (!guard.locked()) return;  // TakeAll makes up for it
  taker_ = pthread_self();
  has_taker_ = true;
}

bool RecordQueue::OnTakersThread() {
  QueueLock const guard(lock_);
  return has_taker_ && pthread_equal(taker_, pthread_self()) != 0;
}

ACE_Message_Block* RecordQueue::TryDequeue() {
  QueueLock const guard(lock_);
  ACE_Message_Block* block = nullptr;
  if (!guard.locked() || head_ == nullptr || dequeue_head_i(block) == -1) return nullptr;
  GiveRoomToCallers_i();
  return block;
}

}  // namespace velt
