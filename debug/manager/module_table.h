// The modules of the manager, each with its level set and its output set.
#ifndef VELT_DEBUG_MANAGER_MODULE_TABLE_H
#define VELT_DEBUG_MANAGER_MODULE_TABLE_H

#include <bitset>
#include <map>
#include <string>

#include "velt/manager.h"

#include "platform/locks.h"

namespace velt {

// The caller of an operation ending in _i holds m_tableLock: as a writer if the operation changes something,
// else as a reader.
class ModuleTable {
 public:
  ModuleTable();
  ~ModuleTable();
  ModuleTable(ModuleTable const&) = delete;
  ModuleTable& operator=(ModuleTable const&) = delete;

  // Guards the modules, changes of the engine pointer, and Init. Taken before a module's own lock and before
  // the channel table's. Prefers writers, so no thread may take its read side twice.
  RwMutex m_tableLock;

  // VeltDebugMgr::RegSubModuleInfo.
  bool RegSubModuleInfo_i(std::string const& name, std::bitset<32> const& levels,
                          std::bitset<32> const& outputs, bool inheritDebug);

  // Registers the modules of a configuration file, after masking their sets.
  void RegisterConfigured_i(VeltDebugMgr::ModuleSets const& modules);

  // VeltDebugMgr::GetSubModuleInfo.
  bool GetSubModuleInfo_i(std::string const& name, std::bitset<32>& levels, std::bitset<32>& outputs) const;

  // The sets of `name`, or those of "debug" when it is not registered. Returns false when neither is.
  bool SetsOrDefault_i(std::string const& name, std::bitset<32>& levels, std::bitset<32>& outputs) const;

  void SetAll_i(std::bitset<32> const& levels, std::bitset<32> const& outputs);
  void GetAll_i(VeltDebugMgr::ModuleSets& out) const;

  // Sets or clears a bit of a module's sets; an empty name means "debug". Returns false when the module is
  // not registered or the index is above 32; index 32 throws std::out_of_range.
  bool SetLevel_i(std::string const& name, VeltLogLevel level, bool on);
  bool SetOutput_i(std::string const& name, VeltOutputDirection direction, bool on);

 private:
  VeltDebugSubModInfo* Find_i(std::string const& name) const;

  std::map<std::string, VeltDebugSubModInfo*> m_modules;  // owned; under m_tableLock
};

}  // namespace velt

#endif
