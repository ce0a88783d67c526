#include "platform/bounded.h"

#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

namespace velt::test {
namespace {

constexpr std::size_t kNegative = SIZE_MAX;                // what -1 becomes as a size
constexpr std::size_t kHalf = SIZE_MAX / 2;                // the largest size that counts as one
constexpr wchar_t const kNotInTheCLocale[] = {0x20AC, 0};  // a euro sign

std::string Bytes(char const* at, std::size_t count) { return {at, count}; }

// Called through pointers of plain types, so that the compiler does not refuse the bad formats on purpose.
int (*const volatile format_unchecked)(char*, std::size_t, std::size_t, char const*, ...) = &snprintf_s;

int FormatList(char* dst, std::size_t capacity, std::size_t count, char const* format, ...)
    __attribute__((format(printf, 4, 5)));
int FormatList(char* dst, std::size_t capacity, std::size_t count, char const* format, ...) {
  std::va_list args;
  va_start(args, format);
  int const result = vsnprintf_s(dst, capacity, count, format, args);
  va_end(args);
  return result;
}

TEST(MemcpySTest, CopiesExactlyTheCount) {
  char dst[] = "........";

  int const error = memcpy_s(dst, 8, "abc", 3);

  EXPECT_EQ(error, 0);
  EXPECT_EQ(Bytes(dst, 8), "abc.....");
}

TEST(MemcpySTest, FillsTheWholeCapacity) {
  char dst[] = "........";

  int const error = memcpy_s(dst, 4, "abcdef", 4);

  EXPECT_EQ(error, 0);
  EXPECT_EQ(Bytes(dst, 8), "abcd....");
}

TEST(MemcpySTest, OneMoreThanTheCapacityZeroesTheDestinationAndNothingBeyond) {
  char dst[] = "........";

  int const error = memcpy_s(dst, 4, "abcdef", 5);

  EXPECT_NE(error, 0);
  EXPECT_EQ(Bytes(dst, 8), std::string("\0\0\0\0....", 8));
}

TEST(MemcpySTest, ACountOfZeroChangesNothing) {
  char dst[] = "....";

  EXPECT_EQ(memcpy_s(dst, 4, "abc", 0), 0);
  EXPECT_EQ(memcpy_s(dst, 0, "abc", 0), 0);

  EXPECT_EQ(Bytes(dst, 4), "....");
}

TEST(MemcpySTest, ANullSourceZeroesTheDestination) {
  char dst[] = "........";

  int const error = memcpy_s(dst, 4, nullptr, 4);

  EXPECT_NE(error, 0);
  EXPECT_EQ(Bytes(dst, 8), std::string("\0\0\0\0....", 8));
}

TEST(MemcpySTest, ANullDestinationIsAnError) { EXPECT_NE(memcpy_s(nullptr, 4, "abc", 3), 0); }

TEST(MemcpySTest, ANegativeCapacityOrCountWritesNothingBeyondTheCapacity) {
  char dst[] = "........";

  EXPECT_NE(memcpy_s(dst, kNegative, "abc", 3), 0);
  EXPECT_NE(memcpy_s(dst, kHalf + 1, "abc", 3), 0);
  EXPECT_EQ(Bytes(dst, 8), "........");

  EXPECT_NE(memcpy_s(dst, 4, "abc", kNegative), 0);
  EXPECT_EQ(Bytes(dst, 8), std::string("\0\0\0\0....", 8));
}

TEST(MemcpySTest, OverlappingRangesAreAnErrorThatZeroesTheDestination) {
  char forward[] = "abcdef..";
  char backward[] = "abcdef..";

  int const forward_error = memcpy_s(forward + 2, 4, forward, 4);
  int const backward_error = memcpy_s(backward, 4, backward + 2, 4);

  EXPECT_NE(forward_error, 0);
  EXPECT_NE(backward_error, 0);
  EXPECT_EQ(Bytes(forward, 8), std::string("ab\0\0\0\0..", 8));
  EXPECT_EQ(Bytes(backward, 8), std::string("\0\0\0\0ef..", 8));
}

TEST(MemcpySTest, RangesThatOnlyTouchAreCopied) {
  char text[] = "abcd....";

  int const error = memcpy_s(text + 4, 4, text, 4);

  EXPECT_EQ(error, 0);
  EXPECT_EQ(Bytes(text, 8), "abcdabcd");
}

TEST(MemmoveSTest, MovesOverlappingRangesBothWays) {
  char up[] = "abcdef..";
  char down[] = "abcdef..";

  EXPECT_EQ(memmove_s(up + 2, 6, up, 6), 0);
  EXPECT_EQ(memmove_s(down, 4, down + 2, 4), 0);

  EXPECT_EQ(Bytes(up, 8), "ababcdef");
  EXPECT_EQ(Bytes(down, 8), "cdefef..");
}

TEST(MemmoveSTest, OneMoreThanTheCapacityZeroesTheDestinationAndNothingBeyond) {
  char dst[] = "........";

  EXPECT_EQ(memmove_s(dst, 4, "abcdef", 4), 0);
  EXPECT_EQ(Bytes(dst, 8), "abcd....");

  EXPECT_NE(memmove_s(dst, 4, "abcdef", 5), 0);
  EXPECT_EQ(Bytes(dst, 8), std::string("\0\0\0\0....", 8));
}

TEST(MemmoveSTest, NullPointersAndNegativeCapacitiesAreErrors) {
  char dst[] = "........";

  EXPECT_NE(memmove_s(nullptr, 4, "abc", 3), 0);
  EXPECT_NE(memmove_s(dst, kNegative, "abc", 3), 0);
  EXPECT_EQ(Bytes(dst, 8), "........");

  EXPECT_NE(memmove_s(dst, 4, nullptr, 3), 0);
  EXPECT_EQ(Bytes(dst, 8), std::string("\0\0\0\0....", 8));
}

TEST(MemmoveSTest, ACountOfZeroChangesNothing) {
  char dst[] = "....";

  int const error = memmove_s(dst, 4, dst + 1, 0);

  EXPECT_EQ(error, 0);
  EXPECT_EQ(Bytes(dst, 4), "....");
}

TEST(MemsetSTest, FillsExactlyTheCount) {
  char dst[] = "........";

  EXPECT_EQ(memset_s(dst, 8, 'x', 3), 0);
  EXPECT_EQ(Bytes(dst, 8), "xxx.....");

  EXPECT_EQ(memset_s(dst, 4, 'y', 4), 0);
  EXPECT_EQ(Bytes(dst, 8), "yyyy....");

  EXPECT_EQ(memset_s(dst, 4, 'z', 0), 0);
  EXPECT_EQ(Bytes(dst, 8), "yyyy....");
}

TEST(MemsetSTest, OneMoreThanTheCapacityIsAnErrorThatFillsTheCapacityOnly) {
  char dst[] = "........";

  int const error = memset_s(dst, 4, 'x', 5);

  EXPECT_NE(error, 0);
  EXPECT_EQ(Bytes(dst, 8), "xxxx....");
}

TEST(MemsetSTest, TheValueIsTakenAsOneByte) {
  char dst[] = "....";

  int const error = memset_s(dst, 4, 0x178, 2);

  EXPECT_EQ(error, 0);
  EXPECT_EQ(Bytes(dst, 4), "xx..");
}

TEST(MemsetSTest, ANullDestinationOrANegativeCapacityWritesNothing) {
  char dst[] = "....";

  EXPECT_NE(memset_s(nullptr, 4, 'x', 4), 0);
  EXPECT_NE(memset_s(dst, kNegative, 'x', 4), 0);

  EXPECT_EQ(Bytes(dst, 4), "....");
}

TEST(StrncpySTest, CopiesATextShorterThanTheCountWithItsEnd) {
  char dst[] = "........";

  int const error = strncpy_s(dst, 8, "abc", 7);

  EXPECT_EQ(error, 0);
  EXPECT_EQ(Bytes(dst, 8), std::string("abc\0....", 8));
}

TEST(StrncpySTest, CopiesTheCountOfALongerTextAndEndsIt) {
  char dst[] = "........";

  int const error = strncpy_s(dst, 8, "abcdef", 3);

  EXPECT_EQ(error, 0);
  EXPECT_EQ(Bytes(dst, 8), std::string("abc\0....", 8));
}

TEST(StrncpySTest, ATextOfOneLessThanTheCapacityFits) {
  char dst[] = "........";

  EXPECT_EQ(strncpy_s(dst, 4, "abc", 3), 0);
  EXPECT_EQ(Bytes(dst, 8), std::string("abc\0....", 8));

  EXPECT_EQ(strncpy_s(dst, 4, "xyz", 100), 0);
  EXPECT_EQ(Bytes(dst, 8), std::string("xyz\0....", 8));
}

TEST(StrncpySTest, ATextAsLongAsTheCapacityIsRefusedAndTheDestinationEmptied) {
  char dst[] = "........";

  int const error = strncpy_s(dst, 4, "abcd", 4);

  EXPECT_NE(error, 0);
  EXPECT_EQ(dst[0], '\0');
  EXPECT_EQ(Bytes(dst + 4, 4), "....");
}

TEST(StrncpySTest, ACapacityOfOneHoldsTheEmptyTextOnly) {
  char dst[] = "....";

  EXPECT_EQ(strncpy_s(dst, 1, "", 5), 0);
  EXPECT_EQ(Bytes(dst, 4), std::string("\0...", 4));

  dst[0] = '.';
  EXPECT_NE(strncpy_s(dst, 1, "a", 1), 0);
  EXPECT_EQ(Bytes(dst, 4), std::string("\0...", 4));
}

TEST(StrncpySTest, ACountOfZeroGivesTheEmptyText) {
  char dst[] = "....";

  int const error = strncpy_s(dst, 4, "abc", 0);

  EXPECT_EQ(error, 0);
  EXPECT_EQ(Bytes(dst, 4), std::string("\0...", 4));
}

TEST(StrncpySTest, NullPointersAndACapacityOfZeroAreErrors) {
  char dst[] = "....";

  EXPECT_NE(strncpy_s(nullptr, 4, "abc", 3), 0);
  EXPECT_NE(strncpy_s(dst, 0, "abc", 3), 0);
  EXPECT_NE(strncpy_s(dst, 0, "", 0), 0);
  EXPECT_NE(strncpy_s(dst, kNegative, "abc", 3), 0);
  EXPECT_EQ(Bytes(dst, 4), "....");

  EXPECT_NE(strncpy_s(dst, 4, nullptr, 3), 0);
  EXPECT_EQ(dst[0], '\0');
}

TEST(StrncpySTest, ANegativeCountIsAnErrorThatEmptiesTheDestination) {
  char dst[] = "....";

  int const error = strncpy_s(dst, 4, "abc", kNegative);

  EXPECT_NE(error, 0);
  EXPECT_EQ(dst[0], '\0');
}

TEST(StrncpySTest, AnOverlapIsAnErrorThatEmptiesTheDestination) {
  char text[] = "abcdefgh";

  int const error = strncpy_s(text, 8, text + 2, 4);

  EXPECT_NE(error, 0);
  EXPECT_EQ(text[0], '\0');
}

TEST(StrncpySTest, TheEndOfTheTextBelongsToWhatMustNotOverlap) {
  char text[] = "abc\0....";

  int const error = strncpy_s(text + 3, 5, text, 4);

  EXPECT_NE(error, 0) << "its NUL is the first byte of the destination";
  EXPECT_EQ(Bytes(text, 8), std::string("abc\0....", 8));
}

TEST(StrncpySTest, AnEndBehindTheCountIsNotReadAndMayOverlap) {
  char text[] = "abc\0....";

  int const error = strncpy_s(text + 3, 5, text, 3);

  EXPECT_EQ(error, 0);
  EXPECT_EQ(Bytes(text, 8), std::string("abcabc\0.", 8));
}

TEST(StrncpySTest, ReadsNoFurtherThanTheCount) {
  std::unique_ptr<char[]> const source(
      new char[3]{'a', 'b', 'c'});  // no NUL: a sanitizer reports a read behind it
  char dst[8] = "";

  int const error = strncpy_s(dst, sizeof dst, source.get(), 3);

  EXPECT_EQ(error, 0);
  EXPECT_STREQ(dst, "abc");
}

TEST(SnprintfSTest, ReturnsTheLengthOfATextThatFits) {
  char dst[] = "........";

  int const length = snprintf_s(dst, 8, 7, "%s%d", "n=", 42);

  EXPECT_EQ(length, 4);
  EXPECT_EQ(Bytes(dst, 8), std::string("n=42\0...", 8)) << "the bytes behind the text stay";
}

TEST(SnprintfSTest, ATextOfTheLargestCountFits) {
  char dst[] = "........";

  int const length = snprintf_s(dst, 8, 7, "%s", "1234567");

  EXPECT_EQ(length, 7);
  EXPECT_STREQ(dst, "1234567");
}

TEST(SnprintfSTest, OneMoreThanTheLargestCountIsCutAndNegative) {
  char dst[] = "............";

  int const length = snprintf_s(dst, 8, 7, "%s", "12345678");

  EXPECT_EQ(length, -1);
  EXPECT_EQ(Bytes(dst, 12), std::string("1234567\0....", 12));
}

TEST(SnprintfSTest, TheLargestCountCutsBelowTheCapacity) {
  char dst[] = "........";

  int const length = snprintf_s(dst, 8, 3, "%s", "1234");

  EXPECT_EQ(length, -1);
  EXPECT_EQ(Bytes(dst, 4), std::string("123\0", 4));
  EXPECT_EQ(Bytes(dst + 4, 4), "....");
}

TEST(SnprintfSTest, ALargestCountOfZeroHoldsTheEmptyTextOnly) {
  char dst[] = "....";

  EXPECT_EQ(snprintf_s(dst, 4, 0, "%s", ""), 0);
  EXPECT_STREQ(dst, "");

  EXPECT_EQ(snprintf_s(dst, 4, 0, "%s", "a"), -1);
  EXPECT_STREQ(dst, "");
  EXPECT_EQ(Bytes(dst + 1, 3), "...");
}

TEST(SnprintfSTest, ACountNotBelowTheCapacityWritesNothing) {
  char dst[] = "....";

  EXPECT_EQ(snprintf_s(dst, 4, 4, "%s", "a"), -1);
  EXPECT_EQ(snprintf_s(dst, 4, kNegative, "%s", "a"), -1);
  EXPECT_EQ(snprintf_s(dst, 0, 0, "%s", "a"), -1);
  EXPECT_EQ(snprintf_s(dst, 0, kNegative, "%s", "a"), -1) << "the largest count: 0 - 1 as a size";

  EXPECT_EQ(Bytes(dst, 4), "....");
}

TEST(SnprintfSTest, ANegativeCapacityWritesNothing) {
  char bytes[] = "................";

  EXPECT_EQ(format_unchecked(bytes + 8, kNegative, kNegative - 1, "%s", "a"), -1);
  EXPECT_EQ(format_unchecked(bytes + 8, kNegative, 3, "%s", "a"), -1);

  EXPECT_EQ(Bytes(bytes, 16), "................");
}

TEST(SnprintfSTest, ANullDestinationOrFormatIsNegative) {
  char dst[] = "....";

  EXPECT_EQ(format_unchecked(nullptr, 4, 3, "%s", "a"), -1);
  EXPECT_EQ(format_unchecked(dst, 4, 3, nullptr), -1);

  EXPECT_EQ(Bytes(dst, 4), "....");
}

TEST(SnprintfSTest, ANullTextArgumentIsSpelledOut) {
  char dst[16] = "";

  int const length =
      format_unchecked(dst, sizeof dst, sizeof dst - 1, "[%s]", static_cast<char const*>(nullptr));

  EXPECT_EQ(length, 8);
  EXPECT_STREQ(dst, "[(null)]");
}

TEST(SnprintfSTest, AFormatThatCannotBeExpandedIsNegativeAndLeavesAnEndedText) {
  for (char const* const format : {"ab%ls", "ab%2147483648d"}) {
    char dst[] = "............";

    int const length = format_unchecked(dst, 8, 7, format, kNotInTheCLocale);

    EXPECT_EQ(length, -1) << format;
    EXPECT_LE(strnlen(dst, sizeof dst), 7U) << format;
    EXPECT_EQ(Bytes(dst + 8, 4), "....") << format;
  }
}

TEST(SnprintfSTest, ALonePercentSignIsNegative) {
  char dst[] = "........";

  int const length = format_unchecked(dst, 8, 7, "ab%");

  EXPECT_EQ(length, -1);
  EXPECT_LE(strnlen(dst, sizeof dst), 7U);
}

TEST(VsnprintfSTest, TakesItsArgumentsAsAList) {
  char dst[] = "........";

  EXPECT_EQ(FormatList(dst, 8, 7, "%d-%s", 12, "ab"), 5);
  EXPECT_STREQ(dst, "12-ab");

  EXPECT_EQ(FormatList(dst, 8, 7, "%08d", 12), -1);
  EXPECT_STREQ(dst, "0000001");
}

TEST(VsnprintfSTest, BadArgumentsWriteNothing) {
  char dst[] = "....";

  EXPECT_EQ(FormatList(nullptr, 4, 3, "%d", 1), -1);
  EXPECT_EQ(FormatList(dst, 4, 4, "%d", 1), -1);
  EXPECT_EQ(FormatList(dst, 0, 0, "%d", 1), -1);

  EXPECT_EQ(Bytes(dst, 4), "....");
}

TEST(SnprintfSTest, AWritableFormatMayStoreACount) {
  char dst[16] = "unset";
  char format[] = "abc%nde";  // a checked function of the C library ends the process over it
  int stored = -1;

  int const length = format_unchecked(dst, sizeof dst, 15, format, &stored);

  EXPECT_EQ(length, 5);
  EXPECT_EQ(stored, 3);
  EXPECT_STREQ(dst, "abcde");
}

}  // namespace
}  // namespace velt::test
