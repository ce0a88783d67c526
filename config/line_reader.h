// Reads a configuration file line by line, without a string for each line.
#ifndef VELT_CONFIG_LINE_READER_H
#define VELT_CONFIG_LINE_READER_H

#include <array>
#include <cstddef>
#include <string_view>

namespace velt {

inline constexpr std::size_t kLongestLine = 2047;  // characters, without the newline

// LineReader reads the lines of one file, first to last. A look-up has one on its stack.
//
// Ownership: owns the descriptor and closes it on destruction.
// Threads:   one reader belongs to one thread.
// Errors:    nothing throws and nothing is allocated. A read error counts as the end of the file.
class LineReader {
 public:
  explicit LineReader(char const* path) noexcept;
  ~LineReader();
  LineReader(LineReader const&) = delete;
  LineReader& operator=(LineReader const&) = delete;

  // Whether the file could be opened. A directory opens, but has no lines.
  bool IsOpen() const noexcept { return fd_ != -1; }

  // Sets `line` to the next line without its newline, valid until the next call. A line over kLongestLine
  // characters is cut to that many, and ends the file. Returns false when there are no more lines.
  bool Next(std::string_view& line) noexcept;

 private:
  bool Fill() noexcept;

  static constexpr std::size_t kCapacity = 8192;
  static_assert(kCapacity > kLongestLine, "a line of full length and its newline have room");

  int fd_;
  bool ended_ = false;
  std::size_t begin_ = 0;  // the part of the buffer that Next has not returned yet
  std::size_t end_ = 0;
  std::array<char, kCapacity> buffer_;  // not zeroed: only bytes that were read are looked at
};

}  // namespace velt

#endif
