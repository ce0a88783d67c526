// The objects that are built when the library is loaded, in the order of this file: every one that has a
// constructor stands here, because the order across files is the linker's. Texts and numbers are constants
// and need no order.
#include <new>

#include <ace/Init_ACE.h>

#include "velt/manager.h"
#include "velt/process.h"

#include "debug/channel/output_thread.h"
#include "debug/channel/record_recycler.h"
#include "platform/fork_generation.h"
#include "platform/local_time.h"
#include "platform/locks.h"
#include "platform/thread_object.h"

namespace velt {

// Every lock with static storage, in one place for a forked child: its copies may be held by threads that
// only the parent has. Making one anew in place frees nothing and allocates nothing.
struct StaticLocks {
  static void RemakeInChild() {
    new (&BaseUtilInternal::m_instMutex) ACE_Thread_Mutex;
    new (&g_mutexVeltStaticLock) ACE_Recursive_Thread_Mutex;
    new (&VeltDebugMgr::m_pInstLock) ACE_Thread_Mutex;
    RemakePrintLock();
    UnlockIdleNodes();
    KeepOwnThreadObjectsInChild();
    UnlockLocalTime();
    ParkServiceWait();
  }

 private:
  // A condition with waiters in the parent can be neither signalled nor destroyed here.
  static void ParkServiceWait() {
    BaseUtilInternal* const inherited = BaseUtilInternal::m_pInstance.load(std::memory_order_relaxed);
    if (inherited == nullptr) return;
    inherited->m_pNextParked = BaseUtilInternal::m_pParked;  // for leak checkers
    BaseUtilInternal::m_pParked = inherited;
    BaseUtilInternal::m_pInstance.store(nullptr, std::memory_order_relaxed);
  }
};

namespace {

// In the order in which they are taken elsewhere: idle nodes under thread objects. Local time is taken alone.
void BeforeFork() {
  LockThreadObjects();
  LockIdleNodes();
  LockLocalTime();
}

void AfterForkInParent() {
  UnlockLocalTime();
  UnlockIdleNodes();
  UnlockThreadObjects();
}

}  // namespace

}  // namespace velt

ACE_Thread_Mutex BaseUtilInternal::m_instMutex;
VELTInit g_oVELTInit;
ACE_Recursive_Thread_Mutex g_mutexVeltStaticLock;
ACE_Thread_Mutex VeltDebugMgr::m_pInstLock;

VELTInit::VELTInit() {
  ACE::init();
  velt::WatchForks({&velt::BeforeFork, &velt::AfterForkInParent, &velt::StaticLocks::RemakeInChild});
}
