// Where a service's main thread waits to be told to end.
#include "process/service_wait.h"

namespace velt {

std::atomic<BaseUtilInternal*> ServiceWaitState::m_pInstance{nullptr};

ServiceWaitState::ServiceWaitState() : m_pMutex(new Mutex) {
  try {
    m_pCond = new ACE_Condition<Mutex>(*m_pMutex);
  } catch (...) {
    delete m_pMutex;
    throw;
  }
}

ServiceWaitState::~ServiceWaitState() {
  delete m_pMutex;  // may go first: destroying the condition does not touch it
  m_pMutex = nullptr;
  delete m_pCond;
}

void ServiceWaitState::KeepInheritedInstance() noexcept {
  BaseUtilInternal* const inherited = m_pInstance.load(std::memory_order_relaxed);
  if (inherited == nullptr) return;
  KeepInherited(inherited->m_pState->m_inherited, inherited);
  m_pInstance.store(nullptr, std::memory_order_relaxed);
}

}  // namespace velt

BaseUtilInternal::BaseUtilInternal() : m_pState(new velt::ServiceWaitState) {}

BaseUtilInternal::~BaseUtilInternal() { delete m_pState; }

BaseUtilInternal* BaseUtilInternal::Instance() {
  using State = velt::ServiceWaitState;
  // Acquire: what the creating thread wrote is seen with the pointer.
  BaseUtilInternal* instance = State::m_pInstance.load(std::memory_order_acquire);
  if (instance != nullptr) return instance;
  // Goes on without the lock if it cannot be taken: a service must be able to wait.
  velt::MutexLock const lock(State::m_instMutex);
  instance = State::m_pInstance.load(std::memory_order_acquire);
  if (instance == nullptr) {
    instance = new BaseUtilInternal;
    State::m_pInstance.store(instance, std::memory_order_release);
  }
  return instance;
}

void BaseUtilInternal::Destroy() {
  using State = velt::ServiceWaitState;
  velt::MutexLock const lock(State::m_instMutex);
  delete State::m_pInstance.load(std::memory_order_acquire);
  State::m_pInstance.store(nullptr, std::memory_order_release);
}

void BaseUtilInternal::ServiceWait() {
  velt::MutexLock const lock(*m_pState->m_pMutex);  // wait() releases it while the thread sleeps
  (void)m_pState->m_pCond->wait();                  // a failure leaves its code in errno
}

void BaseUtilInternal::ServiceExit() { (void)m_pState->m_pCond->signal(); }

void VeltsvcdServiceExit() { BaseUtilInternal::Instance()->ServiceExit(); }
