// The state of the manager.
#ifndef VELT_DEBUG_MANAGER_MANAGER_STATE_H
#define VELT_DEBUG_MANAGER_MANAGER_STATE_H

#include <atomic>
#include <cstdint>
#include <string>

#include "velt/manager.h"

#include "debug/manager/channel_table.h"
#include "debug/manager/limits.h"
#include "debug/manager/module_table.h"
#include "platform/fork_generation.h"
#include "platform/inherited.h"
#include "platform/locks.h"
#include "platform/problem_report.h"

namespace velt {

struct ManagerState {
  static ManagerState& Of(VeltDebugMgr const& manager) { return *manager.m_pState; }

  static std::atomic<VeltDebugMgr*> m_pInstance;  // stored with release, loaded with acquire
  static Mutex m_pInstLock;                       // held while the instance is made or destroyed

  // Acquire: pairs with the store at the end of Init, so that everything Init wrote is seen.
  bool IsInit() const noexcept { return m_bInit.load(std::memory_order_acquire); }

  // Whether this process was forked from the process that called Init.
  bool InheritedByFork() const noexcept { return IsInit() && m_nForkGeneration != ForkGeneration(); }

  std::atomic<bool> m_bInit{false};  // set last in Init (release)
  FileLimits m_limits;               // written by Init before m_bInit
  std::atomic<bool> m_bSilent{false};
  std::string m_strSpare;                            // kept and unused
  std::string m_strCfgFile;                          // m_cfgFileLock
  std::atomic<VeltDebugEngine*> m_pEngine{nullptr};  // written under the table lock; owned
  VeltDebugInfo* m_pChannel = nullptr;  // the main channel; set by Init before m_bInit; m_channels owns it
  ModuleTable m_modules;
  std::string const m_strDefaultModule;  // empty, which means "debug"
  VeltLogLevel const m_defaultLevel{3};
  ChannelTable m_channels;
  std::string m_strName;  // written by Init before m_bInit

  // The members above keep their given order; these are additions.
  Mutex m_cfgFileLock;
  std::uint32_t m_nForkGeneration = 0;  // of the process that called Init; written before m_bInit
  ProblemGate m_reloadProblems;         // any thread
  Inherited m_inherited;                // for a forked child that sets the manager aside
};

}  // namespace velt

#endif
