// The modules and the engine that a host registers with the manager.
#include <string>

#include "velt/manager.h"

#include "debug/manager/manager_state.h"
#include "debug/manager/module_name.h"

namespace {

constexpr int kLargestIndex = 32;

}  // namespace

bool VeltDebugMgr::RegSubModuleInfo(std::string const& name, std::bitset<32> const& levels,
                                    std::bitset<32> const& outputs, bool inheritDebug) {
  if (m_pState->InheritedByFork()) return false;
  velt::ModuleTable& modules = m_pState->m_modules;
  velt::WriteLock const lock(modules.m_tableLock);
  return lock.locked() && IsInit() && modules.RegSubModuleInfo_i(name, levels, outputs, inheritDebug);
}

bool VeltDebugMgr::GetSubModuleInfo(std::string const& name, std::bitset<32>& levels,
                                    std::bitset<32>& outputs) {
  if (m_pState->InheritedByFork()) return false;
  velt::ModuleTable const& modules = m_pState->m_modules;
  velt::ReadLock const lock(m_pState->m_modules.m_tableLock);
  return lock.locked() && modules.GetSubModuleInfo_i(name, levels, outputs);
}

bool VeltDebugMgr::SetAllModuleInfo(std::bitset<32> const& levels, std::bitset<32> const& outputs,
                                    bool useDebug) {
  if (m_pState->InheritedByFork()) return false;
  velt::ModuleTable& modules = m_pState->m_modules;
  velt::WriteLock const lock(modules.m_tableLock);
  if (!lock.locked() || !IsInit()) return false;
  std::bitset<32> new_levels = levels;
  std::bitset<32> new_outputs = outputs;
  if (useDebug && !modules.GetSubModuleInfo_i(velt::kDebugModule, new_levels, new_outputs)) return false;
  modules.SetAll_i(new_levels, new_outputs);
  return true;
}

bool VeltDebugMgr::GetAllModuleInfo(ModuleSets& out) {
  if (m_pState->InheritedByFork()) return false;
  velt::ModuleTable& modules = m_pState->m_modules;
  velt::ReadLock const lock(modules.m_tableLock);
  if (!lock.locked() || !IsInit()) return false;
  modules.GetAll_i(out);
  return true;
}

bool VeltDebugMgr::SetLogLevel(std::string const& module, VeltLogLevel level, bool on) {
  if (level > kLargestIndex || m_pState->InheritedByFork()) return false;
  velt::WriteLock const lock(m_pState->m_modules.m_tableLock);
  return lock.locked() && m_pState->m_modules.SetLevel_i(module, level, on);
}

bool VeltDebugMgr::SetLogOutput(std::string const& module, VeltOutputDirection direction, bool on) {
  if (direction > kLargestIndex || m_pState->InheritedByFork()) return false;
  velt::WriteLock const lock(m_pState->m_modules.m_tableLock);
  return lock.locked() && m_pState->m_modules.SetOutput_i(module, direction, on);
}

bool VeltDebugMgr::RegDebugEngine(VeltDebugEngine* engine) {
  if (engine == nullptr || m_pState->InheritedByFork()) return false;
  velt::WriteLock const lock(m_pState->m_modules.m_tableLock);
  if (!lock.locked()) return false;
  // Release: a tracing thread that loads the pointer also sees what the engine's constructor wrote.
  m_pState->m_pEngine.store(engine, std::memory_order_release);
  return true;
}

bool VeltDebugMgr::UnRegDebugEngine(VeltDebugEngine* engine) {
  if (m_pState->InheritedByFork()) return false;
  {
    velt::WriteLock const lock(m_pState->m_modules.m_tableLock);
    if (!lock.locked() || m_pState->m_pEngine.load(std::memory_order_relaxed) != engine) return false;
    m_pState->m_pEngine.store(nullptr, std::memory_order_relaxed);
  }
  delete engine;  // without the lock: its destructor is the host's code and may call the manager
  return true;
}

VeltDebugEngine* VeltDebugMgr::GetDebugEngine() {
  if (m_pState->InheritedByFork()) return nullptr;
  // As a writer: waits for a registration that is under way.
  velt::WriteLock const lock(m_pState->m_modules.m_tableLock);
  return lock.locked() ? m_pState->m_pEngine.load(std::memory_order_relaxed) : nullptr;
}
