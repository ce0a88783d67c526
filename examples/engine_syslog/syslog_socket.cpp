// Connects to the daemon's socket, sends, and tells the kinds of failure apart.
#include "syslog_socket.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace velt::examples {

SyslogSocket::SyslogSocket(std::string path) : path_(std::move(path)) {}

SyslogSocket::~SyslogSocket() { Close(); }

void SyslogSocket::Close() {
  if (descriptor_ != -1) close(descriptor_);
  descriptor_ = -1;
}

bool SyslogSocket::Connect() {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path_.empty() || path_.size() >= sizeof address.sun_path) return false;
  std::copy(path_.begin(), path_.end(), address.sun_path);
  descriptor_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (descriptor_ == -1) return false;
  if (connect(descriptor_, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0) return true;
  Close();
  return false;
}

SyslogSocket::Result SyslogSocket::Send(std::string const& datagram) {
  // A daemon that was restarted has a new socket at the same path, which the second attempt connects to.
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (descriptor_ == -1 && !Connect()) return Result::kUnreachable;
    ssize_t sent = -1;
    do {
      sent = send(descriptor_, datagram.data(), datagram.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    } while (sent == -1 && errno == EINTR);
    if (sent != -1) return Result::kSent;
    if (errno == EMSGSIZE) return Result::kRefused;
    if (errno == EAGAIN || errno == EWOULDBLOCK) return Result::kFull;
    if (errno == ENOBUFS || errno == ENOMEM) return Result::kUnreachable;  // poll cannot wait for memory
    Close();
  }
  return Result::kUnreachable;
}

void SyslogSocket::WaitForRoom(std::chrono::milliseconds limit) const {
  pollfd entry{descriptor_, POLLOUT, 0};
  (void)poll(&entry, 1, static_cast<int>(limit.count()));  // if it ends early, the caller tries once more
}

}  // namespace velt::examples
