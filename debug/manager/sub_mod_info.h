// The level and output sets of one module.
#ifndef VELT_DEBUG_MANAGER_SUB_MOD_INFO_H
#define VELT_DEBUG_MANAGER_SUB_MOD_INFO_H

#include <bitset>
#include <string>

#include "velt/manager.h"

#include "platform/locks.h"

namespace velt {

struct SubModInfoState {
  static SubModInfoState& Of(VeltDebugSubModInfo const& module) { return *module.m_pState; }

  RwMutex m_lock;               // guards writes to the two sets; the manager reads them under m_tableLock
  std::bitset<32> m_levelSet;   // levels that pass
  std::bitset<32> m_outputSet;  // outputs that receive what passes
  std::string m_strText;        // kept and unused
};

}  // namespace velt

#endif
