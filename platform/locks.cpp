#include "platform/locks.h"

#include <pthread.h>

namespace velt {

void PreferWriters(RwMutex& mutex) {
#if defined(__GLIBC__)
  pthread_rwlockattr_t writers_first;
  // On failure the lock keeps its default, under which a writer may wait long.
  if (pthread_rwlockattr_init(&writers_first) != 0) return;
  pthread_rwlockattr_setkind_np(&writers_first, PTHREAD_RWLOCK_PREFER_WRITER_NONRECURSIVE_NP);
  // ACE offers no attribute for this. No thread uses the lock yet, so it can be initialised again in place.
  auto* const lock = const_cast<pthread_rwlock_t*>(&mutex.lock());
  pthread_rwlock_destroy(lock);
  pthread_rwlock_init(lock, &writers_first);
  pthread_rwlockattr_destroy(&writers_first);
#else
  (void)mutex;  // other C libraries keep their default
#endif
}

}  // namespace velt
