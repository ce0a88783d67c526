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

// The settings of a SyslogEngine.
struct SyslogOptions {
  std::string socket_path = "/dev/log";
  std::string ident = "velt";  // program name in the messages; a sub-name is appended with '_'
  int facility = 16;           // local0
  SyslogFormat format = SyslogFormat::kLocal;
  std::size_t most_datagram_bytes = 8192;          // rsyslogd's default limit
  std::size_t most_records = 10'000;               // limit of the buffer
  std::size_t most_bytes = std::size_t{8} << 20U;  // limit of the buffered texts and module names
  std::chrono::milliseconds room_limit{0};         // how long a call waits for room in the buffer
  std::chrono::milliseconds stop_limit{1000};      // how long Stop sends what is buffered
  // Whether only records that pass the level and output sets of their module are forwarded, as without an
  // engine. False: every record is forwarded.
  bool follow_module_sets = true;
};

// Counts of the records that passed the sets. accepted = sent + lost + those still buffered.
struct SyslogCounters {
  std::uint64_t accepted = 0;  // Trace returned true
  std::uint64_t dropped = 0;   // Trace returned false: no room, stopped, no memory
  std::uint64_t sent = 0;      // handed to the daemon's socket
  std::uint64_t lost = 0;      // accepted, but still buffered at the end, or larger than the socket takes
};

// SyslogEngine copies each record into a bounded buffer; a thread of its own sends them, in order. It tells
// the daemon of dropped records by a warning with their number, at most once a second.
//
// Use:     RegDebugEngine(new SyslogEngine(options)) on a manager that was initialised silent.
// Threads: every operation may be called from any thread; the engine is deleted once tracing has stopped. A
//          caller waits for the buffer's lock and, if sets are asked for, for the module table's lock as a
//          reader; for the daemon only while the buffer is full, and at most `room_limit`.
// Errors:  only the constructor throws, and nothing traces. An engine whose thread could not start drops
//          every record.
//
// Fork: in a child every call returns false, and deleting the engine does not touch the parent's resources.
class SyslogEngine : public VeltDebugEngine {
 public:
  explicit SyslogEngine(SyslogOptions const& options);
  ~SyslogEngine() override;  // calls Stop
  SyslogEngine(SyslogEngine const&) = delete;
  SyslogEngine& operator=(SyslogEngine const&) = delete;

  // Returns true when the record is buffered, or its module's sets do not want it; false when it is lost. A
  // null text is refused. With `print` or `log` the record is wanted whatever the sets say. An ASN value is
  // printed here, on the caller's thread; if that throws, the text is sent without the value.
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
