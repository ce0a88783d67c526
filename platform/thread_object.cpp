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
  ThreadObject* gone = nullptr;   // under the lock; objects of threads that exist only in the parent

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
    // Append what an earlier fork left to what this fork leaves.
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

// Never destroyed: threads may still end while the process exits.
ThreadObjectList objects;
static_assert(std::is_trivially_destructible_v<ThreadObjectList>);

struct Own {
  ThreadObject* first = nullptr;
  bool ends = false;
};
// All thread_local variables of the library use this TLS model: access takes one instruction. They have to be
// small: a library loaded by dlopen shares the few hundred bytes that the C library reserves for them.
[[gnu::tls_model("initial-exec")]] thread_local Own own;

void EndThread(void* /*own*/) noexcept {
  own.ends = true;  // destructors that run later may still trace; they get no new objects
  while (own.first != nullptr) {
    ThreadObject& object = ThreadObjectList::PopOwn(own.first);
    {
      std::lock_guard<std::mutex> const guard(objects.lock);
      objects.Unlink_i(object);
    }
    object.AtThreadEnd();
  }
}

// Uses a key, not a thread_local object with a destructor: registering a destructor allocates memory for each
// thread, which a forked child can neither free nor reach. The key is made under the list's lock, which is
// held over a fork: if another thread were inside the initialisation of a function-local static at the fork,
// the child would wait for it for ever.
bool WatchThread_i() noexcept {
  static bool tried = false;
  static pthread_key_t key = PTHREAD_KEYS_MAX;  // not a valid key
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
