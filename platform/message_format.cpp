#include "platform/message_format.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "platform/format_fields.h"
#include "platform/plain_vsnprintf.h"

namespace velt {
namespace {

// A text of bounded length; what does not fit is cut.
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
    if (text == nullptr) text = "(null)";  // the C library's text for it
    Add(text, strnlen(text, static_cast<std::size_t>(end_ - at_)));
  }
  template <typename Number>
  void AddNumber(Number number) {
    constexpr std::ptrdiff_t kMostDigits = 24;
    if (end_ - at_ >= kMostDigits) {
      at_ = std::to_chars(at_, end_, number).ptr;
      return;
    }
    std::array<char, kMostDigits> digits;
    char* const last = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    Add(digits.data(), static_cast<std::size_t>(last - digits.data()));
  }
  std::size_t Finish() {
    *at_ = '\0';
    return static_cast<std::size_t>(at_ - begin_);
  }

 private:
  char* at_;
  char* begin_;
  char* end_;  // the last byte of the buffer, which is kept for the NUL
};

// Expands the conversion behind an 'l'. Returns false for any but d, i and u.
inline bool AddLong(BoundedText& out, char kind, std::va_list& args) {
  if (kind == 'd' || kind == 'i') {
    out.AddNumber(va_arg(args, long));
  } else if (kind == 'u') {
    out.AddNumber(va_arg(args, unsigned long));
  } else {
    return false;
  }
  return true;
}

// Expands one plain conversion; `format` points behind its '%' and is moved past it. Returns false for any
// other conversion, and for %c of a NUL.
inline bool AddConversion(BoundedText& out, char const*& format, std::va_list& args) {
  switch (*format++) {
    case 's':
      out.AddText(va_arg(args, char const*));
      return true;
    case 'd':
    case 'i':
      out.AddNumber(va_arg(args, int));
      return true;
    case 'u':
      out.AddNumber(va_arg(args, unsigned));
      return true;
    case 'c': {
      auto const character = static_cast<char>(va_arg(args, int));
      // A NUL ends the text, but the characters behind it still count as kept: left to vsnprintf.
      if (character == '\0') return false;
      out.Add(&character, 1);
      return true;
    }
    case '%':
      out.Add("%", 1);
      return true;
    case 'l':
      return AddLong(out, *format++, args);
    case 'z':
      if (*format++ != 'u') return false;
      out.AddNumber(va_arg(args, std::size_t));
      return true;
    default:
      return false;
  }
}

// Expands a format of plain %d %i %u %ld %li %lu %zu %c %s and %%, which is what nearly all trace calls use,
// in half of vsnprintf's time. Returns false at anything else; the buffer then holds some text.
bool FormatPlain(BoundedText& out, char const* format, std::va_list& args) {
  while (true) {
    char const* const percent = strchrnul(format, '%');
    out.Add(format, static_cast<std::size_t>(percent - format));
    if (*percent == '\0') return true;
    format = percent + 1;
    if (!AddConversion(out, format, args)) return false;
  }
}

}  // namespace

Message ExpandMessage(char* buffer, std::size_t capacity, char const* format, std::va_list args) {
  buffer[0] = '\0';
  if (format == nullptr) {
    errno = EINVAL;
    return {-1, 0};
  }
  std::va_list plain;
  va_copy(plain, args);
  BoundedText text(buffer, capacity);
  bool const done = FormatPlain(text, format, plain);
  va_end(plain);
  if (done) {
    std::size_t const length = text.Finish();
    return {static_cast<int>(length), length};
  }

  buffer[0] = '\0';  // removes what the attempt above wrote
  if (AsksForGiantField(format, args)) {
    errno = EOVERFLOW;
    return {-1, 0};
  }
  int const length = velt_plain_vsnprintf(buffer, capacity, format, args);
  buffer[capacity - 1] = '\0';  // an expansion that fails half-way may leave no NUL
  if (length < 0) return {-1, 0};
  bool const cut = static_cast<std::size_t>(length) >= capacity;
  return {cut ? static_cast<int>(capacity - 1) : length, std::strlen(buffer)};
}

int FormatMessage(char* buffer, std::size_t capacity, char const* format, std::va_list args) {
  return ExpandMessage(buffer, capacity, format, args).kept;
}

}  // namespace velt
