// Short names for ACE's locks and their guards. Ask each guard whether it holds its lock, with locked(): it
// is constructed even when the lock could not be taken, with the reason in errno.
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

// Makes `mutex` let a waiting writer in before new readers. By default, threads that read all the time keep a
// writer out for ever. Call it before any thread uses `mutex`. Afterwards a thread must not take the read
// side twice: with a writer waiting in between it would block itself.
void PreferWriters(RwMutex& mutex);

}  // namespace velt

#endif
