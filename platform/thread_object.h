// Objects that belong to one thread until it ends, in a list that other threads can walk.
#ifndef VELT_PLATFORM_THREAD_OBJECT_H
#define VELT_PLATFORM_THREAD_OBJECT_H

namespace velt {

// Base of an object that belongs to one thread. The thread finds its object through a thread_local pointer;
// this base makes sure that the object is deleted when the thread ends.
//
// Ownership: passes from the caller at KeepUntilThreadEnd; AtThreadEnd deletes the object. Objects of threads
//            that still run when the process exits are never deleted.
// Fork:      the child keeps using the objects of the thread that forked; those of other threads stay
//            allocated and reachable, unused.
class ThreadObject {
 public:
  ThreadObject() = default;
  ThreadObject(ThreadObject const&) = delete;
  ThreadObject& operator=(ThreadObject const&) = delete;

  // The last call, on the object's own thread, after the destructors of its thread_local objects. Deletes it.
  virtual void AtThreadEnd() noexcept = 0;

  // Frees memory that the thread does not need at the moment. Runs on any thread, possibly while the object's
  // own thread uses it, under the lock of the list.
  virtual void Shrink() noexcept = 0;

 protected:
  ~ThreadObject() = default;

 private:
  friend struct ThreadObjectList;

  ThreadObject* before_ = nullptr;  // in the list of all objects, under its lock
  ThreadObject* after_ = nullptr;
  ThreadObject* of_thread_ = nullptr;  // the thread's next object; that thread only
};

// Takes `object` over for the calling thread. Returns false, and the caller keeps it, when the thread has
// begun to end or its end cannot be watched.
bool KeepUntilThreadEnd(ThreadObject& object) noexcept;

// Whether this thread has begun to end: KeepUntilThreadEnd takes nothing any more.
bool ThreadEnds() noexcept;

// Shrinks the objects of all threads.
void ShrinkThreadObjects() noexcept;

// Around a fork: the list is locked, so that the child gets a consistent copy. The child then sets the
// objects of threads that only the parent has aside, and unlocks.
void LockThreadObjects() noexcept;
void UnlockThreadObjects() noexcept;
void KeepOwnThreadObjectsInChild() noexcept;

}  // namespace velt

#endif
