// A trace engine that writes the library's log files and passes every record on to another engine.
#ifndef VELT_EXAMPLES_ENGINE_TEE_H
#define VELT_EXAMPLES_ENGINE_TEE_H

#include <memory>
#include <string>

#include "velt/manager.h"

namespace velt::examples {

// Where a TeeEngine writes its files, and their limits.
struct TeeFiles {
  std::string directory;  // must exist; ends with '/'
  std::string prefix;     // what the names begin with
  std::string header;     // at the top of each file
  unsigned ring_records = 100;
  unsigned file_bytes = 5'242'880;
  unsigned archives = 30;
};

// TeeEngine has a channel of its own, since the manager's channels get no records while an engine is
// registered. A record goes into that channel as its module's sets say, and always to the other engine, which
// decides for itself.
//
// Use:     RegDebugEngine(new TeeEngine(files, std::move(other))) on a manager that was initialised silent.
// Threads: every operation may be called from any thread. Delete it once tracing has stopped: that writes
//          what the channel has accepted and then deletes the other engine.
// Errors:  what the other engine or a value throws reaches the caller, after the file has the record.
class TeeEngine : public VeltDebugEngine {
 public:
  // Owns `other`, which must not be null.
  TeeEngine(TeeFiles const& files, std::unique_ptr<VeltDebugEngine> other);

  // Returns true when both took the record. Each gets it even if the other refuses it.
  bool Trace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn, bool print,
             bool log) override;

  // The same. The record goes to the same files: a sub-name is passed on, but has no family of its own here.
  bool AppTrace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn,
                bool print, bool log, std::string const& sub_name) override;

  // Waits until the files have all that was accepted before the call; false when that takes longer.
  bool FlushFiles(unsigned milliseconds) { return channel_.Flush(milliseconds); }

  // What became of the records of the files. VeltDebugMgr::GetCounts does not know this channel.
  VeltTraceCounts FileCounts() const { return channel_.Counts(); }

 private:
  bool Keep(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn, bool print,
            bool log);

  std::unique_ptr<VeltDebugEngine> other_;
  VeltDebugInfo channel_;  // declared last, so destroyed first
};

}  // namespace velt::examples

#endif
