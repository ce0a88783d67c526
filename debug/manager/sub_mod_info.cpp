#include "debug/manager/sub_mod_info.h"

#include <memory>
#include <stdexcept>

namespace {

using velt::SubModInfoState;

bool SetBit(SubModInfoState& state, std::bitset<32>& set, unsigned int index, bool on) {
  velt::WriteLock const lock(state.m_lock);
  if (!lock.locked()) return false;
  // Index 32 is let through: set() throws std::out_of_range for it, as the public header says.
  if (index > set.size()) return false;
  set.set(index, on);
  return true;
}

bool Replace(SubModInfoState& state, std::bitset<32>& set, std::bitset<32> const& value) {
  velt::WriteLock const lock(state.m_lock);
  if (!lock.locked()) return false;
  set = value;
  return true;
}

}  // namespace

VeltDebugSubModInfo::VeltDebugSubModInfo(std::bitset<32> const& levels, std::bitset<32> const& outputs) {
  auto state = std::make_unique<SubModInfoState>();
  state->m_levelSet = levels;
  state->m_outputSet = outputs;
  m_pState = state.release();
}

VeltDebugSubModInfo::~VeltDebugSubModInfo() { delete m_pState; }

bool VeltDebugSubModInfo::SetLevel(unsigned int level, bool on) {
  return SetBit(*m_pState, m_pState->m_levelSet, level, on);
}

bool VeltDebugSubModInfo::SetOutput(unsigned int direction, bool on) {
  return SetBit(*m_pState, m_pState->m_outputSet, direction, on);
}

bool VeltDebugSubModInfo::SetLevelSet(std::bitset<32> const& levels) {
  return Replace(*m_pState, m_pState->m_levelSet, levels);
}

bool VeltDebugSubModInfo::SetOutputSet(std::bitset<32> const& outputs) {
  return Replace(*m_pState, m_pState->m_outputSet, outputs);
}
