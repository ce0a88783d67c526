// Turns a trace record into one syslog datagram.
#ifndef VELT_EXAMPLES_SYSLOG_MESSAGE_H
#define VELT_EXAMPLES_SYSLOG_MESSAGE_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

namespace velt::examples {

// kLocal is what syslog(3) of the C library sends to /dev/log: RFC 3164 without a host name, in local time to
// the second. kRfc5424 has UTC with microseconds; the receiver must be configured for it.
enum class SyslogFormat { kLocal, kRfc5424 };

// The arguments of one trace call.
struct SyslogRecord {
  std::timespec time{};
  std::int64_t thread = 0;
  int level = 0;
  std::string module;
  std::string sub_name;
  std::string text;
  bool cut = false;  // `text` is the beginning of a longer text
};

// The severity of a trace level, 0 (emergency) to 7 (debug).
int SeverityOf(int level);

// SyslogFormatter turns records into datagrams. It keeps no state between records and may be used by one
// thread at a time.
class SyslogFormatter {
 public:
  // `ident` names the program; characters that would end the name at the receiver become '_'. `facility` is 0
  // to 23. A datagram has at most `most_bytes` bytes, which is at least kFewestBytes.
  SyslogFormatter(SyslogFormat format, std::string ident, int facility, std::size_t most_bytes);

  // The datagram of one record: the head and "T<thread> <module> <tag><text>". A line end at the end of the
  // text is left out. Every other control character except the tab becomes '#' and three octal digits, so
  // that a text cannot look like two messages. A text that does not fit is cut between characters and ends in
  // "...".
  std::string Format(SyslogRecord const& record) const;

  static constexpr std::size_t kFewestBytes = 480;

 private:
  std::string Head(SyslogRecord const& record) const;

  SyslogFormat const format_;
  std::string const ident_;
  int const facility_;
  std::size_t const most_bytes_;
  pid_t const pid_;
};

}  // namespace velt::examples

#endif
