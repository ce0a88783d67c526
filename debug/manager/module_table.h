// The modules of the manager, each with its level and its output set.
#ifndef VELT_DEBUG_MANAGER_MODULE_TABLE_H
#define VELT_DEBUG_MANAGER_MODULE_TABLE_H

#include <bitset>
#include <map>
#include <string>

#include "velt/manager.h"

#include "platform/locks.h"

namespace velt {

// Operations ending in _i expect m_tableLock held: for writing where they change something, else for reading.
class ModuleTable {
 public:
  ModuleTable();
  ~ModuleTable();
  ModuleTable(ModuleTable const&) = delete;
  ModuleTable& operator=(ModuleTable const&) = delete;

  // Guards the modules, the engine pointer and the change to initialised. Taken before a module's own lock
  // and before the channel table's. Prefers writers, so no thread may take its read side twice.
  RwMutex m_tableLock;

  // VeltDebugMgr::RegSubModuleInfo.
  bool RegSubModuleInfo_i(std::string const& name, std::bitset<32> const& levels,
                          std::bitset<32> const& outputs, bool inheritDebug);

  // Registers the modules of a configuration file, with the mask that their sets get.
  void RegisterConfigured_i(VeltDebugMgr::ModuleSets const& modules);

  // VeltDebugMgr::GetSubModuleInfo.
  bool GetSubModuleInfo_i(std::string const& name, std::bitset<32>& levels, std::bitset<32>& outputs) const;

  // The sets of `name`, or those of "debug" when it is not registered. Returns false when neither is.
  bool SetsOrDefault_i(std::string const& name, std::bitset<32>& levels, std::bitset<32>& outputs) const;

  void SetAll_i(std::bitset<32> const& levels, std::bitset<32> const& outputs);
  void GetAll_i(VeltDebugMgr::ModuleSets& out) const;

  // Sets or clears a bit of a module's sets; an empty name is "debug". Returns false when it is not
  // registered or the index is refused; an index of 32 throws std::out_of_range.
  bool SetLevel_i(std::string const& name, VeltLogLevel level, bool on);
  bool SetOutput_i(std::string const& name, VeltOutputDirection direction, bool on);

 private:
  VeltDebugSubModInfo* Find_i(std::string const& name) const;

  std::map<std::string, VeltDebugSubModInfo*> m_modules;  // owns; under m_tableLock
};

}  // namespace velt

#endif
