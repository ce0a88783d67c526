// Objects that a thread keeps until its end, and that others find meanwhile.
#ifndef VELT_PLATFORM_THREAD_OBJECT_H
#define VELT_PLATFORM_THREAD_OBJECT_H

namespace velt {

// Base of what one thread keeps. A thread reaches its object by a thread_local pointer of its own; this is
// what frees the object in time.
//
// Ownership: KeepUntilThreadEnd hands it over; AtThreadEnd deletes it. The objects of threads that still run
//            when the process exits stay.
// Fork:      a child keeps the objects of the thread that forked; those of other threads stay allocated and
//            reachable, and are never used.
class ThreadObject {
 public:
  ThreadObject() = default;
  ThreadObject(ThreadObject const&) = delete;
  ThreadObject& operator=(ThreadObject const&) = delete;

  // The last call, on the thread whose object it is, after the destructors of its thread_local objects.
  virtual void AtThreadEnd() noexcept = 0;

  // Gives back what the thread does not need at once. Runs on any thread, beside the thread whose object it
  // is, under the lock of all objects.
  virtual void Shrink() noexcept = 0;

 protected:
  ~ThreadObject() = default;

 private:
  friend struct ThreadObjectList;

  ThreadObject* before_ = nullptr;  // in the list of all objects, under its lock
  ThreadObject* after_ = nullptr;
  ThreadObject* of_thread_ = nullptr;  // the thread's next object; that thread only
};

// Returns false, and leaves the object the caller's, when the end of the thread cannot be watched or has
// begun.
bool KeepUntilThreadEnd(ThreadObject& object) noexcept;

// Whether AtThreadEnd has run on this thread: its last destructors run, and it keeps nothing any more.
bool ThreadEnds() noexcept;

// Shrinks the objects of all threads.
void ShrinkThreadObjects() noexcept;

// Around a fork: the list is locked over it, so that the child's copy is whole. The child then sets aside the
// objects of threads that only the parent has, and unlocks.
void LockThreadObjects() noexcept;
void UnlockThreadObjects() noexcept;
void KeepOwnThreadObjectsInChild() noexcept;

}  // namespace velt

#endif
