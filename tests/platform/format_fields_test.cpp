// Widths and precisions that come from arguments: behind arguments of every type, by order and by position.
#include "platform/format_fields.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include <printf.h>

#include <gtest/gtest.h>

#include "platform/message_format.h"

// Formats are made at run time here, and some are wrong on purpose.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

namespace velt::test {
namespace {

constexpr int kGiant = 1'000'000;

bool Asks(char const* format, ...) {
  std::va_list args;
  va_start(args, format);
  bool const asks = AsksForGiantField(format, args);
  va_end(args);
  return asks;
}

int Expand(char* buffer, std::size_t capacity, char const* format, ...) {
  std::va_list args;
  va_start(args, format);
  int const result = FormatMessage(buffer, capacity, format, args);
  va_end(args);
  return result;
}

TEST(FormatFieldsTest, APrecisionOfTwoBillionFromAnArgumentFailsAtOnce) {
  char buffer[16] = "unset";
  auto const begin = std::chrono::steady_clock::now();

  int const kept = Expand(buffer, sizeof buffer, "%.*f", 2'000'000'000, 1.0);
  int const reason = errno;

  EXPECT_EQ(kept, -1);
  EXPECT_EQ(reason, EOVERFLOW);
  EXPECT_STREQ(buffer, "");
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
}

TEST(FormatFieldsTest, TheLimitOfAnArgumentIsThatOfAWrittenField) {
  EXPECT_FALSE(Asks("%*d", 999'999, 1));
  EXPECT_TRUE(Asks("%*d", 1'000'000, 1));
  EXPECT_FALSE(Asks("%-*d", -999'999, 1));
  EXPECT_TRUE(Asks("%*d", -1'000'000, 1)) << "padded on the right";
  EXPECT_TRUE(Asks("%*d", INT_MAX, 1));
  EXPECT_TRUE(Asks("%*d", INT_MIN, 1));
  EXPECT_FALSE(Asks("%.*d", 999'999, 1));
  EXPECT_TRUE(Asks("%.*d", 1'000'000, 1));
  EXPECT_FALSE(Asks("%.*d", -2'000'000, 1)) << "a negative precision is none";
  EXPECT_TRUE(Asks("%*.*f", 5, 1'000'000, 1.0));
  EXPECT_TRUE(Asks("%1000000d", 1));
  EXPECT_FALSE(Asks("%999999d", 1));
  EXPECT_TRUE(Asks("%.1000000d", 1));
  EXPECT_FALSE(Asks("%.000000000007d", 1)) << "leading zeros do not count";
}

TEST(FormatFieldsTest, APrecisionOfATextIsOnlyALimit) {
  EXPECT_FALSE(Asks("%.*s", INT_MAX, "x"));
  EXPECT_FALSE(Asks("%.*ls", INT_MAX, L"x"));
  EXPECT_FALSE(Asks("%.2000000000s", "x"));
  EXPECT_TRUE(Asks("%*s", INT_MAX, "x")) << "a width is padded";
  EXPECT_TRUE(Asks("%.*s %.*d", INT_MAX, "x", 1'000'000, 1));

  char buffer[16] = "";
  EXPECT_EQ(Expand(buffer, sizeof buffer, "<%.*s>", 2'000'000, "whole"), 7);
  EXPECT_STREQ(buffer, "<whole>");
}

TEST(FormatFieldsTest, WhatLiesBeforeAFieldIsPassedOverByItsType) {
  int stored = 0;
  EXPECT_TRUE(Asks("%hhd %hd %d %ld %lld %*d", 1, 2, 3, 4L, 5LL, kGiant, 6));
  EXPECT_TRUE(
      Asks("%jd %zd %td %qd %Lx %*d", std::intmax_t{1}, ssize_t{2}, std::ptrdiff_t{3}, 4LL, 5LL, kGiant, 6));
  EXPECT_TRUE(Asks("%f %Lf %a %LG %*d", 1.0, 2.0L, 3.0, 4.0L, kGiant, 6));
  EXPECT_TRUE(
      Asks("%c %lc %s %ls %p %*d", 'a', wint_t{'b'}, "c", L"d", static_cast<void*>(&stored), kGiant, 6));
  EXPECT_TRUE(Asks("%n%hhn%ln %m %% %*d", &stored, &stored, &stored, kGiant, 6));
  EXPECT_FALSE(Asks("%d %*d", kGiant, 3, kGiant)) << "they are printed, not widths";
  EXPECT_FALSE(Asks("%ld %f %*.*Lf", LONG_MAX, 1e300, 3, 4, 1e300L));
  EXPECT_FALSE(Asks("no conversion, %% and %s", "*"));
}

TEST(FormatFieldsTest, PositionsSayWhichArgumentIsTheField) {
  EXPECT_TRUE(Asks("%2$*1$d", kGiant, 1));
  EXPECT_FALSE(Asks("%1$*2$d", kGiant, 1));
  EXPECT_TRUE(Asks("%3$.*2$f", 1, kGiant, 1.0));
  EXPECT_FALSE(Asks("%3$.*1$f %2$d", 1, kGiant, 1.0));
  EXPECT_TRUE(Asks("%1$Lf %4$*3$s %2$d", 1.0L, 2, kGiant, "x"));
  EXPECT_TRUE(Asks("%1$*1$d", kGiant)) << "one argument is both width and value";
  EXPECT_TRUE(Asks("%4$*4$d", 1, 2, 3, kGiant)) << "arguments that no conversion names count as int";
}

TEST(FormatFieldsTest, UnfinishedAndUnknownConversionsAreSurvived) {
  EXPECT_FALSE(Asks("%"));
  EXPECT_FALSE(Asks("%*", 3));
  EXPECT_FALSE(Asks("%5."));
  EXPECT_FALSE(Asks("%1$"));
  EXPECT_FALSE(Asks("%l"));
  EXPECT_TRUE(Asks("%y %*d", kGiant, 1)) << "an unknown letter takes nothing";
  EXPECT_FALSE(Asks("%1000$d", 1)) << "no field";
  EXPECT_TRUE(Asks("%1000$*999$d", 1)) << "a position too high to look at";
}

int PrintNothing(FILE*, printf_info const*, void const* const*) { return 0; }

int TakePointer(printf_info const*, std::size_t count, int* types, int* sizes) {
  if (count > 0) {
    types[0] = PA_POINTER;
    sizes[0] = sizeof(void*);
  }
  return 1;
}

TEST(FormatFieldsTest, AConversionThatTheHostRegisteredEndsTheSearch) {
  int target = 0;
  ASSERT_EQ(register_printf_specifier('Y', &PrintNothing, &TakePointer), 0);

  EXPECT_FALSE(Asks("%Y %*d", static_cast<void*>(&target), 3, 4));
  EXPECT_TRUE(Asks("%*d %Y", kGiant, 4, static_cast<void*>(&target))) << "fields before it are looked at";
}

#if defined(__x86_64__)

// A va_list made at run time. It says that all registers are used up, so that every argument is read from
// memory.
class ArgumentList {
 public:
  void AddWord(std::uint64_t word) { words_.push_back(word); }
  void AddDouble(double number) {
    words_.push_back(0);
    std::memcpy(&words_.back(), &number, sizeof number);
  }
  void AddLongDouble(long double number) {
    if (words_.size() % 2 != 0) words_.push_back(0);  // a long double begins at a multiple of 16 bytes
    words_.resize(words_.size() + 2);
    std::memcpy(&words_[words_.size() - 2], &number, 10);
  }
  template <typename Function>
  int Call(Function const& function) {
    std::vector<std::uint64_t> memory(words_.size() + 3);
    auto* begin = memory.data();
    if (reinterpret_cast<std::uintptr_t>(begin) % 16 != 0) ++begin;
    std::copy(words_.begin(), words_.end(), begin);
    struct {
      unsigned used_registers;
      unsigned used_vector_registers;
      void* rest;
      void* registers;
    } const list{48, 176, begin, nullptr};
    std::va_list args;
    static_assert(sizeof args == sizeof list);
    std::memcpy(args, &list, sizeof list);
    return function(args);
  }

 private:
  std::vector<std::uint64_t> words_;
};

// A random format with its arguments, in which every conversion is one that the C library knows.
class RandomCall {
 public:
  explicit RandomCall(unsigned seed) : random_(seed) {
    bool const by_position = Below(2) == 0;
    for (unsigned i = 1 + Below(8); i > 0; --i) AddConversion();
    Shuffle(by_position);
    for (auto const& piece : pieces_) {
      format_ += piece.before + '%' + Position(by_position, piece.value) + piece.flags;
      format_ += Star(by_position, piece.width, piece.width_text);
      if (piece.has_precision) format_ += '.' + Star(by_position, piece.precision, piece.precision_text);
      format_ += piece.conversion;
    }
    for (std::size_t const at : order_) arguments_[at].AddTo(list_);
  }

  std::string const& Format() const { return format_; }
  bool Giant() const { return giant_; }
  ArgumentList& List() { return list_; }

 private:
  enum class Type { kWord, kDouble, kLongDouble };
  struct Value {
    Type type;
    std::uint64_t word;
    void AddTo(ArgumentList& list) const {
      if (type == Type::kWord) list.AddWord(word);
      if (type == Type::kDouble) list.AddDouble(static_cast<double>(word) / 3);
      if (type == Type::kLongDouble) list.AddLongDouble(static_cast<long double>(word) / 3);
    }
  };
  struct Piece {
    std::string before, flags, width_text, precision_text, conversion;
    bool has_precision = false;
    int width = -1, precision = -1, value = -1;  // numbers of arguments
  };

  unsigned Below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
  template <std::size_t Count>
  std::string Pick(std::array<char const*, Count> const& texts) {
    return texts[Below(Count)];
  }
  int Add(Value const& value) {
    arguments_.push_back(value);
    return static_cast<int>(arguments_.size()) - 1;
  }
  int SmallOrGiant() {
    if (Below(25) == 0) return static_cast<int>(kGiant + Below(3)) * (Below(2) == 0 ? 1 : -1);
    return static_cast<int>(Below(60)) - 20;
  }

  // Gives `piece` a conversion of a text or a number, and its argument. Returns whether it is a text.
  bool AddValue(Piece& piece) {
    static constexpr char kText[] = "a text";
    static constexpr wchar_t kWideText[] = L"wide";
    switch (Below(6)) {
      case 0:
        piece.conversion = Pick<3>({"s", "hs", "m"});
        if (piece.conversion != "m")
          piece.value = Add({Type::kWord, reinterpret_cast<std::uintptr_t>(kText)});
        return true;
      case 1:
        piece.conversion = Pick<2>({"ls", "S"});
        piece.value = Add({Type::kWord, reinterpret_cast<std::uintptr_t>(kWideText)});
        return true;
      case 2:
        piece.conversion = Pick<4>({"f", "lf", "e", "g"});
        piece.value = Add({Type::kDouble, Below(100'000)});
        return false;
      case 3:
        piece.conversion = Pick<4>({"Lf", "LE", "LG", "llf"});
        piece.value = Add({Type::kLongDouble, Below(100'000)});
        return false;
      case 4:
        piece.conversion = Pick<4>({"c", "lc", "p", "C"});
        piece.value = Add({Type::kWord, 'a' + Below(26)});
        return false;
      default:
        piece.conversion =
            Pick<8>({"", "hh", "h", "l", "ll", "j", "z", "t"}) + Pick<6>({"d", "i", "u", "o", "x", "X"});
        piece.value = Add({Type::kWord, random_()});
        return false;
    }
  }

  void AddConversion() {
    static int target[4];  // of %n, wide enough for each length
    Piece piece;
    piece.before = Pick<4>({"", " ", "x=", "%%"});
    piece.flags = Pick<6>({"", "-", "0", "+", "# ", "'"});
    bool const is_text_or_number = Below(12) != 0;
    int width = 0;
    int precision = 0;
    if (is_text_or_number && Below(3) == 0) {
      width = SmallOrGiant();
      piece.width = Add({Type::kWord, static_cast<std::uint32_t>(width)});
    } else if (is_text_or_number && Below(4) == 0) {
      piece.width_text = std::to_string(1 + Below(30));
    }
    if (is_text_or_number && Below(3) == 0) {
      piece.has_precision = true;
      precision = SmallOrGiant();
      piece.precision = Add({Type::kWord, static_cast<std::uint32_t>(precision)});
    } else if (is_text_or_number && Below(4) == 0) {
      piece.has_precision = true;
      piece.precision_text = Pick<3>({"", "3", "12"});
    }
    bool is_text = false;
    if (!is_text_or_number) {
      piece.flags.clear();
      piece.conversion = Pick<5>({"n", "hn", "hhn", "ln", "jn"});
      piece.value = Add({Type::kWord, reinterpret_cast<std::uintptr_t>(target)});
    } else {
      is_text = AddValue(piece);
    }
    giant_ |= std::abs(width) >= kGiant || (precision >= kGiant && !is_text);
    pieces_.push_back(piece);
  }

  // The places of the arguments in the list.
  void Shuffle(bool by_position) {
    order_.resize(arguments_.size());
    std::iota(order_.begin(), order_.end(), std::size_t{0});
    if (by_position) std::shuffle(order_.begin(), order_.end(), random_);
  }
  std::string Position(bool by_position, int argument) const {
    if (!by_position || argument == -1) return "";
    auto const at = std::find(order_.begin(), order_.end(), static_cast<std::size_t>(argument));
    return std::to_string(at - order_.begin() + 1) + "$";
  }
  std::string Star(bool by_position, int argument, std::string const& text) const {
    return argument == -1 ? text : "*" + Position(by_position, argument);
  }

  std::mt19937_64 random_;
  std::vector<Piece> pieces_;
  std::vector<Value> arguments_;
  std::vector<std::size_t> order_;
  ArgumentList list_;
  std::string format_;
  bool giant_ = false;
};

TEST(FormatFieldsTest, RandomFormatsAreThoseOfTheCLibraryOrHaveAGiantField) {
  int giants = 0;
  for (unsigned seed = 0; seed < 20'000 && !HasFailure(); ++seed) {
    RandomCall call(seed);
    char ours[64] = "";
    char theirs[64] = "";
    errno = 0;
    int const kept = call.List().Call(
        [&](std::va_list args) { return FormatMessage(ours, sizeof ours, call.Format().c_str(), args); });
    int const reason = errno;
    if (call.Giant()) {
      ++giants;
      EXPECT_EQ(kept, -1) << call.Format() << " of seed " << seed;
      EXPECT_EQ(reason, EOVERFLOW) << call.Format() << " of seed " << seed;
      continue;
    }
    errno = 0;  // %m prints it
    int const length = call.List().Call([&](std::va_list args) {
      // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): Call fills the list
      return std::vsnprintf(theirs, sizeof theirs, call.Format().c_str(), args);
    });
    EXPECT_EQ(kept, std::min(length, 63)) << call.Format() << " of seed " << seed;
    EXPECT_STREQ(ours, theirs) << call.Format() << " of seed " << seed;
  }

  EXPECT_GT(giants, 100);
}

#endif

}  // namespace
}  // namespace velt::test
