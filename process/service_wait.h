// What the service wait works on.
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

  static std::atomic<BaseUtilInternal*> m_pInstance;  // release when made, acquire where used
  static Mutex m_instMutex;                           // creation and destruction

  // For a forked child: a condition with waiters in the parent can be neither signalled nor destroyed here.
  static void KeepInheritedInstance() noexcept;

  Mutex* m_pMutex;                          // owned; the mutex of the condition
  ACE_Condition<Mutex>* m_pCond = nullptr;  // owned
  Inherited m_inherited;
};

}  // namespace velt

#endif
