// The state behind BaseUtilInternal.
#ifndef VELT_PROCESS_SERVICE_WAIT_H
#define VELT_PROCESS_SERVICE_WAIT_H

#include <atomic>

#include <ace/Condition_Thread_Mutex.h>

#include "velt/process.h"

#include "platform/inherited.h"
#include "platform/locks.h"

namespace velt {

struct ServiceWaitState {
  ServiceWaitState();
  ~ServiceWaitState();
  ServiceWaitState(ServiceWaitState const&) = delete;
  ServiceWaitState& operator=(ServiceWaitState const&) = delete;

  static std::atomic<BaseUtilInternal*> m_pInstance;  // stored with release, loaded with acquire
  static Mutex m_instMutex;                           // held while the instance is made or destroyed

  // For a forked child: sets the inherited instance aside. Its condition may have waiters in the parent, so
  // the child can neither signal nor destroy it.
  static void KeepInheritedInstance() noexcept;

  Mutex* m_pMutex;                          // owned; the mutex of the condition
  ACE_Condition<Mutex>* m_pCond = nullptr;  // owned
  Inherited m_inherited;
};

}  // namespace velt

#endif
