// The modules and the engine that a host registers with the manager.
#include <memory>
#include <string>

#include "velt/manager.h"

#include "debug/manager/module_name.h"
#include "debug/manager/sets_cache.h"
#include "platform/locks.h"

namespace {

constexpr int kLargestIndex = 32;

}  // namespace

VeltDebugSubModInfo* VeltDebugMgr::FindModule_i(std::string const& name) const {
  auto const found = m_modules.find(name);
  return found == m_modules.end() ? nullptr : found->second;
}

bool VeltDebugMgr::RegSubModuleInfo(std::string const& name, std::bitset<32> const& levels,
                                    std::bitset<32> const& outputs, bool inheritDebug) {
  if (InheritedByFork()) return false;
  velt::WriteLock const lock(m_tableLock);
  return lock.locked() && IsInit() && RegSubModuleInfo_i(name, levels, outputs, inheritDebug);
}

bool VeltDebugMgr::RegSubModuleInfo_i(std::string const& name, std::bitset<32> const& levels,
                                      std::bitset<32> const& outputs, bool inheritDebug) {
  if (name.empty()) return false;
  if (VeltDebugSubModInfo* const known = FindModule_i(name)) {
    (void)known->SetLevelSet(levels);  // errno tells of a lock that failed
    (void)known->SetOutputSet(outputs);
    velt::ForgetSets();
    return true;
  }
  std::bitset<32> new_levels = levels;
  std::bitset<32> new_outputs = outputs;
  if (inheritDebug && !GetSubModuleInfo_i(velt::kDebugModule, new_levels, new_outputs)) return false;
  auto module = std::make_unique<VeltDebugSubModInfo>(new_levels, new_outputs);
  m_modules.emplace(name, module.get());
  (void)module.release();  // the table's now
  velt::ForgetSets();      // a module without a name of its own had the sets of "debug" until now
  return true;
}

bool VeltDebugMgr::GetSubModuleInfo(std::string const& name, std::bitset<32>& levels,
                                    std::bitset<32>& outputs) {
  if (InheritedByFork()) return false;
  velt::ReadLock const lock(m_tableLock);
  return lock.locked() && GetSubModuleInfo_i(name, levels, outputs);
}

bool VeltDebugMgr::GetSubModuleInfo_i(std::string const& name, std::bitset<32>& levels,
                                      std::bitset<32>& outputs) {
  VeltDebugSubModInfo const* const module = FindModule_i(name);
  if (module == nullptr) return false;
  levels = module->m_levelSet;
  outputs = module->m_outputSet;
  return true;
}

bool VeltDebugMgr::SetAllModuleInfo(std::bitset<32> const& levels, std::bitset<32> const& outputs,
                                    bool useDebug) {
  if (InheritedByFork()) return false;
  velt::WriteLock const lock(m_tableLock);
  if (!lock.locked() || !IsInit()) return false;
  std::bitset<32> new_levels = levels;
  std::bitset<32> new_outputs = outputs;
  if (useDebug && !GetSubModuleInfo_i(velt::kDebugModule, new_levels, new_outputs)) return false;
  for (auto const& module : m_modules) {
    (void)module.second->SetLevelSet(new_levels);  // errno tells of a lock that failed
    (void)module.second->SetOutputSet(new_outputs);
  }
  velt::ForgetSets();
  return true;
}

bool VeltDebugMgr::GetAllModuleInfo(ModuleSets& out) {
  if (InheritedByFork()) return false;
  velt::ReadLock const lock(m_tableLock);
  if (!lock.locked() || !IsInit()) return false;
  for (auto const& [name, module] : m_modules) out[name] = {module->m_levelSet, module->m_outputSet};
  return true;
}

bool VeltDebugMgr::SetLogLevel(std::string const& module, VeltLogLevel level, bool on) {
  if (level > kLargestIndex || InheritedByFork()) return false;
  velt::WriteLock const lock(m_tableLock);
  if (!lock.locked()) return false;
  VeltDebugSubModInfo* const found = FindModule_i(velt::ModuleOrDebug(module));
  bool const done = found != nullptr && found->SetLevel(static_cast<unsigned>(level), on);
  velt::ForgetSets();
  return done;
}

bool VeltDebugMgr::SetLogOutput(std::string const& module, VeltOutputDirection direction, bool on) {
  if (direction > kLargestIndex || InheritedByFork()) return false;
  velt::WriteLock const lock(m_tableLock);
  if (!lock.locked()) return false;
  VeltDebugSubModInfo* const found = FindModule_i(velt::ModuleOrDebug(module));
  bool const done = found != nullptr && found->SetOutput(static_cast<unsigned>(direction), on);
  velt::ForgetSets();
  return done;
}

bool VeltDebugMgr::RegDebugEngine(VeltDebugEngine* engine) {
  if (engine == nullptr || InheritedByFork()) return false;
  velt::WriteLock const lock(m_tableLock);
  if (!lock.locked()) return false;
  m_pEngine.store(engine, std::memory_order_release);  // a tracing thread that sees it sees it constructed
  return true;
}

bool VeltDebugMgr::UnRegDebugEngine(VeltDebugEngine* engine) {
  if (InheritedByFork()) return false;
  {
    velt::WriteLock const lock(m_tableLock);
    if (!lock.locked() || m_pEngine.load(std::memory_order_relaxed) != engine) return false;
    m_pEngine.store(nullptr, std::memory_order_relaxed);
  }
  delete engine;  // after the lock: its destructor is the host's code and may ask the manager things
  return true;
}

VeltDebugEngine* VeltDebugMgr::GetDebugEngine() {
  if (InheritedByFork()) return nullptr;
  velt::WriteLock const lock(m_tableLock);  // the write side: a caller sees no registration half-way
  return lock.locked() ? m_pEngine.load(std::memory_order_relaxed) : nullptr;
}
