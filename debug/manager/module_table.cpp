#include "debug/manager/module_table.h"

#include <memory>

#include "debug/manager/module_name.h"
#include "debug/manager/sets_cache.h"
#include "debug/manager/sub_mod_info.h"

namespace velt {
namespace {

// The set that is registered for a configured set: if its value is above hexadecimal 1111, only bits 0 to 3
// of it. (A set with bit 12 alone has the value 0x1000 and passes whole.)
std::bitset<32> Masked(std::bitset<32> const& set) {
  constexpr unsigned long kLargestUnmasked = 0x1111;
  std::bitset<32> const mask(0xF);
  return set.to_ulong() > kLargestUnmasked ? set & mask : set;
}

}  // namespace

ModuleTable::ModuleTable() {
  PreferWriters(m_tableLock);  // otherwise a level change would wait for a pause in the tracing
}

ModuleTable::~ModuleTable() {
  for (auto const& module : m_modules) delete module.second;
  ForgetSets();
}

VeltDebugSubModInfo* ModuleTable::Find_i(std::string const& name) const {
  auto const found = m_modules.find(name);
  return found == m_modules.end() ? nullptr : found->second;
}

bool ModuleTable::RegSubModuleInfo_i(std::string const& name, std::bitset<32> const& levels,
                                     std::bitset<32> const& outputs, bool inheritDebug) {
  if (name.empty()) return false;
  if (VeltDebugSubModInfo* const known = Find_i(name)) {
    (void)known->SetLevelSet(levels);  // if its lock failed, errno says so
    (void)known->SetOutputSet(outputs);
    ForgetSets();
    return true;
  }
  std::bitset<32> new_levels = levels;
  std::bitset<32> new_outputs = outputs;
  if (inheritDebug && !GetSubModuleInfo_i(kDebugModule, new_levels, new_outputs)) return false;
  auto module = std::make_unique<VeltDebugSubModInfo>(new_levels, new_outputs);
  m_modules.emplace(name, module.get());
  (void)module.release();  // the table owns it now
  ForgetSets();            // until now the module had the sets of "debug", which threads may remember
  return true;
}

void ModuleTable::RegisterConfigured_i(VeltDebugMgr::ModuleSets const& modules) {
  for (auto const& [name, sets] : modules) {
    // An item without a name is skipped.
    (void)RegSubModuleInfo_i(name, Masked(sets.first), Masked(sets.second), false);
  }
}

bool ModuleTable::GetSubModuleInfo_i(std::string const& name, std::bitset<32>& levels,
                                     std::bitset<32>& outputs) const {
  VeltDebugSubModInfo const* const module = Find_i(name);
  if (module == nullptr) return false;
  SubModInfoState const& sets = SubModInfoState::Of(*module);
  levels = sets.m_levelSet;
  outputs = sets.m_outputSet;
  return true;
}

bool ModuleTable::SetsOrDefault_i(std::string const& name, std::bitset<32>& levels,
                                  std::bitset<32>& outputs) const {
  return GetSubModuleInfo_i(name, levels, outputs) || GetSubModuleInfo_i(kDebugModule, levels, outputs);
}

void ModuleTable::SetAll_i(std::bitset<32> const& levels, std::bitset<32> const& outputs) {
  for (auto const& module : m_modules) {
    (void)module.second->SetLevelSet(levels);  // if its lock failed, errno says so
    (void)module.second->SetOutputSet(outputs);
  }
  ForgetSets();
}

void ModuleTable::GetAll_i(VeltDebugMgr::ModuleSets& out) const {
  for (auto const& [name, module] : m_modules) {
    SubModInfoState const& sets = SubModInfoState::Of(*module);
    out[name] = {sets.m_levelSet, sets.m_outputSet};
  }
}

bool ModuleTable::SetLevel_i(std::string const& name, VeltLogLevel level, bool on) {
  VeltDebugSubModInfo* const found = Find_i(ModuleOrDebug(name));
  bool const done = found != nullptr && found->SetLevel(static_cast<unsigned>(level), on);
  ForgetSets();
  return done;
}

bool ModuleTable::SetOutput_i(std::string const& name, VeltOutputDirection direction, bool on) {
  VeltDebugSubModInfo* const found = Find_i(ModuleOrDebug(name));
  bool const done = found != nullptr && found->SetOutput(static_cast<unsigned>(direction), on);
  ForgetSets();
  return done;
}

}  // namespace velt
