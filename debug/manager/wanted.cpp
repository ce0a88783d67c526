// Tells whether a record would be taken, before it is made.
#include <string>

#include "velt/manager.h"

#include "debug/manager/manager_state.h"
#include "debug/manager/routing.h"

namespace {

constexpr int kLevels = 32;

}  // namespace

bool VeltDebugMgr::IsWanted(std::string const& module, VeltLogLevel level) {
  if (!IsInit()) return false;
  // Relaxed: the engine is not used here; the trace call that follows loads the pointer itself.
  if (m_pState->m_pEngine.load(std::memory_order_relaxed) != nullptr) return true;
  if (m_pState->m_pChannel == nullptr || level < 0 || level >= kLevels || m_pState->InheritedByFork())
    return false;
  if (m_pState->m_limits.m_nFiltLogBufSize > 0) return true;  // the ring keeps what no output wants
  velt::OutputFlags const flags = velt::ResolveFlags(*m_pState, module, level, {});
  return flags.print || flags.log;
}
