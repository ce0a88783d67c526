#include "platform/message_format.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace velt::test {
namespace {

constexpr wchar_t const kNotInTheCLocale[] = {0x20AC, 0};  // a euro sign

int Expand(char* buffer, std::size_t capacity, char const* format, ...) {
  std::va_list args;
  va_start(args, format);
  // Clang asks for a format attribute, which would reject the bad formats.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  int const result = FormatMessage(buffer, capacity, format, args);
#pragma GCC diagnostic pop
  va_end(args);
  return result;
}

PlacedMessage ExpandInto(char* near, std::size_t near_capacity, char* far, std::size_t far_capacity,
                         char const* format, ...) {
  std::va_list args;
  va_start(args, format);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  PlacedMessage const result = ExpandMessageInto(near, near_capacity, far, far_capacity, format, args);
#pragma GCC diagnostic pop
  va_end(args);
  return result;
}

// What a message of 5 + 10 + 1 + `tail` characters comes to with room for `near` and 64 bytes.
struct Expanded {
  bool near;
  std::string text;
};
Expanded ExpandTail(std::size_t near_capacity, std::size_t tail) {
  std::string near(near_capacity + 1, '#');
  std::string far(65, '#');
  std::string const text(tail, 'x');
  PlacedMessage const placed =
      ExpandInto(near.data(), near_capacity, far.data(), 64, "head %d,%s", -123456789, text.c_str());
  EXPECT_EQ(near[near_capacity], '#') << "written behind its end";
  EXPECT_EQ(far[64], '#') << "written behind its end";
  std::string const& buffer = placed.near ? near : far;
  EXPECT_EQ(static_cast<std::size_t>(placed.message.kept), placed.message.length);
  EXPECT_EQ(placed.message.length, std::strlen(buffer.c_str()));
  return {placed.near, buffer.substr(0, placed.message.length)};
}

TEST(MessageFormatTest, AMessageIsExpandedNearWhereItFits) {
  Expanded const fits = ExpandTail(21, 4);
  Expanded const outgrows = ExpandTail(21, 5);

  EXPECT_TRUE(fits.near);
  EXPECT_EQ(fits.text, "head -123456789,xxxx");
  EXPECT_FALSE(outgrows.near);
  EXPECT_EQ(outgrows.text, "head -123456789,xxxxx");
}

TEST(MessageFormatTest, AMessageMayOutgrowTheNearBufferAnywhere) {
  for (std::size_t capacity = 1; capacity <= 20; ++capacity) {
    Expanded const expanded = ExpandTail(capacity, 4);

    EXPECT_FALSE(expanded.near) << capacity;
    EXPECT_EQ(expanded.text, "head -123456789,xxxx") << capacity;
  }
}

TEST(MessageFormatTest, AMessageThatOutgrowsBothBuffersIsCutInTheFarOne) {
  Expanded const whole = ExpandTail(21, 47);
  Expanded const cut = ExpandTail(21, 48);

  EXPECT_EQ(whole.text, "head -123456789," + std::string(47, 'x'));
  EXPECT_FALSE(cut.near);
  EXPECT_EQ(cut.text, "head -123456789," + std::string(47, 'x'));
}

TEST(MessageFormatTest, OtherConversionsAndFailuresGoToTheFarBuffer) {
  char near[32];
  char far[64];

  PlacedMessage const hex = ExpandInto(near, sizeof near, far, sizeof far, "%s %04x", "a", 255);
  EXPECT_FALSE(hex.near);
  EXPECT_EQ(hex.message.kept, 6);
  EXPECT_STREQ(far, "a 00ff");
  errno = 0;
  PlacedMessage const failed = ExpandInto(near, sizeof near, far, sizeof far, nullptr);
  EXPECT_FALSE(failed.near);
  EXPECT_EQ(failed.message.kept, -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST(MessageFormatTest, ReturnsTheLengthOfAMessageThatFits) {
  char buffer[16] = "unset";

  int const length = Expand(buffer, sizeof buffer, "%s=%d", "key", 7);

  EXPECT_EQ(length, 5);
  EXPECT_STREQ(buffer, "key=7");
}

TEST(MessageFormatTest, AnEmptyMessageIsNoFailure) {
  char buffer[16] = "unset";

  int const length = Expand(buffer, sizeof buffer, "%s", "");

  EXPECT_EQ(length, 0);
  EXPECT_STREQ(buffer, "");
}

TEST(MessageFormatTest, OneLessThanTheCapacityIsKeptWhole) {
  char buffer[8] = "unset";

  int const length = Expand(buffer, sizeof buffer, "%s", "1234567");

  EXPECT_EQ(length, 7);
  EXPECT_STREQ(buffer, "1234567");
}

TEST(MessageFormatTest, AMessageAsLongAsTheCapacityIsCutAndItsRestCounted) {
  char buffer[12] = "...........";

  int const length = Expand(buffer, 8, "%s", "12345678");

  EXPECT_EQ(length, 7);
  EXPECT_STREQ(buffer, "1234567");
  EXPECT_EQ(std::string(buffer + 8, 3), "...");
}

TEST(MessageFormatTest, AMessageOfMegabytesIsCut) {
  std::string const text(4'000'000, 'x');
  char buffer[2048] = "";

  int const length = Expand(buffer, sizeof buffer, "%s", text.c_str());

  EXPECT_EQ(length, 2047);
  EXPECT_EQ(std::string(buffer), std::string(2047, 'x'));
}

TEST(MessageFormatTest, ACapacityOfOneHoldsNoCharacter) {
  char buffer[4] = "...";

  int const length = Expand(buffer, 1, "%s", "a");

  EXPECT_EQ(length, 0);
  EXPECT_EQ(std::string(buffer, 3), std::string("\0..", 3));
}

TEST(MessageFormatTest, ANullFormatFailsAndLeavesTheEmptyText) {
  char buffer[16] = "unset";
  errno = 0;

  int const length = Expand(buffer, sizeof buffer, nullptr);
  int const reason = errno;

  EXPECT_EQ(length, -1);
  EXPECT_NE(reason, 0);
  EXPECT_STREQ(buffer, "");
}

TEST(MessageFormatTest, ACharacterOutsideTheLocaleFails) {
  char buffer[16] = "unset";
  errno = 0;

  int const length = Expand(buffer, sizeof buffer, "ab%ls", kNotInTheCLocale);
  int const reason = errno;

  EXPECT_EQ(length, -1);
  EXPECT_EQ(reason, EILSEQ);
  EXPECT_LT(strnlen(buffer, sizeof buffer), sizeof buffer);
}

TEST(MessageFormatTest, AWidthBeyondIntFails) {
  char buffer[16] = "unset";
  errno = 0;

  int const length = Expand(buffer, sizeof buffer, "ab%2147483648d", 1);
  int const reason = errno;

  EXPECT_EQ(length, -1);
  EXPECT_EQ(reason, EOVERFLOW);
  EXPECT_LT(strnlen(buffer, sizeof buffer), sizeof buffer);
}

TEST(MessageFormatTest, ALonePercentSignFails) {
  char buffer[16] = "unset";

  int const length = Expand(buffer, sizeof buffer, "ab%");

  EXPECT_EQ(length, -1);
  EXPECT_LT(strnlen(buffer, sizeof buffer), sizeof buffer);
}

TEST(MessageFormatTest, PositionalArgumentsAreExpanded) {
  char buffer[16] = "unset";

  int const length = Expand(buffer, sizeof buffer, "%2$s%1$d", 7, "ab");

  EXPECT_EQ(length, 3);
  EXPECT_STREQ(buffer, "ab7");
}

TEST(MessageFormatTest, AWritableFormatMayStoreACount) {
  char buffer[16] = "unset";
  char format[] = "abc%nde%d";  // a checked function of the C library ends the process over it
  int stored = -1;

  int const length = Expand(buffer, sizeof buffer, format, &stored, 7);

  EXPECT_EQ(length, 6);
  EXPECT_EQ(stored, 3);
  EXPECT_STREQ(buffer, "abcde7");
}

TEST(MessageFormatTest, ANullTextArgumentIsSpelledOut) {
  char buffer[16] = "unset";

  int const length = Expand(buffer, sizeof buffer, "[%s]", static_cast<char const*>(nullptr));

  EXPECT_EQ(length, 8);
  EXPECT_STREQ(buffer, "[(null)]");
}

// What the C library makes of the same call, cut to the same buffer.
template <typename... Args>
void ExpectLikeTheCLibrary(char const* format, Args... args) {
  for (std::size_t capacity : {1U, 2U, 5U, 9U, 24U, 64U}) {
    char ours[64];
    char theirs[64];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    int const length = std::snprintf(theirs, capacity, format, args...);
#pragma GCC diagnostic pop
    int const kept = std::min(length, static_cast<int>(capacity) - 1);

    EXPECT_EQ(Expand(ours, capacity, format, args...), kept) << format << " in " << capacity;
    EXPECT_EQ(std::string(ours, static_cast<std::size_t>(kept) + 1),
              std::string(theirs, static_cast<std::size_t>(kept) + 1))
        << format << " in " << capacity;
  }
}

TEST(MessageFormatTest, NumbersAreThoseOfTheCLibrary) {
  for (int const number : {0, 1, -1, 42, -99999, INT_MAX, INT_MIN}) {
    ExpectLikeTheCLibrary("%d", number);
    ExpectLikeTheCLibrary("<%i>", number);
    ExpectLikeTheCLibrary("%u", static_cast<unsigned>(number));
    ExpectLikeTheCLibrary("%x %X %o", static_cast<unsigned>(number), 1U, 8U);
    ExpectLikeTheCLibrary("%5d|%-5d|%05d|%+d", number, number, number, number);
  }
  for (long const number : {0L, -1L, LONG_MAX, LONG_MIN}) {
    ExpectLikeTheCLibrary("%ld", number);
    ExpectLikeTheCLibrary("%li,%lu", number, static_cast<unsigned long>(number));
    ExpectLikeTheCLibrary("%zu", static_cast<std::size_t>(number));
    ExpectLikeTheCLibrary("%zd", static_cast<ssize_t>(number));
    ExpectLikeTheCLibrary("%lld %llu", static_cast<long long>(number),
                          static_cast<unsigned long long>(number));
  }
  ExpectLikeTheCLibrary("%hd %hhu", 70000, 300);
  ExpectLikeTheCLibrary("%.3f %g", 2.5, 1e100);
}

TEST(MessageFormatTest, TextsAndCharactersAreThoseOfTheCLibrary) {
  ExpectLikeTheCLibrary("");
  ExpectLikeTheCLibrary("plain");
  ExpectLikeTheCLibrary("100%%");
  ExpectLikeTheCLibrary("%%%s%%", "x");
  ExpectLikeTheCLibrary("%c%c", 'a', '\0');
  ExpectLikeTheCLibrary("%c", 0xE9);
  ExpectLikeTheCLibrary("%s", "");
  ExpectLikeTheCLibrary("%s and %s", "one", "a text that is longer than most of the buffers");
  ExpectLikeTheCLibrary("%.2s|%8s|%-8s|", "abc", "abc", "abc");
  ExpectLikeTheCLibrary("%s %d %5.1f %s", "mixed", 3, 2.25, "later");
  ExpectLikeTheCLibrary("%*d", 6, 42);
  ExpectLikeTheCLibrary("%2$s %1$d", 7, "ab");
  ExpectLikeTheCLibrary("%p", static_cast<void*>(nullptr));
}

TEST(MessageFormatTest, AFormatThatIsRefusedLeavesTheEmptyText) {
  char buffer[16] = "###############";

  EXPECT_EQ(Expand(buffer, sizeof buffer, "abc %9999999d", 1), -1);

  EXPECT_STREQ(buffer, "");
}

TEST(MessageFormatTest, AFieldOfAMillionCharactersFailsAtOnceAndASmallerOneIsCut) {
  char buffer[16] = "unset";

  EXPECT_EQ(Expand(buffer, sizeof buffer, "%1000000d", 1), -1);
  EXPECT_EQ(errno, EOVERFLOW);
  EXPECT_EQ(Expand(buffer, sizeof buffer, "%2147483647d", 1), -1);
  EXPECT_EQ(Expand(buffer, sizeof buffer, "x%-.2147483647d", 1), -1);
  EXPECT_EQ(Expand(buffer, sizeof buffer, "%999999d", 1), 15);
  EXPECT_STREQ(buffer, "               ");
  EXPECT_EQ(Expand(buffer, sizeof buffer, "%%1000000d %.1f", 1.0), 13) << "no conversion, only text";
}

}  // namespace
}  // namespace velt::test
