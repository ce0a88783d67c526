#include "platform/message_format.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace velt::test {
namespace {

constexpr wchar_t const kNotInTheCLocale[] = {0x20AC, 0};  // a euro sign

int Expand(char* buffer, std::size_t capacity, char const* format, ...) {
  std::va_list args;
  va_start(args, format);
  int const result = FormatMessage(buffer, capacity, format, args);
  va_end(args);
  return result;
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

TEST(MessageFormatTest, ANullTextArgumentIsSpelledOut) {
  char buffer[16] = "unset";

  int const length = Expand(buffer, sizeof buffer, "[%s]", static_cast<char const*>(nullptr));

  EXPECT_EQ(length, 8);
  EXPECT_STREQ(buffer, "[(null)]");
}

}  // namespace
}  // namespace velt::test
