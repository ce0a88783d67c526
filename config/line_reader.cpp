#include "config/line_reader.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/descriptor.h"

namespace velt {

LineReader::LineReader(char const* path) noexcept
    : fd_(OpenAboveStandard(path, O_RDONLY)), ended_(fd_ == -1) {}

LineReader::~LineReader() {
  if (fd_ != -1) (void)close(fd_);  // only read from: a failing close loses nothing
}

bool LineReader::Next(std::string_view& line) noexcept {
  std::size_t looked_at = 0;  // characters of this line that were searched for the newline
  while (!ended_) {
    char const* const first = buffer_.data() + begin_;
    std::size_t const available = end_ - begin_;
    std::size_t const whole = available > kLongestLine ? kLongestLine + 1 : available;
    if (void const* const newline = std::memchr(first + looked_at, '\n', whole - looked_at)) {
      line = {first, static_cast<std::size_t>(static_cast<char const*>(newline) - first)};
      begin_ += line.size() + 1;
      return true;
    }
    looked_at = whole;
    if (available <= kLongestLine && Fill()) continue;
    ended_ = true;
    line = {buffer_.data() + begin_, available > kLongestLine ? kLongestLine : available};
    return true;
  }
  return false;
}

// Moves the unread rest to the front of the buffer and reads more behind it. Returns false at the end of the
// file and on an error.
bool LineReader::Fill() noexcept {
  std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
  end_ -= begin_;
  begin_ = 0;
  ssize_t count = -1;
  do {
    count = read(fd_, buffer_.data() + end_, buffer_.size() - end_);
  } while (count == -1 && errno == EINTR);
  if (count <= 0) return false;
  end_ += static_cast<std::size_t>(count);
  return true;
}

}  // namespace velt
