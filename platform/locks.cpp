#include "platform/locks.h"

#include <pthread.h>

namespace velt {

void PreferWriters(RwMutex& mutex) {
#if defined(__GLIBC__)
  pthread_rwlockattr_t writers_first;
  if (pthread_rwlockattr_init(&writers_first) != 0) return;  // the default preference is slow, not wrong
  pthread_rwlockattr_setkind_np(&writers_first, PTHREAD_RWLOCK_PREFER_WRITER_NONRECURSIVE_NP);
  // ACE offers no attribute for this; the lock is idle, so making it anew in place is safe.
  auto* const lock = const_cast<pthread_rwlock_t*>(&mutex.lock());
  pthread_rwlock_destroy(lock);
  pthread_rwlock_init(lock, &writers_first);
  pthread_rwlockattr_destroy(&writers_first);
#else
  (void)mutex;  // elsewhere the default stands
#endif
}

}  // namespace velt
