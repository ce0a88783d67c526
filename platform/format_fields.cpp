#include "platform/format_fields.h"

#include <printf.h>

#include <array>
#include <cstddef>
#include <cstring>

namespace velt {
namespace {

constexpr int kGiant = 1'000'000;
constexpr std::size_t kMostArguments = 128;
constexpr std::size_t kNone = static_cast<std::size_t>(-1);

// What a conversion takes from the list of arguments.
enum class Kind : unsigned char {
  kInt,
  kLong,
  kLongLong,
  kDouble,
  kLongDouble,
  kPointer,
  kNothing,
  kUnknown
};

enum class Length { kPlain, kLong, kLongLong };

bool IsDigit(char character) { return character >= '0' && character <= '9'; }

// Reads a number and moves `at` past it. Numbers from kGiant on are read as kGiant.
int ReadNumber(char const*& at) {
  int number = 0;
  for (; IsDigit(*at); ++at) number = number >= kGiant / 10 ? kGiant : number * 10 + (*at - '0');
  return number;
}

// Reads "n$": returns n - 1 and moves `at` past it. Returns kNone, and leaves `at`, for anything else.
std::size_t ReadPosition(char const*& at) {
  char const* end = at;
  int const number = ReadNumber(end);
  if (number == 0 || *end != '$') return kNone;
  at = end + 1;
  return static_cast<std::size_t>(number) - 1;
}

Length ReadLength(char const*& at) {
  switch (*at) {
    case 'h':
      at += at[1] == 'h' ? 2 : 1;
      return Length::kPlain;  // passed as an int
    case 'l':
      at += at[1] == 'l' ? 2 : 1;
      return at[-2] == 'l' ? Length::kLongLong : Length::kLong;
    case 'L':
    case 'q':
    case 'j':
      ++at;
      return Length::kLongLong;
    case 'z':
    case 'Z':
    case 't':
      ++at;
      return Length::kLong;
    default:
      return Length::kPlain;
  }
}

Kind KindOfInteger(Length length) {
  if (length == Length::kLongLong) return Kind::kLongLong;
  return length == Length::kLong ? Kind::kLong : Kind::kInt;
}

Kind KindOfOther(char conversion) {
  std::array<char, 3> const alone{'%', conversion, '\0'};
  int unused = 0;
  // The C library prints an unknown letter and takes no argument. "w" is a length in newer versions of it.
  bool const registered = conversion == 'w' || parse_printf_format(alone.data(), 1, &unused) != 0;
  return registered ? Kind::kUnknown : Kind::kNothing;
}

Kind KindOf(char conversion, Length length, bool is_long_double) {
  switch (conversion) {
    case 'd':
    case 'i':
    case 'o':
    case 'u':
    case 'x':
    case 'X':
    case 'b':
    case 'B':
      return KindOfInteger(length);
    case 'c':
    case 'C':
      return Kind::kInt;
    case 's':
    case 'S':
    case 'p':
    case 'n':
      return Kind::kPointer;
    case 'm':
    case '%':
      return Kind::kNothing;
    default:
      if (std::strchr("aAeEfFgG", conversion) == nullptr) return KindOfOther(conversion);
      return is_long_double ? Kind::kLongDouble : Kind::kDouble;
  }
}

bool TakesText(char conversion) { return conversion == 's' || conversion == 'S' || conversion == 'm'; }

// Takes one argument off the list. Returns it converted to int; 0 if it is not an integer.
int TakeArgument(Kind kind, std::va_list& args) {
  switch (kind) {
    // NOLINTBEGIN(bugprone-branch-clone): they differ by type
    case Kind::kLong:
      return static_cast<int>(va_arg(args, long));
    case Kind::kLongLong:
      return static_cast<int>(va_arg(args, long long));
    case Kind::kDouble:
      (void)va_arg(args, double);
      return 0;
    case Kind::kLongDouble:
      (void)va_arg(args, long double);
      return 0;
    case Kind::kPointer:
      (void)va_arg(args, void*);
      return 0;
      // NOLINTEND(bugprone-branch-clone)
    default:  // the C library, too, takes an int for a position that no conversion names
      return va_arg(args, int);
  }
}

// The arguments of one format in their order, and which of them are widths or precisions.
class FieldSearch {
 public:
  bool Finds(char const* format, std::va_list& args) {
    for (char const* at = std::strchr(format, '%'); at != nullptr; at = std::strchr(at, '%')) {
      ++at;
      if (!ReadConversion(at)) break;
    }
    return giant_ || (has_star_ && (too_many_ || GiantIsAmong(args)));
  }

 private:
  struct Field {
    int number = 0;            // the digits in the format
    std::size_t star = kNone;  // the position of the argument of a '*'
  };

  struct Argument {
    Kind kind = Kind::kInt;
    bool is_width = false;
    bool is_precision = false;
  };

  Argument& At(std::size_t position) {
    if (position >= kMostArguments) {
      too_many_ = true;
      return arguments_[0];  // not read once too_many_ is set
    }
    if (position >= count_) count_ = position + 1;
    return arguments_[position];
  }

  Field ReadField(char const*& at) {
    if (*at != '*') return {ReadNumber(at), kNone};
    ++at;
    has_star_ = true;
    std::size_t const position = ReadPosition(at);
    return {0, position == kNone ? next_++ : position};
  }

  // `at` points behind a '%' and is moved past the conversion. Returns false when the rest of the format
  // cannot be read: it ends here, or what the conversion takes is unknown.
  bool ReadConversion(char const*& at) {
    std::size_t position = ReadPosition(at);
    at += std::strspn(at, "-+ #0'I");
    Field const width = ReadField(at);
    Field precision;
    if (*at == '.') precision = ReadField(++at);
    Length const length = ReadLength(at);
    bool const is_long_double = length == Length::kLongLong && at[-1] != 'j';
    char const conversion = *at;
    if (conversion == '\0') return false;
    ++at;

    Kind const kind = KindOf(conversion, length, is_long_double);
    Note(width, precision, TakesText(conversion));
    if (kind == Kind::kUnknown) return false;
    if (kind == Kind::kNothing) return true;
    if (position == kNone) position = next_++;
    At(position).kind = kind;
    return true;
  }

  void Note(Field const& width, Field const& precision, bool is_text) {
    if (width.star != kNone) At(width.star).is_width = true;
    if (precision.star != kNone) At(precision.star).is_precision |= !is_text;
    giant_ |= width.number >= kGiant || (precision.number >= kGiant && !is_text);
  }

  bool GiantIsAmong(std::va_list& args) const {
    for (std::size_t i = 0; i < count_; ++i) {
      Argument const& argument = arguments_[i];
      int const number = TakeArgument(argument.kind, args);
      if (argument.is_width && (number >= kGiant || number <= -kGiant)) return true;
      if (argument.is_precision && number >= kGiant) return true;  // a negative precision counts as absent
    }
    return false;
  }

  std::array<Argument, kMostArguments> arguments_{};
  std::size_t count_ = 0;
  std::size_t next_ = 0;  // position of the next conversion or '*' that has no "n$"
  bool has_star_ = false;
  bool too_many_ = false;
  bool giant_ = false;
};

}  // namespace

bool AsksForGiantField(char const* format, std::va_list args) {
  std::va_list own;
  va_copy(own, args);
  bool const asks = FieldSearch().Finds(format, own);
  va_end(own);
  return asks;
}

}  // namespace velt
