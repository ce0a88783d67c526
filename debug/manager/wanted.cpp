// Whether a record would reach anyone, asked before it is made.
#include <string>

#include "velt/manager.h"

namespace {

constexpr int kLevels = 32;

}  // namespace

bool VeltDebugMgr::IsWanted(std::string const& module, VeltLogLevel level) {
  if (!IsInit()) return false;
  // Relaxed: only whether there is one counts; the trace call that follows loads it itself.
  if (m_pEngine.load(std::memory_order_relaxed) != nullptr) return true;
  if (m_pChannel == nullptr || level < 0 || level >= kLevels || InheritedByFork()) return false;
  if (m_nFiltLogBufSize > 0) return true;  // the ring keeps what no output wants
  Flags const flags = ResolveFlags(module, level, {});
  return flags.print || flags.log;
}
