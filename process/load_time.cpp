// The objects that are built when the library is loaded, in the order of this file: every one that has a
// constructor stands here, because the order across files is the linker's. Texts and numbers are constants
// and need no order.
#include <new>

#include <ace/Init_ACE.h>
#include <ace/Recursive_Thread_Mutex.h>

#include "velt/process.h"

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

// Every lock with static storage, in one place for a forked child: its copies may be held by threads that
// only the parent has. Making one anew in place frees nothing and allocates nothing.
void RemakeInChild() {
  new (&ServiceWaitState::m_instMutex) Mutex;
  new (&g_mutexVeltStaticLock) ACE_Recursive_Thread_Mutex;
  new (&ManagerState::m_pInstLock) Mutex;
  RemakePrintLock();
  UnlockIdleNodes();
  KeepOwnThreadObjectsInChild();
  UnlockLocalTime();
  ServiceWaitState::KeepInheritedInstance();
}

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

velt::Mutex velt::ServiceWaitState::m_instMutex;
VELTInit g_oVELTInit;
ACE_Recursive_Thread_Mutex g_mutexVeltStaticLock;
velt::Mutex velt::ManagerState::m_pInstLock;

VELTInit::VELTInit() {
  ACE::init();
  velt::WatchForks({&velt::BeforeFork, &velt::AfterForkInParent, &velt::RemakeInChild});
}
