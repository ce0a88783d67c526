// A datagram socket to a syslog daemon; sending never blocks.
#ifndef VELT_EXAMPLES_SYSLOG_SOCKET_H
#define VELT_EXAMPLES_SYSLOG_SOCKET_H

#include <chrono>
#include <string>

namespace velt::examples {

// SyslogSocket sends to a unix datagram socket by path. It connects at the first Send, and again after the
// daemon has gone.
//
// Threads: one at a time.
// Errors:  nothing throws; Send returns what happened to the datagram.
class SyslogSocket {
 public:
  enum class Result {
    kSent,         // in the daemon's receive queue
    kFull,         // that queue has no room now
    kUnreachable,  // no daemon at the path, or the system has no memory: try again later
    kRefused,      // this datagram is larger than the socket takes: do not try again
  };

  explicit SyslogSocket(std::string path);
  ~SyslogSocket();
  SyslogSocket(SyslogSocket const&) = delete;
  SyslogSocket& operator=(SyslogSocket const&) = delete;

  // Sends the whole datagram or nothing. Returns at once.
  Result Send(std::string const& datagram);

  // Returns when there may be room again, when the daemon has gone, or after `limit`.
  void WaitForRoom(std::chrono::milliseconds limit) const;

 private:
  bool Connect();
  void Close();

  std::string const path_;
  int descriptor_ = -1;
};

}  // namespace velt::examples

#endif
