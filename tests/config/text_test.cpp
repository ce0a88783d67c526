#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "velt/config.h"

namespace velt::test {
namespace {

constexpr char const* kBlanks = " \t\r\n";

std::string Trimmed(std::string text) {
  VeltStrTrim(text.data());
  text.resize(std::strlen(text.data()));
  return text;
}

TEST(TrimStringTest, RemovesTheCharactersOfTheSetAtBothEnds) {
  EXPECT_EQ(TrimString(" \t\r\n text \n\r\t ", kBlanks), "text");
  EXPECT_EQ(TrimString("  text", kBlanks), "text");
  EXPECT_EQ(TrimString("text  ", kBlanks), "text");
  EXPECT_EQ(TrimString("x", kBlanks), "x");
}

TEST(TrimStringTest, KeepsTheCharactersOfTheSetInTheMiddle) {
  EXPECT_EQ(TrimString(" a \t b ", kBlanks), "a \t b");
}

TEST(TrimStringTest, OnlyTheSetCounts) {
  EXPECT_EQ(TrimString("xxabcxx", "x"), "abc");
  EXPECT_EQ(TrimString(" abc ", "x"), " abc ");
  EXPECT_EQ(TrimString("xyabcyx", "yx"), "abc");
  EXPECT_EQ(TrimString("\v\fabc", kBlanks), "\v\fabc") << "other white space stays";
}

TEST(TrimStringTest, ANullOrEmptySetGivesACopy) {
  EXPECT_EQ(TrimString("  text ", nullptr), "  text ");
  EXPECT_EQ(TrimString("  text ", ""), "  text ");
  EXPECT_EQ(TrimString("", nullptr), "");
}

TEST(TrimStringTest, ATextOfTheSetOnlyBecomesEmpty) {
  EXPECT_EQ(TrimString(" ", kBlanks), "");
  EXPECT_EQ(TrimString(" \t\r\n\r\t ", kBlanks), "");
  EXPECT_EQ(TrimString("", kBlanks), "");
}

TEST(TrimStringTest, LeavesItsArgumentAlone) {
  std::string const text = "  text  ";

  std::string const trimmed = TrimString(text, kBlanks);

  EXPECT_EQ(trimmed, "text");
  EXPECT_EQ(text, "  text  ");
}

TEST(TrimStringTest, NulAndHighBytesAreOrdinaryCharacters) {
  std::string const text("\0 a\0 ", 5);

  EXPECT_EQ(TrimString(text, kBlanks), std::string("\0 a\0", 4));
  EXPECT_EQ(TrimString("\xA0 x", kBlanks), "\xA0 x");
}

TEST(StrTrimTest, RemovesSpacesAndTabsAtBothEnds) {
  EXPECT_EQ(Trimmed(" \t text \t "), "text");
  EXPECT_EQ(Trimmed("  text"), "text");
  EXPECT_EQ(Trimmed("text\t\t"), "text");
  EXPECT_EQ(Trimmed(" x"), "x");
  EXPECT_EQ(Trimmed("x "), "x");
}

TEST(StrTrimTest, KeepsBlanksInTheMiddle) { EXPECT_EQ(Trimmed(" a \t b "), "a \t b"); }

TEST(StrTrimTest, CarriageReturnAndLineFeedStay) {
  EXPECT_EQ(Trimmed(" text\r\n"), "text\r\n");
  EXPECT_EQ(Trimmed(" text \r\n"), "text \r\n");
  EXPECT_EQ(Trimmed("\n text "), "\n text");
  EXPECT_EQ(Trimmed(" \r "), "\r");
}

TEST(StrTrimTest, ATextOfBlanksOnlyBecomesEmpty) {
  EXPECT_EQ(Trimmed(" "), "");
  EXPECT_EQ(Trimmed("\t"), "");
  EXPECT_EQ(Trimmed(" \t \t"), "");
}

TEST(StrTrimTest, NullAndEmptyAreLeftAlone) {
  char empty[] = "\0x";

  VeltStrTrim(nullptr);
  VeltStrTrim(empty);

  EXPECT_EQ(std::string(empty, 2), std::string("\0x", 2));
}

TEST(StrTrimTest, NothingBehindTheEndIsTouched) {
  char text[] = "  ab  \0rest";

  VeltStrTrim(text);

  EXPECT_STREQ(text, "ab");
  EXPECT_STREQ(text + 7, "rest");
}

TEST(StrTrimTest, ATextWithNothingToRemoveIsNotWritten) {
  auto const page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  void* const memory = mmap(nullptr, page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  auto* const text = static_cast<char*>(memory);
  std::memcpy(text, "a \t b\r\n", 8);
  ASSERT_EQ(mprotect(memory, page, PROT_READ), 0);

  VeltStrTrim(text);  // a write to it would crash

  EXPECT_STREQ(text, "a \t b\r\n");
  munmap(memory, page);
}

}  // namespace
}  // namespace velt::test
