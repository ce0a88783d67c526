// A datagram socket on which a test is the syslog daemon.
#ifndef VELT_TESTS_SUPPORT_SYSLOG_DAEMON_H
#define VELT_TESTS_SUPPORT_SYSLOG_DAEMON_H

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/running_program.h"

namespace velt::test {

// The socket of a daemon; the destructor closes it and removes its path.
class SyslogDaemon {
 public:
  explicit SyslogDaemon(std::string path)
      : path_(std::move(path)), socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path_.copy(address.sun_path, sizeof address.sun_path - 1);
    if (bind(socket_, reinterpret_cast<sockaddr const*>(&address), sizeof address) != 0) {
      throw std::runtime_error("cannot bind " + path_);
    }
  }
  ~SyslogDaemon() { unlink(path_.c_str()); }
  SyslogDaemon(SyslogDaemon const&) = delete;
  SyslogDaemon& operator=(SyslogDaemon const&) = delete;

  // The next datagram; none when none comes within `limit`.
  std::optional<std::string> Receive(
      std::chrono::milliseconds limit = std::chrono::milliseconds(60'000)) const {
    pollfd entry{socket_, POLLIN, 0};
    if (poll(&entry, 1, static_cast<int>(limit.count())) != 1) return std::nullopt;
    ssize_t const size = recv(socket_, nullptr, 0, MSG_PEEK | MSG_TRUNC);
    if (size < 0) return std::nullopt;
    std::string datagram(static_cast<std::size_t>(size), '\0');
    if (recv(socket_, datagram.data(), datagram.size(), 0) != size) return std::nullopt;
    return datagram;
  }

  // The next message from its tag on, "I: text"; the whole datagram if it is not a message of the engine.
  std::string Text(std::chrono::milliseconds limit = std::chrono::milliseconds(60'000)) const {
    std::string const datagram = Receive(limit).value_or("nothing");
    std::size_t const tag = datagram.find(" net ");
    return tag == std::string::npos ? datagram : datagram.substr(tag + 5);
  }

  // The next `count` of these. When no more come the list is shorter and ends in "nothing".
  std::vector<std::string> Texts(std::size_t count) const {
    std::vector<std::string> texts;
    while (texts.size() < count && (texts.empty() || texts.back() != "nothing")) texts.push_back(Text());
    return texts;
  }

  // The records in the receive queue, without the notices of dropped records.
  std::vector<std::string> RecordsWaiting() const {
    std::vector<std::string> texts;
    for (std::string text = Text(std::chrono::milliseconds(0)); text != "nothing";
         text = Text(std::chrono::milliseconds(0))) {
      if (text.find(" engine_syslog W: ") == std::string::npos) texts.push_back(text);
    }
    return texts;
  }

  bool IsSilent() const { return !Receive(std::chrono::milliseconds(0)).has_value(); }

 private:
  std::string path_;
  Descriptor socket_;
};

}  // namespace velt::test

#endif
