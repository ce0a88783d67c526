// One line of a configuration: VeltGetNameValue, and VeltGetLine from a stream.
#include <fstream>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include "velt/config.h"

#include "tests/config/config_file.h"

namespace velt::test {
namespace {

// What a call returned and what it left in the name and the value, which hold "old" before it.
struct Item {
  int result = 0;
  std::string name = "old";
  std::string value = "old";
};

Item Split(std::string const& line) {
  Item item;
  item.result = VeltGetNameValue(line, item.name, item.value);
  return item;
}

Item NextItem(std::ifstream& in) {
  Item item;
  item.result = VeltGetLine(in, item.name, item.value);
  return item;
}

bool operator==(Item const& a, Item const& b) {
  return a.result == b.result && a.name == b.name && a.value == b.value;
}
std::ostream& operator<<(std::ostream& out, Item const& item) {
  return out << item.result << " '" << item.name << "' '" << item.value << '\'';
}

TEST(NameValueTest, TheFirstEqualsSignSplitsTheLine) {
  EXPECT_EQ(Split("key=a=b==c"), (Item{1, "key", "a=b==c"}));
}

TEST(NameValueTest, BothSidesAreTrimmed) {
  EXPECT_EQ(Split(" \t\r\n my key \t = \t my value \r\n"), (Item{1, "my key", "my value"}));
}

TEST(NameValueTest, ALineWithoutAnEqualsSignLeavesBothUntouched) {
  EXPECT_EQ(Split("just text"), (Item{-1, "old", "old"}));
  EXPECT_EQ(Split(""), (Item{-1, "old", "old"}));
}

TEST(NameValueTest, AnEqualsSignAtTheEndGivesTheEmptyValue) {
  EXPECT_EQ(Split("key="), (Item{1, "key", ""}));
}

TEST(NameValueTest, AnEqualsSignAtTheStartGivesTheEmptyName) {
  EXPECT_EQ(Split("=text"), (Item{1, "", "text"}));
}

TEST(NameValueTest, ALoneEqualsSignGivesTwoEmptyTexts) { EXPECT_EQ(Split("="), (Item{1, "", ""})); }

TEST(NameValueTest, ASideOfBlanksIsEmpty) { EXPECT_EQ(Split(" \t=\r\n "), (Item{1, "", ""})); }

TEST(GetLineTest, ReadsOneItemAfterTheOther) {
  ConfigFile const file("a=1\n\n  # comment = no\nb=2");
  std::ifstream in(file.Path());

  EXPECT_EQ(NextItem(in), (Item{1, "a", "1"}));
  EXPECT_EQ(NextItem(in), (Item{2, "old", "old"})) << "a blank line";
  EXPECT_EQ(NextItem(in), (Item{2, "old", "old"})) << "a comment";
  EXPECT_EQ(NextItem(in), (Item{1, "b", "2"})) << "the last line has no newline";
  EXPECT_FALSE(in.good());
}

TEST(GetLineTest, ALineWithoutAnEqualsSignHoldsNoItem) {
  ConfigFile const file("[section]\ntext\n");
  std::ifstream in(file.Path());

  EXPECT_EQ(NextItem(in), (Item{2, "old", "old"}));
  EXPECT_EQ(NextItem(in), (Item{2, "old", "old"}));
}

TEST(GetLineTest, AStreamThatCannotBeReadHoldsNoItem) {
  ConfigFile const file("a=1\n");
  std::ifstream ended(file.Path());
  ended.setstate(std::ios::eofbit);
  std::ifstream never_opened;

  EXPECT_EQ(NextItem(ended), (Item{2, "old", "old"}));
  EXPECT_EQ(NextItem(never_opened), (Item{2, "old", "old"}));
}

TEST(GetLineTest, ALineOf2047CharactersIsWholeAndTheNextOneFollows) {
  ConfigFile const file("key=" + std::string(2043, 'x') + "\nnext=1\n");
  std::ifstream in(file.Path());

  EXPECT_EQ(NextItem(in), (Item{1, "key", std::string(2043, 'x')}));
  EXPECT_TRUE(in.good());
  EXPECT_EQ(NextItem(in), (Item{1, "next", "1"}));
}

TEST(GetLineTest, ALineOf2048CharactersIsCutAndFailsTheStream) {
  ConfigFile const file("key=" + std::string(2044, 'x') + "\nnext=1\n");
  std::ifstream in(file.Path());

  EXPECT_EQ(NextItem(in), (Item{1, "key", std::string(2043, 'x')}));
  EXPECT_TRUE(in.fail());
}

TEST(GetLineTest, ALineEndsAtItsFirstNul) {
  ConfigFile const file(std::string("a=1\0 2\n\0b=2\nc=3\n", 16));
  std::ifstream in(file.Path());

  EXPECT_EQ(NextItem(in), (Item{1, "a", "1"}));
  EXPECT_EQ(NextItem(in), (Item{2, "old", "old"})) << "a NUL first: the line is blank";
  EXPECT_EQ(NextItem(in), (Item{1, "c", "3"}));
}

}  // namespace
}  // namespace velt::test
