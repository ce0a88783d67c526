// Where a service's main thread waits to be told to end.
#include <ace/Condition_Thread_Mutex.h>

#include "velt/process.h"

#include "platform/locks.h"

std::atomic<BaseUtilInternal*> BaseUtilInternal::m_pInstance{nullptr};
BaseUtilInternal* BaseUtilInternal::m_pParked = nullptr;

BaseUtilInternal::BaseUtilInternal() : m_pMutex(new ACE_Thread_Mutex) {
  try {
    m_pCond = new ACE_Condition<ACE_Thread_Mutex>(*m_pMutex);
  } catch (...) {
    delete m_pMutex;
    throw;
  }
}

BaseUtilInternal::~BaseUtilInternal() {
  delete m_pMutex;  // first: destroying the condition does not touch it
  m_pMutex = nullptr;
  delete m_pCond;
}

BaseUtilInternal* BaseUtilInternal::Instance() {
  // Acquire: what the creating thread wrote is seen with the pointer.
  BaseUtilInternal* instance = m_pInstance.load(std::memory_order_acquire);
  if (instance != nullptr) return instance;
  velt::MutexLock const lock(m_instMutex);  // goes on unguarded when it fails: a service must be able to wait
  instance = m_pInstance.load(std::memory_order_acquire);
  if (instance == nullptr) {
    instance = new BaseUtilInternal;
    m_pInstance.store(instance, std::memory_order_release);
  }
  return instance;
}

void BaseUtilInternal::Destroy() {
  velt::MutexLock const lock(m_instMutex);
  delete m_pInstance.load(std::memory_order_acquire);
  m_pInstance.store(nullptr, std::memory_order_release);
}

void BaseUtilInternal::ServiceWait() {
  velt::MutexLock const lock(*m_pMutex);  // a condition wants its mutex held, for the wait alone
  (void)m_pCond->wait();                  // errno tells of a failure
}

void BaseUtilInternal::ServiceExit() { (void)m_pCond->signal(); }

void VeltsvcdServiceExit() { BaseUtilInternal::Instance()->ServiceExit(); }
