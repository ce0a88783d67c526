// All objects with constructors that run when the library is loaded. They are constructed in the order of
// this file; across several files the linker would choose the order. Texts and numbers are constants and need
// no constructor.
#include <new>

#include <ace/Init_ACE.h>
#include <ace/Recursive_Thread_Mutex.h>

#include "velt/process.h"

#include "debug/channel/flush.h"
#include "debug/channel/output.h"
#include "debug/channel/record_recycler.h"
#include "debug/manager/manager_state.h"
#include "platform/fork_generation.h"
#include "platform/local_time.h"
#include "platform/locks.h"
#include "platform/thread_object.h"
#include "process/service_wait.h"

namespace velt {

namespace {

// Makes every static lock usable in a forked child, whose copies may be held by threads that only the parent
// has. Constructing a lock again in place frees nothing and allocates nothing.
void RemakeInChild() {
  new (&ServiceWaitState::m_instMutex) Mutex;
  new (&g_mutexVeltStaticLock) ACE_Recursive_Thread_Mutex;
  new (&ManagerState::m_pInstLock) Mutex;
  RemakePrintLock();
  UnlockIdleNodes();
  KeepOwnThreadObjectsInChild();
  UnlockLiveChannels();
  UnlockLocalTime();
  ServiceWaitState::KeepInheritedInstance();
}

// The lock order is that of the rest of the library: idle nodes after thread objects. Elsewhere no lock
// is taken while one of the other two is held.
void BeforeFork() {
  LockThreadObjects();
  LockIdleNodes();
  LockLocalTime();
  LockLiveChannels();
}

void AfterForkInParent() {
  UnlockLiveChannels();
  UnlockLocalTime();
  UnlockIdleNodes();
  UnlockThreadObjects();
}

}  // namespace

std::atomic<std::uint32_t> detail::fork_generation{0};

}  // namespace velt

velt::Mutex velt::ServiceWaitState::m_instMutex;
VELTInit g_oVELTInit;
ACE_Recursive_Thread_Mutex g_mutexVeltStaticLock;
velt::Mutex velt::ManagerState::m_pInstLock;

VELTInit::VELTInit() {
  ACE::init();
  velt::WatchForks({&velt::BeforeFork, &velt::AfterForkInParent, &velt::RemakeInChild});
}
