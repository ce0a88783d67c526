#include "platform/thread_object.h"

#include <pthread.h>

#include <climits>
#include <mutex>
#include <type_traits>
#include <utility>

namespace velt {

struct ThreadObjectList {
  std::mutex lock;
  ThreadObject* first = nullptr;  // under the lock
  ThreadObject* gone = nullptr;   // under the lock; of threads that a forked child does not have

  void Link_i(ThreadObject& object) noexcept {
    object.before_ = nullptr;
    object.after_ = first;
    if (first != nullptr) first->before_ = &object;
    first = &object;
  }
  void Unlink_i(ThreadObject& object) noexcept {
    (object.before_ != nullptr ? object.before_->after_ : first) = object.after_;
    if (object.after_ != nullptr) object.after_->before_ = object.before_;
  }
  void Shrink_i() noexcept {
    for (ThreadObject* object = first; object != nullptr; object = object->after_) object->Shrink();
  }
  void KeepOnly_i(ThreadObject* own) noexcept {
    for (ThreadObject* object = own; object != nullptr; object = object->of_thread_) Unlink_i(*object);
    // What an earlier fork left comes after what this one leaves.
    ThreadObject** end = &first;
    while (*end != nullptr) end = &(*end)->after_;
    *end = gone;
    gone = std::exchange(first, nullptr);
    for (ThreadObject* object = own; object != nullptr; object = object->of_thread_) Link_i(*object);
  }
  static void PushOwn(ThreadObject*& own, ThreadObject& object) noexcept {
    object.of_thread_ = own;
    own = &object;
  }
  static ThreadObject& PopOwn(ThreadObject*& own) noexcept { return *std::exchange(own, own->of_thread_); }
};

namespace {

// Never destroyed: threads end while the process exits.
ThreadObjectList objects;
static_assert(std::is_trivially_destructible_v<ThreadObjectList>);

struct Own {
  ThreadObject* first = nullptr;
  bool ends = false;
};
// All thread_local variables of the library are of this kind: reaching one is one instruction. A library that
// dlopen loads gets the few hundred bytes for them that the C library keeps ready, so they have to be small.
[[gnu::tls_model("initial-exec")]] thread_local Own own;

void EndThread(void* /*own*/) noexcept {
  own.ends = true;  // what runs later may still trace
  while (own.first != nullptr) {
    ThreadObject& object = ThreadObjectList::PopOwn(own.first);
    {
      std::lock_guard<std::mutex> const guard(objects.lock);
      objects.Unlink_i(object);
    }
    object.AtThreadEnd();
  }
}

// A key and not a thread_local object with a destructor: registering that allocates, once per thread, what a
// forked child can neither free nor reach. Made under the list's lock, which is held over a fork: a child
// would wait for ever for a function's own static that another thread was making.
bool WatchThread_i() noexcept {
  static bool tried = false;
  static pthread_key_t key = PTHREAD_KEYS_MAX;  // which is none
  if (!tried && pthread_key_create(&key, &EndThread) != 0) key = PTHREAD_KEYS_MAX;
  tried = true;
  return pthread_setspecific(key, &own) == 0;
}

}  // namespace

bool KeepUntilThreadEnd(ThreadObject& object) noexcept {
  if (own.ends) return false;
  std::lock_guard<std::mutex> const guard(objects.lock);
  if (own.first == nullptr && !WatchThread_i()) return false;
  objects.Link_i(object);
  ThreadObjectList::PushOwn(own.first, object);
  return true;
}

bool ThreadEnds() noexcept { return own.ends; }

void ShrinkThreadObjects() noexcept {
  std::lock_guard<std::mutex> const guard(objects.lock);
  objects.Shrink_i();
}

void LockThreadObjects() noexcept { objects.lock.lock(); }

void UnlockThreadObjects() noexcept { objects.lock.unlock(); }

void KeepOwnThreadObjectsInChild() noexcept {
  objects.KeepOnly_i(own.first);
  objects.lock.unlock();
}

}  // namespace velt
