#include "debug/channel/log_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "platform/descriptor.h"

namespace velt {
namespace {

constexpr mode_t kCreationMode =
    0666;  // as the C++ library creates files; the channel sets the mode it wants

}  // namespace

LogFile::~LogFile() {
  if (file_ != -1) (void)close(file_);  // there is no buffer: a failing close loses nothing
}

bool LogFile::Open(std::string const& path) {
  file_ = OpenAboveStandard(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, kCreationMode);
  return file_ != -1;
}

bool LogFile::Create(std::string const& path) {
  file_ = OpenAboveStandard(path.c_str(), O_WRONLY | O_CREAT | O_EXCL, kCreationMode);
  return file_ != -1;
}

bool LogFile::Append(char const* text, std::size_t length) {
  while (length > 0) {
    ssize_t const written = write(file_, text, length);
    if (written == -1 && errno == EINTR) continue;
    if (written <= 0) return false;
    size_ += static_cast<std::uint32_t>(written);
    text += written;
    length -= static_cast<std::size_t>(written);
  }
  return true;
}

}  // namespace velt
