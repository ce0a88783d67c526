// The engine: it decides by the module's sets what the file gets, and passes every record on.
#include "engine_tee.h"

#include <bitset>
#include <utility>

namespace velt::examples {

TeeEngine::TeeEngine(TeeFiles const& files, std::unique_ptr<VeltDebugEngine> other)
    : other_(std::move(other)),
      channel_(files.directory, files.prefix, files.header, false, false, files.ring_records,
               files.file_bytes, files.archives, 1, false) {}

bool TeeEngine::Trace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn,
                      bool print, bool log) {
  bool const kept = Keep(module, level, text, asn, print, log);
  return other_->Trace(module, level, text, asn, print, log) && kept;
}

bool TeeEngine::AppTrace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn,
                         bool print, bool log, std::string const& sub_name) {
  bool const kept = Keep(module, level, text, asn, print, log);
  return other_->AppTrace(module, level, text, asn, print, log, sub_name) && kept;
}

// Does what the manager does without an engine: a record of a level in the module's set goes to the module's
// outputs, any other into the ring.
bool TeeEngine::Keep(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn,
                     bool print, bool log) {
  std::bitset<32> levels;
  std::bitset<32> outputs;
  VeltDebugMgr* const manager = VeltDebugMgr::Instance();
  bool const known = manager->GetSubModuleInfo(module, levels, outputs) ||
                     manager->GetSubModuleInfo("debug", levels, outputs);
  if (known && level >= 0 && level < 32 && levels[static_cast<std::size_t>(level)]) {
    print = print || outputs[0];
    log = log || outputs[1];
  }
  return channel_.Trace(module, level, text, asn, print, log);
}

}  // namespace velt::examples
