// The counts, the flush and the wait of all channels of the manager.
#include <chrono>
#include <map>
#include <string>

#include "velt/manager.h"

#include "debug/manager/manager_state.h"

bool VeltDebugMgr::GetCounts(std::map<std::string, VeltTraceCounts>& out) {
  return IsInit() && !m_pState->InheritedByFork() && m_pState->m_channels.GetCounts(out);
}

bool VeltDebugMgr::Flush(unsigned milliseconds) {
  if (!IsInit() || m_pState->InheritedByFork()) return false;
  return m_pState->m_channels.Flush(std::chrono::milliseconds(milliseconds));
}

void VeltDebugMgr::SetQueueWait(unsigned milliseconds) {
  if (!m_pState->InheritedByFork()) m_pState->m_channels.SetQueueWait(milliseconds);
}
