// A trace engine that keeps the log files of the library and hands every record on to another engine.
#ifndef VELT_EXAMPLES_ENGINE_TEE_H
#define VELT_EXAMPLES_ENGINE_TEE_H

#include <memory>
#include <string>

#include "velt/manager.h"

namespace velt::examples {

// Where a TeeEngine keeps its files, and within which limits.
struct TeeFiles {
  std::string directory;  // must exist; ends with '/'
  std::string prefix;     // what the names begin with
  std::string header;     // at the top of each file
  unsigned ring_records = 100;
  unsigned file_bytes = 5'242'880;
  unsigned archives = 30;
};

// TeeEngine has a channel of its own, since an engine takes the place of the manager's: each record goes into
// that, where its module's sets want it, and to the other engine, which decides for itself.
//
// Use:     RegDebugEngine(new TeeEngine(files, std::move(other))) on a manager that was initialised silent.
// Threads: every operation may be called from any thread; deleted once tracing has stopped, which writes
//          what the channel has accepted and then deletes the other engine.
// Errors:  what the other engine or a value throws reaches the caller, after the file has the record.
class TeeEngine : public VeltDebugEngine {
 public:
  // Owns `other`, which must not be null.
  TeeEngine(TeeFiles const& files, std::unique_ptr<VeltDebugEngine> other);

  // True when both took the record. A refusal of one keeps it from neither.
  bool Trace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn, bool print,
             bool log) override;

  // The same. The files are those of Trace: a sub-name, which the other engine gets, makes no family of its
  // own.
  bool AppTrace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn,
                bool print, bool log, std::string const& sub_name) override;

 private:
  bool Keep(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn, bool print,
            bool log);

  std::unique_ptr<VeltDebugEngine> other_;
  VeltDebugInfo channel_;  // ends first
};

}  // namespace velt::examples

#endif
