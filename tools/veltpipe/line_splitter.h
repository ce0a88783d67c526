// Cuts a stream of bytes into the messages that veltpipe traces.
#ifndef VELT_TOOLS_VELTPIPE_LINE_SPLITTER_H
#define VELT_TOOLS_VELTPIPE_LINE_SPLITTER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace velt::tools {

// LineSplitter hands each line, without its newline, to a sink: as one message, or as several where it is
// longer than the library takes. A NUL byte becomes the two characters \0. On request every control character
// becomes \xNN for each of its bytes. A message never ends within such a form, nor within a UTF-8 sequence as
// long as the bytes are UTF-8.
//
// Memory: one message, however long a line is.
class LineSplitter {
 public:
  static constexpr std::size_t kLongestMessage = 2048;  // bytes that a channel traces of one message

  using Sink = std::function<void(std::string const& message)>;

  LineSplitter(bool escape, Sink sink);

  // Takes the next bytes of the stream and calls the sink for every message that they complete.
  void Push(std::string_view bytes);

  // The stream has ended: what came after the last newline, if anything, is a line too.
  void Finish();

  std::uint64_t Lines() const { return lines_; }  // completed so far

 private:
  void AppendByte(char byte);
  void Append(std::string_view piece);
  void EmitHead();
  void EmitLine();

  bool const escape_;
  Sink sink_;
  std::string pending_;  // of the current line, at most kLongestMessage
  std::uint64_t lines_ = 0;
};

}  // namespace velt::tools

#endif
