// The queue of a channel: ACE's queue, with cheaper operations for many callers and one output thread, and an
// operation for the bounded ring.
#ifndef VELT_DEBUG_CHANNEL_RECORD_QUEUE_H
#define VELT_DEBUG_CHANNEL_RECORD_QUEUE_H

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include <ace/Condition_Thread_Mutex.h>
#include <ace/Message_Queue.h>
#include <ace/Synch_Traits.h>
#include <ace/Thread_Mutex.h>

namespace velt {

// Each block counts as sizeof(OutDataUnit) bytes against the water marks. Any thread; locked by itself.
class RecordQueue : public ACE_Message_Queue<ACE_MT_SYNCH> {
 public:
  RecordQueue();

  // How long EnqueueRecord and EnqueueEvicting wait for room; one second unless set. Callers that
  // wait already wait no longer than that from now on. Any thread.
  void SetWait(std::chrono::milliseconds wait) noexcept;

  // Puts `block` at the end. Waits for room while the queue is at its water mark, except on the thread that
  // empties the queue, since only that thread makes room. Callers get room in the order in which they came;
  // otherwise, on a slow device, others could overtake one of them until its time is up. Returns true when
  // `block` was queued. Returns false, and the caller still owns it, when it was not; errno is EWOULDBLOCK
  // when the time was up.
  bool EnqueueRecord(ACE_Message_Block* block);

  // The same with a wait of its own.
  bool EnqueueWithin(ACE_Message_Block* block, std::chrono::milliseconds wait);

  // For the one thread that empties the queue. Takes all blocks as a chain (by next()); waits until there is
  // one, or until `deadline` unless that is null. Gives back the room of the first block. The others still
  // count, in message_count() and against the water mark, until GiveBack: otherwise this chain and a full
  // queue together would be twice the limit. Returns null with errno EWOULDBLOCK when the deadline has
  // passed; null also when the queue is deactivated or pulsed, or its lock fails.
  ACE_Message_Block* TakeAll(ACE_Time_Value* deadline);

  // Gives back the room of `count` more blocks of the chain, and queues the blocks of as many waiting
  // callers.
  void GiveBack(std::size_t count);

  // Whether a caller waits for room now; room should then be given back early.
  bool CallersWait() const noexcept { return callers_wait_.load(std::memory_order_relaxed); }

  // Puts the rest of a chain of TakeAll, which still counts, back at the head of the queue.
  void PutBack(ACE_Message_Block* chain);

  // Takes the oldest blocks out while `capacity` or more are queued, then puts `block` at the end. `evicted`
  // is set to the blocks that were taken out, as a chain (null if there are none), which the caller releases.
  // All of it happens under one lock, so that no other thread comes in between. Waits for room while the
  // queue is still at its water mark. Returns true when `block` was queued; false when not, and the caller
  // still owns it.
  bool EnqueueEvicting(ACE_Message_Block* block, std::size_t capacity, ACE_Message_Block*& evicted);

  // How many blocks were put in since the queue was made; how many of them EnqueueEvicting took out. Any
  // thread, without the lock.
  std::uint64_t Accepted() const noexcept { return accepted_.load(std::memory_order_relaxed); }
  std::uint64_t Evicted() const noexcept { return evicted_.load(std::memory_order_relaxed); }

  // Marks the calling thread as the thread that empties the queue, as TakeAll does, but before it takes
  // anything.
  void BeginTaking();

  // Whether the calling thread is the last caller of TakeAll or BeginTaking.
  bool OnTakersThread();

  // Takes the head if there is one; never waits. Returns null when there is none or the lock could not be
  // taken.
  ACE_Message_Block* TryDequeue();

 private:
  // A caller that waits for room; it is on that caller's stack. Everything in it is under the lock.
  struct Caller {
    ACE_Message_Block* const block;
    ACE_Condition_Thread_Mutex queued_cond;
    ACE_Time_Value deadline;
    bool queued = false;  // set by the thread that made room and queued the block
    Caller* next = nullptr;
  };

  std::chrono::milliseconds Wait() const noexcept;

  // Under the lock.
  bool AppendWhenRoom_i(ACE_Message_Block* block, std::chrono::milliseconds wait);
  void GiveRoomToCallers_i();
  void RemoveCaller_i(Caller const& caller);
  void Append_i(ACE_Message_Block* block);
  void GiveBack_i(std::size_t count);

  bool taker_waits_ = false;        // under the lock: TakeAll waits and must be signalled
  Caller* first_caller_ = nullptr;  // under the lock: the waiting callers, first come first
  Caller* last_caller_ = nullptr;   // under the lock
  // Whether first_caller_ is not null. Written under the lock; relaxed readers only decide when to give room
  // back.
  std::atomic<bool> callers_wait_{false};
  pthread_t taker_{};       // under the lock: the thread that called TakeAll last
  bool has_taker_ = false;  // under the lock
  // Written under the lock, so a load and a store are enough and cost less than an atomic addition.
  std::atomic<std::uint64_t> accepted_{0};
  std::atomic<std::uint64_t> evicted_{0};
  std::atomic<std::int64_t> wait_ms_{1000};  // relaxed: a setting, it orders nothing
};

}  // namespace velt

#endif
