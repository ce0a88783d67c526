#include "platform/message_format.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

namespace velt {
namespace {

// A text of bounded length that counts what does not fit as cut.
class BoundedText {
 public:
  BoundedText(char* buffer, std::size_t capacity)
      : at_(buffer), begin_(buffer), end_(buffer + capacity - 1) {}

  void Add(char const* text, std::size_t length) {
    auto const room = static_cast<std::size_t>(end_ - at_);
    std::size_t const kept = length < room ? length : room;
    std::memcpy(at_, text, kept);
    at_ += kept;
  }
  void AddText(char const* text) {
    if (text == nullptr) text = "(null)";  // as the C library prints it
    Add(text, strnlen(text, static_cast<std::size_t>(end_ - at_)));
  }
  template <typename Number>
  void AddNumber(Number number) {
    char digits[24];
    char* const last = std::to_chars(digits, digits + sizeof digits, number).ptr;
    Add(digits, static_cast<std::size_t>(last - digits));
  }
  int Finish() {
    *at_ = '\0';
    return static_cast<int>(at_ - begin_);
  }

 private:
  char* at_;
  char* begin_;
  char* end_;  // of the room for characters; the NUL goes there at the latest
};

// Expands one plain conversion; `format` points behind its '%' and is moved past it. False for any other.
bool AddConversion(BoundedText& out, char const*& format, std::va_list& args) {
  bool const is_size = *format == 'z';
  bool const is_long = *format == 'l' || is_size;
  if (is_long) ++format;
  char const kind = *format++;
  if ((kind == 'd' || kind == 'i') && !is_size) {
    is_long ? out.AddNumber(va_arg(args, long)) : out.AddNumber(va_arg(args, int));
  } else if (kind == 'u') {
    is_long ? out.AddNumber(va_arg(args, unsigned long)) : out.AddNumber(va_arg(args, unsigned));
  } else if (kind == 's' && !is_long) {
    out.AddText(va_arg(args, char const*));
  } else if (kind == 'c' && !is_long) {
    auto const character = static_cast<char>(va_arg(args, int));
    out.Add(&character, 1);
  } else if (kind == '%' && !is_long) {
    out.Add("%", 1);
  } else {
    return false;
  }
  return true;
}

// Expands a format of plain %d %i %u %ld %lu %zu %c %s and %%, which is what nearly all trace calls use, in
// less than half of vsnprintf's time. Returns false, with the buffer in any state, at anything else.
bool FormatPlain(BoundedText& out, char const* format, std::va_list& args) {
  while (char const* const percent = std::strchr(format, '%')) {
    out.Add(format, static_cast<std::size_t>(percent - format));
    format = percent + 1;
    if (!AddConversion(out, format, args)) return false;
  }
  out.AddText(format);
  return true;
}

// Whether a width or precision is written out that the C library would pad for seconds, while the caller
// waits, only to have the result cut to the buffer. Such a format is a mistake and fails at once.
bool AsksForGiantField(char const* format) {
  constexpr int kMostDigits = 6;
  for (char const* at = std::strchr(format, '%'); at != nullptr; at = std::strchr(at, '%')) {
    ++at;
    if (*at == '%') {
      ++at;
      continue;
    }
    for (at += std::strspn(at, "-+ #'0");
         *at != '\0' && std::strchr("0123456789.*$-+ #'I", *at) != nullptr;) {
      std::size_t const digits = std::strspn(at, "0123456789");
      if (digits > kMostDigits) return true;
      at += digits == 0 ? 1 : digits;
    }
  }
  return false;
}

}  // namespace

int FormatMessage(char* buffer, std::size_t capacity, char const* format, std::va_list args) {
  buffer[0] = '\0';
  if (format == nullptr) {
    errno = EINVAL;
    return -1;
  }
  std::va_list plain;
  va_copy(plain, args);
  BoundedText text(buffer, capacity);
  bool const done = FormatPlain(text, format, plain);
  va_end(plain);
  if (done) return text.Finish();

  buffer[0] = '\0';  // the attempt above has left its head there
  if (AsksForGiantField(format)) {
    errno = EOVERFLOW;
    return -1;
  }
  int const length = std::vsnprintf(buffer, capacity, format, args);
  buffer[capacity - 1] = '\0';  // an expansion that fails half-way need not have ended what it wrote
  if (length < 0) return -1;
  return static_cast<std::size_t>(length) < capacity ? length : static_cast<int>(capacity - 1);
}

}  // namespace velt
