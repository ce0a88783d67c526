// The open file of a channel: open, append, close, size.
#ifndef VELT_DEBUG_CHANNEL_LOG_FILE_H
#define VELT_DEBUG_CHANNEL_LOG_FILE_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace velt {

// One file that is being written.
//
// Ownership: owns the descriptor and closes it on destruction.
// Threads:   one at a time: the channel's output thread, and the destroying thread after it has ended.
// Errors:    nothing throws. A failed call returns false with errno set.
// Units:     bytes in the file, the byte order mark included.
class LogFile {
 public:
  LogFile() = default;
  ~LogFile();
  LogFile(LogFile const&) = delete;
  LogFile& operator=(LogFile const&) = delete;

  // Creates or truncates `path`. Returns false when it cannot be opened.
  bool Open(std::string const& path);

  // Creates `path`. Returns false when it cannot be created; with errno EEXIST when the name exists, and what
  // has it is left alone.
  bool Create(std::string const& path);

  // Writes all of `text`. Returns false when the device refuses it: its beginning may be in the file, and
  // counts in Size().
  bool Append(char const* text, std::size_t length);

  // The position of the next byte.
  std::uint32_t Size() const { return size_; }

 private:
  int file_ = -1;
  std::uint32_t size_ = 0;
};

}  // namespace velt

#endif
