#include "platform/message_format.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "platform/format_fields.h"
#include "platform/plain_vsnprintf.h"

namespace velt {
namespace {

// A text of bounded length; what does not fit is cut. A text that outgrows its buffer moves to the larger one
// first, if there is one.
class BoundedText {
 public:
  BoundedText(char* buffer, std::size_t capacity, char* larger, std::size_t larger_capacity)
      : at_(buffer),
        begin_(buffer),
        end_(buffer + capacity - 1),
        larger_(larger),
        larger_end_(larger == nullptr ? nullptr : larger + larger_capacity - 1) {}

  void Add(char const* text, std::size_t length) {
    length = MakeRoom(length);
    std::memcpy(at_, text, length);
    at_ += length;
  }
  void AddText(char const* text) {
    if (text == nullptr) text = "(null)";  // the C library's text for it
    // As far as can be kept, in the larger buffer too: behind that there may be no end of it.
    auto const larger = static_cast<std::size_t>(larger_end_ - larger_);
    Add(text, strnlen(text, larger_ == nullptr ? Room() : larger));
  }
  template <typename Number>
  void AddNumber(Number number) {
    constexpr std::size_t kMostDigits = 24;
    if (Room() >= kMostDigits) {
      at_ = std::to_chars(at_, end_, number).ptr;
      return;
    }
    std::array<char, kMostDigits> digits;
    char* const last = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    std::size_t const length = MakeRoom(static_cast<std::size_t>(last - digits.data()));
    std::memcpy(at_, digits.data(), length);
    at_ += length;
  }
  std::size_t Finish() {
    *at_ = '\0';
    return static_cast<std::size_t>(at_ - begin_);
  }
  bool IsIn(char const* buffer) const { return begin_ == buffer; }

 private:
  std::size_t Room() const { return static_cast<std::size_t>(end_ - at_); }

  // Returns how many of `length` characters can be added.
  std::size_t MakeRoom(std::size_t length) {
    if (length <= Room()) return length;
    if (larger_ != nullptr) MoveToLarger();
    return length <= Room() ? length : Room();
  }

  void MoveToLarger() {
    auto const length = static_cast<std::size_t>(at_ - begin_);
    std::memcpy(larger_, begin_, length);
    begin_ = larger_;
    at_ = larger_ + length;
    end_ = larger_end_;
    larger_ = nullptr;
  }

  char* at_;
  char* begin_;
  char* end_;     // the last byte of the buffer, which is kept for the NUL
  char* larger_;  // null when there is none, or the text is there
  char* larger_end_;
};

// The analyzer does not follow a va_list that is passed by reference.
// NOLINTBEGIN(clang-analyzer-valist.Uninitialized)

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
// NOLINTEND(clang-analyzer-valist.Uninitialized)

// Expands a format of plain %d %i %u %ld %li %lu %zu %c %s and %%, which is what nearly all trace calls use,
// in half of vsnprintf's time. Returns false at anything else; the buffer then holds some text.
bool FormatPlain(BoundedText& out, char const* format, std::va_list& args) {
  if (format == nullptr) return false;
  while (true) {
    char const* const percent = strchrnul(format, '%');
    out.Add(format, static_cast<std::size_t>(percent - format));
    if (*percent == '\0') return true;
    format = percent + 1;
    if (!AddConversion(out, format, args)) return false;
  }
}

// Expands by the C library what is not plain. A null format fails.
Message ExpandOther(char* buffer, std::size_t capacity, char const* format, std::va_list args)
    VELT_PRINTF_FORMAT(3, 0);
Message ExpandOther(char* buffer, std::size_t capacity, char const* format, std::va_list args) {
  buffer[0] = '\0';  // removes what an attempt to expand it plainly wrote
  if (format == nullptr) {
    errno = EINVAL;
    return {-1, 0};
  }
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

}  // namespace

PlacedMessage ExpandMessageInto(char* near, std::size_t near_capacity, char* far, std::size_t far_capacity,
                                char const* format, std::va_list args) {
  BoundedText text(near, near_capacity, far, far_capacity);
  std::va_list plain;
  va_copy(plain, args);
  bool const done = FormatPlain(text, format, plain);
  va_end(plain);
  if (done) {
    std::size_t const length = text.Finish();
    return {{static_cast<int>(length), length}, text.IsIn(near)};
  }
  if (far == nullptr) return {ExpandOther(near, near_capacity, format, args), true};
  return {ExpandOther(far, far_capacity, format, args), false};
}

Message ExpandMessage(char* buffer, std::size_t capacity, char const* format, std::va_list args) {
  return ExpandMessageInto(buffer, capacity, nullptr, 0, format, args).message;
}

int FormatMessage(char* buffer, std::size_t capacity, char const* format, std::va_list args) {
  return ExpandMessage(buffer, capacity, format, args).kept;
}

}  // namespace velt
