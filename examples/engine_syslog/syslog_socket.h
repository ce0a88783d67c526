// A datagram socket to a syslog daemon that never waits by itself.
#ifndef VELT_EXAMPLES_SYSLOG_SOCKET_H
#define VELT_EXAMPLES_SYSLOG_SOCKET_H

#include <chrono>
#include <string>

namespace velt::examples {

// SyslogSocket sends to a unix datagram socket by path. It connects when it first sends, and anew after the
// daemon has gone.
//
// Threads: one at a time.
// Errors:  nothing throws; Send says what became of the datagram.
class SyslogSocket {
 public:
  enum class Result {
    kSent,         // in the daemon's receive queue
    kFull,         // that queue has no room now
    kUnreachable,  // nobody listens at the path, or the system has no memory: worth another attempt later
    kRefused,      // this datagram can never be sent: larger than the socket takes
  };

  explicit SyslogSocket(std::string path);
  ~SyslogSocket();
  SyslogSocket(SyslogSocket const&) = delete;
  SyslogSocket& operator=(SyslogSocket const&) = delete;

  // Sends one datagram, or nothing of it. Returns at once.
  Result Send(std::string const& datagram);

  // Returns when there may be room again or the daemon has gone, after `limit` at the latest.
  void WaitForRoom(std::chrono::milliseconds limit) const;

 private:
  bool Connect();
  void Close();

  std::string const path_;
  int descriptor_ = -1;
};

}  // namespace velt::examples

#endif
