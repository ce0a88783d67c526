// Cuts a stream of bytes into the messages that veltpipe traces.
#include "tools/veltpipe/line_splitter.h"

#include <utility>

namespace velt::tools {
namespace {

std::size_t SequenceLength(unsigned char lead) {
  if (lead >= 0xF0) return 4;
  if (lead >= 0xE0) return 3;
  return lead >= 0xC0 ? 2 : 1;
}

// The largest length at which `text` can be cut without dividing the UTF-8 sequence at its end; the whole
// length when that sequence is complete, or the last bytes are not UTF-8.
std::size_t WholeSequences(std::string const& text) {
  for (std::size_t back = 1; back <= 3 && back < text.size(); ++back) {
    auto const byte = static_cast<unsigned char>(text[text.size() - back]);
    if ((byte & 0xC0U) == 0x80U) continue;  // inside a sequence
    return SequenceLength(byte) > back ? text.size() - back : text.size();
  }
  return text.size();
}

std::string Escaped(unsigned char byte) {
  constexpr char const* kDigits = "0123456789abcdef";
  return std::string("\\x") + kDigits[byte >> 4U] + kDigits[byte & 0xFU];
}

}  // namespace

LineSplitter::LineSplitter(bool escape, Sink sink) : escape_(escape), sink_(std::move(sink)) {
  pending_.reserve(kLongestMessage);
}

void LineSplitter::Push(std::string_view bytes) {
  for (char const byte : bytes) {
    if (byte == '\n') {
      EmitLine();
    } else {
      AppendByte(byte);
    }
  }
}

void LineSplitter::Finish() {
  if (!pending_.empty()) EmitLine();
}

void LineSplitter::AppendByte(char byte) {
  auto const value = static_cast<unsigned char>(byte);
  // Terminals also obey U+0080 to U+009F. In UTF-8 they are C2 and a byte with that number.
  bool const ends_control = value >= 0x80 && value < 0xA0 && !pending_.empty() && pending_.back() == '\xC2';
  if (escape_ && ends_control) {
    pending_.pop_back();
    Append("\\xc2" + Escaped(value));
  } else if (escape_ && (value < 0x20 || value == 0x7F)) {
    Append(Escaped(value));
  } else if (byte == '\0') {
    Append("\\0");
  } else {
    Append({&byte, 1});
  }
}

void LineSplitter::Append(std::string_view piece) {
  if (pending_.size() + piece.size() > kLongestMessage) EmitHead();
  pending_ += piece;
}

void LineSplitter::EmitHead() {
  std::string rest = pending_.substr(WholeSequences(pending_));
  pending_.resize(pending_.size() - rest.size());
  sink_(pending_);
  pending_ = std::move(rest);
}

void LineSplitter::EmitLine() {
  ++lines_;
  sink_(pending_);
  pending_.clear();
}

}  // namespace velt::tools
