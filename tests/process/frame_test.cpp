#include <climits>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "velt/process.h"

namespace velt::test {
namespace {

constexpr unsigned long kNegative = ULONG_MAX;             // what -1 becomes as a size
constexpr wchar_t const kNotInTheCLocale[] = {0x20AC, 0};  // a euro sign

// Called through a pointer of a plain type, so that the compiler does not refuse the bad formats on purpose.
int (*const volatile format_unchecked)(char*, unsigned long, char const*, ...) = &VeltFrameGetStr;

std::string Bytes(char const* at, std::size_t count) { return {at, count}; }

TEST(FrameGetNStrTest, CopiesATextAndReturnsTheField) {
  char field[] = "........";

  char* const result = VeltFrameGetNStr(field, 8, "abc", 3);

  EXPECT_EQ(result, field);
  EXPECT_EQ(Bytes(field, 8), std::string("abc\0....", 8));
}

TEST(FrameGetNStrTest, CopiesAtMostTheCount) {
  char field[] = "........";

  char* const result = VeltFrameGetNStr(field, 8, "abcdef", 2);

  EXPECT_EQ(result, field);
  EXPECT_EQ(Bytes(field, 8), std::string("ab\0.....", 8));
}

TEST(FrameGetNStrTest, ATextOfOneLessThanTheCapacityFits) {
  char field[] = "........";

  VeltFrameGetNStr(field, 4, "abc", 100);

  EXPECT_EQ(Bytes(field, 8), std::string("abc\0....", 8));
}

TEST(FrameGetNStrTest, ATextAsLongAsTheCapacityLeavesTheFieldEmpty) {
  char field[] = "........";

  char* const result = VeltFrameGetNStr(field, 4, "abcd", 4);

  EXPECT_EQ(result, field);
  EXPECT_EQ(field[0], '\0');
  EXPECT_EQ(Bytes(field + 4, 4), "....");
}

TEST(FrameGetNStrTest, ACountOfZeroGivesTheEmptyText) {
  char field[] = "....";

  VeltFrameGetNStr(field, 4, "abc", 0);

  EXPECT_EQ(Bytes(field, 4), std::string("\0...", 4));
}

TEST(FrameGetNStrTest, ANullSourceLeavesTheFieldEmpty) {
  char field[] = "....";

  char* const result = VeltFrameGetNStr(field, 4, nullptr, 3);

  EXPECT_EQ(result, field);
  EXPECT_EQ(field[0], '\0');
}

TEST(FrameGetNStrTest, ANullFieldIsReturned) { EXPECT_EQ(VeltFrameGetNStr(nullptr, 4, "abc", 3), nullptr); }

TEST(FrameGetNStrTest, CapacitiesOfZeroAndBelowWriteNothing) {
  char field[] = "....";

  EXPECT_EQ(VeltFrameGetNStr(field, 0, "abc", 3), field);
  EXPECT_EQ(VeltFrameGetNStr(field, kNegative, "abc", 3), field);

  EXPECT_EQ(Bytes(field, 4), "....");
}

TEST(FrameSetBodyTest, CopiesTheBytesAndReturnsTheBody) {
  char body[] = "........";

  void* const result = VeltFrameSetBody(body, "a\0b", 4);

  EXPECT_EQ(result, body);
  EXPECT_EQ(Bytes(body, 8), std::string("a\0b\0....", 8));
}

TEST(FrameSetBodyTest, ASizeOfZeroCopiesNothing) {
  char body[] = "....";

  void* const result = VeltFrameSetBody(body, "abc", 0);

  EXPECT_EQ(result, body);
  EXPECT_EQ(Bytes(body, 4), "....");
}

TEST(FrameSetBodyTest, ANullSourceStillReturnsTheBody) {
  char body[] = "........";

  void* const result = VeltFrameSetBody(body, nullptr, 4);

  EXPECT_EQ(result, body);
  EXPECT_EQ(Bytes(body, 8), std::string("\0\0\0\0....", 8));
}

TEST(FrameSetBodyTest, ANullBodyIsReturned) { EXPECT_EQ(VeltFrameSetBody(nullptr, "abc", 3), nullptr); }

TEST(FrameSetBodyTest, ANegativeSizeWritesNothing) {
  char body[] = "....";

  void* const result = VeltFrameSetBody(body, "abc", kNegative);

  EXPECT_EQ(result, body);
  EXPECT_EQ(Bytes(body, 4), "....");
}

TEST(FrameSetBodyTest, ASourceThatOverlapsTheBodyZeroesIt) {
  char body[] = "abcdef..";

  void* const result = VeltFrameSetBody(body + 2, body, 4);

  EXPECT_EQ(result, body + 2);
  EXPECT_EQ(Bytes(body, 8), std::string("ab\0\0\0\0..", 8));
}

TEST(FrameResetBodyTest, FillsTheBodyAndReturnsIt) {
  char body[] = "........";

  void* const result = VeltFrameResetBody(body, 'x', 3);

  EXPECT_EQ(result, body);
  EXPECT_EQ(Bytes(body, 8), "xxx.....");
}

TEST(FrameResetBodyTest, TheValueIsTakenAsOneByte) {
  char body[] = "....";

  VeltFrameResetBody(body, -1, 2);
  VeltFrameResetBody(body + 2, 0x178, 1);

  EXPECT_EQ(Bytes(body, 4), "\xff\xffx.");
}

TEST(FrameResetBodyTest, SizesOfZeroAndBelowWriteNothing) {
  char body[] = "....";

  EXPECT_EQ(VeltFrameResetBody(body, 'x', 0), body);
  EXPECT_EQ(VeltFrameResetBody(body, 'x', kNegative), body);

  EXPECT_EQ(Bytes(body, 4), "....");
}

TEST(FrameResetBodyTest, ANullBodyIsReturned) { EXPECT_EQ(VeltFrameResetBody(nullptr, 0, 4), nullptr); }

TEST(FrameGetStrTest, ReturnsTheLengthOfATextThatFits) {
  char field[] = "........";

  int const length = VeltFrameGetStr(field, 8, "%d%s", 1, "ab");

  EXPECT_EQ(length, 3);
  EXPECT_EQ(Bytes(field, 8), std::string("1ab\0....", 8)) << "the bytes behind the text stay";
}

TEST(FrameGetStrTest, ATextOfOneLessThanTheCapacityFits) {
  char field[] = "........";

  int const length = VeltFrameGetStr(field, 8, "%s", "1234567");

  EXPECT_EQ(length, 7);
  EXPECT_STREQ(field, "1234567");
}

TEST(FrameGetStrTest, ATextAsLongAsTheCapacityIsCutAndNegative) {
  char field[] = "..........";

  int const length = VeltFrameGetStr(field, 8, "%s", "12345678");

  EXPECT_LT(length, 0);
  EXPECT_EQ(Bytes(field, 10), std::string("1234567\0..", 10));
}

TEST(FrameGetStrTest, ALongTextIsCutAndNegative) {
  char field[] = "..........";

  int const length = VeltFrameGetStr(field, 8, "%020d", 1);

  EXPECT_LT(length, 0);
  EXPECT_EQ(Bytes(field, 10), std::string("0000000\0..", 10));
}

TEST(FrameGetStrTest, TheEmptyTextHasLengthZero) {
  char field[] = "....";

  int const length = VeltFrameGetStr(field, 4, "%s", "");

  EXPECT_EQ(length, 0);
  EXPECT_STREQ(field, "");
}

TEST(FrameGetStrTest, ACapacityOfOneHoldsTheEmptyText) {
  char field[] = "....";

  int const length = VeltFrameGetStr(field, 1, "%s", "");

  EXPECT_EQ(length, 0);
  EXPECT_EQ(Bytes(field, 4), std::string("\0...", 4));
}

TEST(FrameGetStrTest, ACapacityOfOneCutsEveryText) {
  char field[] = "....";

  int const length = VeltFrameGetStr(field, 1, "%s", "a");

  EXPECT_LT(length, 0);
  EXPECT_EQ(Bytes(field, 4), std::string("\0...", 4));
}

TEST(FrameGetStrTest, ACapacityOfZeroIsNegativeAndWritesNothing) {
  char field[] = "....";

  int const length = VeltFrameGetStr(field, 0, "%s", "a");

  EXPECT_LT(length, 0);
  EXPECT_EQ(Bytes(field, 4), "....");
}

TEST(FrameGetStrTest, ANegativeCapacityIsNegativeAndWritesNothing) {
  char bytes[] = "................";
  char* const field = bytes + 8;

  for (long const capacity : {-1L, -2L, -8L, LONG_MIN}) {
    EXPECT_LT(format_unchecked(field, static_cast<unsigned long>(capacity), "%s", "ab"), 0) << capacity;
  }

  EXPECT_EQ(Bytes(bytes, 16), "................");
}

TEST(FrameGetStrTest, NullArgumentsAreNegativeAndWriteNothing) {
  char field[] = "....";

  EXPECT_LT(format_unchecked(nullptr, 4, "%d", 1), 0);
  EXPECT_LT(format_unchecked(field, 4, nullptr), 0);

  EXPECT_EQ(Bytes(field, 4), "....");
}

TEST(FrameGetStrTest, AFormatThatCannotBeExpandedIsNegative) {
  for (char const* const format : {"ab%ls", "ab%2147483648d"}) {
    char field[] = "............";

    int const length = format_unchecked(field, 8, format, kNotInTheCLocale);

    EXPECT_LT(length, 0) << format;
    EXPECT_LT(strnlen(field, 8), 8U) << format;
    EXPECT_EQ(Bytes(field + 8, 4), "....") << format;
  }
}

}  // namespace
}  // namespace velt::test
