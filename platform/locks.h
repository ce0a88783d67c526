// Short names for the locks that the public headers hold, and their guards. A guard is asked whether it
// holds: it is constructed even when the lock could not be taken, with the reason in errno.
#ifndef VELT_PLATFORM_LOCKS_H
#define VELT_PLATFORM_LOCKS_H

#include <ace/Guard_T.h>
#include <ace/RW_Thread_Mutex.h>
#include <ace/Thread_Mutex.h>

namespace velt {

using Mutex = ACE_Thread_Mutex;
using RwMutex = ACE_RW_Thread_Mutex;
using MutexLock = ACE_Guard<Mutex>;
using ReadLock = ACE_Read_Guard<RwMutex>;
using WriteLock = ACE_Write_Guard<RwMutex>;

// Makes `mutex`, which nobody uses yet, let a waiting writer in before new readers. By default threads that
// read all the time keep a writer out for ever. A thread must then not take the read side twice.
void PreferWriters(RwMutex& mutex);

}  // namespace velt

#endif
