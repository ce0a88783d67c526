// Cuts a stream of bytes into the messages that veltpipe traces.
#ifndef VELT_TOOLS_VELTPIPE_LINE_SPLITTER_H
#define VELT_TOOLS_VELTPIPE_LINE_SPLITTER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace velt::tools {

// LineSplitter passes each line, without its newline, to a sink: as one message, or as several if it is
// longer than the library takes. A NUL byte becomes the two characters \0. With `escape`, each byte of a
// control character becomes \xNN. A message never ends inside such an escape, nor inside a UTF-8 sequence if
// the bytes are UTF-8.
//
// Memory: one message, however long a line is.
class LineSplitter {
 public:
  static constexpr std::size_t kLongestMessage = 2048;  // bytes; a channel cuts longer messages

  using Sink = std::function<void(std::string const& message)>;

  LineSplitter(bool escape, Sink sink);

  // Takes the next bytes of the stream and calls the sink for every message that they complete.
  void Push(std::string_view bytes);

  // Call it at the end of the stream: bytes after the last newline become a line.
  void Finish();

  std::uint64_t Lines() const { return lines_; }  // lines completed so far

 private:
  void AppendByte(char byte);
  void Append(std::string_view piece);
  void EmitHead();
  void EmitLine();

  bool const escape_;
  Sink sink_;
  std::string pending_;  // the message being collected, at most kLongestMessage
  std::uint64_t lines_ = 0;
};

}  // namespace velt::tools

#endif
