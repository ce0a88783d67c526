// Reads a configuration file line by line, without a string for each line.
#ifndef VELT_CONFIG_LINE_READER_H
#define VELT_CONFIG_LINE_READER_H

#include <array>
#include <cstddef>
#include <string_view>

namespace velt {

inline constexpr std::size_t kLongestLine = 2047;  // characters, the newline not counted

// LineReader gives the lines of one file in their order. It lives on the stack of a look-up.
//
// Ownership: owns the descriptor and closes it on destruction.
// Threads:   one reader belongs to one thread.
// Errors:    nothing throws and nothing is allocated. A read error ends the file where it happens.
class LineReader {
 public:
  explicit LineReader(char const* path) noexcept;
  ~LineReader();
  LineReader(LineReader const&) = delete;
  LineReader& operator=(LineReader const&) = delete;

  // Whether the file could be opened. A directory can be; it has no lines.
  bool IsOpen() const noexcept { return fd_ != -1; }

  // Gives the next line without its newline; it is valid until the next call. A longer line gives its first
  // kLongestLine characters and is the last. Returns false behind the last line.
  bool Next(std::string_view& line) noexcept;

 private:
  bool Fill() noexcept;

  static constexpr std::size_t kCapacity = 8192;
  static_assert(kCapacity > kLongestLine, "a line of full length and its newline have room");

  int fd_;
  bool ended_ = false;
  std::size_t begin_ = 0;  // of what is read and not yet given
  std::size_t end_ = 0;
  std::array<char, kCapacity> buffer_;  // not zeroed: only what was read is looked at
};

}  // namespace velt

#endif
