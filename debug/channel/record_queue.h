// The queue of a channel: ACE's own, with cheaper ways in and out for many callers and one output thread, and
// with what a bounded ring needs.
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

// Blocks count sizeof(OutDataUnit) bytes each against the water marks. Any thread; locked by itself.
class RecordQueue : public ACE_Message_Queue<ACE_MT_SYNCH> {
 public:
  RecordQueue();

  // How long EnqueueRecord and EnqueueEvicting wait for room; one second unless set. Any thread.
  void SetWait(std::chrono::milliseconds wait) noexcept;

  // Puts `block` at the end. Waits for room while the queue is at its water mark, but not on the thread that
  // empties it: nobody else would make room. Callers get room in the order in which they came: on a slow
  // device one of them would else be passed over until its time is up. Returns true when it was queued;
  // false, with errno EWOULDBLOCK after a wait in vain, leaves it the caller's.
  bool EnqueueRecord(ACE_Message_Block* block);

  // The same with a wait of its own.
  bool EnqueueWithin(ACE_Message_Block* block, std::chrono::milliseconds wait);

  // For the one thread that empties the queue. Takes all blocks as a chain (by next()), waiting until there
  // is one or until `deadline` when it is not null. The room of the first is given back; the others stay
  // counted, in message_count() and against the water mark, until GiveBack: a list in hand must not double
  // what the queue may hold. Returns null, with errno EWOULDBLOCK, when the deadline passed, and null when
  // the queue is deactivated or pulsed or its lock fails.
  ACE_Message_Block* TakeAll(ACE_Time_Value* deadline);

  // Gives back the room of `count` more blocks of the list in hand, and lets as many waiting callers in.
  void GiveBack(std::size_t count);

  // Whether a caller waits for room now; then it is worth giving room back early.
  bool CallersWait() const noexcept { return callers_wait_.load(std::memory_order_relaxed); }

  // Puts the rest of a chain that TakeAll gave, all of it still counted, back at the head.
  void PutBack(ACE_Message_Block* chain);

  // Puts `block` at the end after taking the oldest blocks out while `capacity` or more are queued; `evicted`
  // gets those as a chain (null when there are none), for the caller to release. One lock for all of it, so
  // that neither a second caller nor a drain can come between. Waits for room while the queue is still at its
  // water mark. Returns true when `block` was queued; false leaves it the caller's.
  bool EnqueueEvicting(ACE_Message_Block* block, std::size_t capacity, ACE_Message_Block*& evicted);

  // How many blocks were put in since the queue was made, and how many of them EnqueueEvicting took out. Any
  // thread, without the lock.
  std::uint64_t Accepted() const noexcept { return accepted_.load(std::memory_order_relaxed); }
  std::uint64_t Evicted() const noexcept { return evicted_.load(std::memory_order_relaxed); }

  // Whether the calling thread is the one that called TakeAll last.
  bool OnTakersThread();

  // Takes the head if there is one; never waits. Returns null when there is none or the lock could not be
  // taken.
  ACE_Message_Block* TryDequeue();

 private:
  // A caller that waits for room, on its stack. All under the lock.
  struct Caller {
    ACE_Message_Block* const block;
    ACE_Condition_Thread_Mutex queued_cond;
    bool queued = false;  // by the thread that made the room
    Caller* next = nullptr;
  };

  std::chrono::milliseconds Wait() const noexcept;

  // Under the lock.
  bool AppendWhenRoom_i(ACE_Message_Block* block, std::chrono::milliseconds wait);
  void GiveRoomToCallers_i();
  void RemoveCaller_i(Caller const& caller);
  void Append_i(ACE_Message_Block* block);
  void GiveBack_i(std::size_t count);

  bool taker_waits_ = false;        // under the lock: somebody must signal it
  Caller* first_caller_ = nullptr;  // under the lock: who waits for room, in the order of their coming
  Caller* last_caller_ = nullptr;   // under the lock
  // first_caller_ is not null. Written under the lock; relaxed readers only decide when to give room back.
  std::atomic<bool> callers_wait_{false};
  pthread_t taker_{};       // under the lock: who called TakeAll last
  bool has_taker_ = false;  // under the lock
  // Written under the lock, so a load and a store count as well as one atomic addition, and cost less.
  std::atomic<std::uint64_t> accepted_{0};
  std::atomic<std::uint64_t> evicted_{0};
  std::atomic<std::int64_t> wait_ms_{1000};  // relaxed: a setting, it orders nothing
};

}  // namespace velt

#endif
