// A trace engine that forwards every record to a syslog daemon instead of writing log files.
#ifndef VELT_EXAMPLES_ENGINE_SYSLOG_H
#define VELT_EXAMPLES_ENGINE_SYSLOG_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "velt/manager.h"

#include "syslog_message.h"

namespace velt::examples {

// How a SyslogEngine works.
struct SyslogOptions {
  std::string socket_path = "/dev/log";
  std::string ident = "velt";  // program name in the messages; a sub-name is appended with '_'
  int facility = 16;           // local0
  SyslogFormat format = SyslogFormat::kLocal;
  std::size_t most_datagram_bytes = 8192;          // what rsyslogd takes unless told otherwise
  std::size_t most_records = 10'000;               // bounds of the buffer: records, and
  std::size_t most_bytes = std::size_t{8} << 20U;  // their texts and module names
  std::chrono::milliseconds stop_limit{1000};      // for sending what is buffered at the end
  // Whether a record must pass the level and output sets of its module, as it must without an engine. False:
  // everything is forwarded.
  bool follow_module_sets = true;
};

// What became of the records that passed the sets. accepted = sent + lost + those still buffered.
struct SyslogCounters {
  std::uint64_t accepted = 0;  // Trace answered true
  std::uint64_t dropped = 0;   // Trace answered false: no room, stopped, no memory
  std::uint64_t sent = 0;      // handed to the daemon's socket
  std::uint64_t lost = 0;      // accepted, but still buffered at the end, or larger than the socket takes
};

// SyslogEngine copies each record into a bounded buffer; a thread of its own sends them, in order. Dropped
// records are made known to the daemon by a warning with their number, once a second at most.
//
// Use:     RegDebugEngine(new SyslogEngine(options)) on a manager that was initialised silent.
// Threads: every operation may be called from any thread; the engine is deleted once tracing has stopped. A
//          caller waits for the buffer's lock and, where sets are asked, as a reader for the module table;
//          never for the daemon.
// Errors:  nothing but the constructor throws, and nothing traces. An engine whose thread could not start
// drops every record. Fork:    in a child every call answers false, and deletion leaves what is the parent's
// alone.
class SyslogEngine : public VeltDebugEngine {
 public:
  explicit SyslogEngine(SyslogOptions const& options);
  ~SyslogEngine() override;  // Stop
  SyslogEngine(SyslogEngine const&) = delete;
  SyslogEngine& operator=(SyslogEngine const&) = delete;

  // True when the record is buffered, or its module's sets do not want it; false when it is gone. A null text
  // is refused. Each of `print` and `log` means that the record is wanted. A value is printed here, on the
  // caller's thread; one that throws leaves the text alone.
  bool Trace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn, bool print,
             bool log) override;
  bool AppTrace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn,
                bool print, bool log, std::string const& sub_name) override;

  // Refuses further records, sends what is buffered for at most the stop limit and ends the thread. Further
  // calls do nothing.
  void Stop();

  SyslogCounters Counters() const;

 private:
  class Sender;

  bool IsWanted(std::string const& module, VeltLogLevel level, bool print, bool log) const;

  SyslogOptions const options_;
  std::unique_ptr<Sender> sender_;
};

}  // namespace velt::examples

#endif
