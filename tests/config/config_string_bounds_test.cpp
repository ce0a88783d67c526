// VeltGetCfgString on over-long lines, at the edges of the blocks that are read, on foreign bytes and in
// large files.
#include <cstddef>
#include <string>

#include <gtest/gtest.h>

#include "tests/config/config_file.h"

namespace velt::test {
namespace {

TEST(CfgStringBoundsTest, AnOverLongLineIsParsedAndEndsTheSearch) {
  std::string const content = "before=1\nlong=" + std::string(5000, 'x') + "\nafter=2\n";

  EXPECT_EQ(ValueOf("before", content), "1");
  EXPECT_EQ(ValueOf("long", content), std::string(2042, 'x'));
  EXPECT_EQ(ValueOf("after", content), "<none>");
}

TEST(CfgStringBoundsTest, AnOverLongCommentEndsTheSearchToo) {
  EXPECT_EQ(ValueOf("after", "#" + std::string(2047, 'x') + "\nafter=2\n"), "<none>");
  EXPECT_EQ(ValueOf("after", "#" + std::string(2046, 'x') + "\nafter=2\n"), "2");
}

TEST(CfgStringBoundsTest, AnOverLongLastLineWithoutANewlineIsParsed) {
  EXPECT_EQ(ValueOf("key", "key=" + std::string(2043, 'x')), std::string(2043, 'x'));
  EXPECT_EQ(ValueOf("key", "key=" + std::string(2044, 'x')), std::string(2043, 'x'));
}

TEST(CfgStringBoundsTest, ALineOfOneMebibyteIsCut) {
  std::string const content = "key=" + std::string(1'048'576, 'x') + "\nafter=1\n";

  EXPECT_EQ(ValueOf("key", content), std::string(2043, 'x'));
  EXPECT_EQ(ValueOf("after", content), "<none>");
}

TEST(CfgStringBoundsTest, ValuesEndAtANul) {
  std::string const content("a=x\0y\n\0b=1\nc=2\n", 15);

  EXPECT_EQ(ValueOf("a", content), "x");
  EXPECT_EQ(ValueOf("b", content), "<none>");
  EXPECT_EQ(ValueOf("c", content), "2");
}

// A file is read in blocks; where they end must not show.
TEST(CfgStringBoundsTest, ALineMayLieAcrossTheEndOfABlockAnywhere) {
  constexpr std::size_t kBlock = 8192;
  std::string const line = std::string(2000, 'x') + '\n';
  for (std::size_t shift = 0; shift <= 24; ++shift) {
    std::string content = line + line + line + line;
    content.append(kBlock - 16 + shift - content.size() - 1, 'y');
    content += "\n key = at the edge \r\nnext=1\n";

    EXPECT_EQ(ValueOf("key", content), "at the edge") << shift;
    EXPECT_EQ(ValueOf("next", content), "1") << shift;
    EXPECT_EQ(AllOf(content), (Items{{"key", "at the edge"}, {"next", "1"}})) << shift;
  }
}

TEST(CfgStringBoundsTest, TheLongestLineIsTheSameAcrossTheEndOfABlock) {
  std::string const before = std::string(2000, 'x') + '\n' + std::string(2000, 'x') + '\n' +
                             std::string(2000, 'x') + '\n' + std::string(500, 'x') + '\n';
  std::string const whole = before + "key=" + std::string(2043, 'v') + "\nafter=1\n";
  std::string const too_long = before + "key=" + std::string(2044, 'v') + "\nafter=1\n";

  EXPECT_EQ(ValueOf("key", whole), std::string(2043, 'v'));
  EXPECT_EQ(ValueOf("after", whole), "1");
  EXPECT_EQ(ValueOf("key", too_long), std::string(2043, 'v'));
  EXPECT_EQ(ValueOf("after", too_long), "<none>");
}

TEST(CfgStringBoundsTest, ForeignBytesDoNotHideTheItemsBetweenThem) {
  std::string content;
  for (int i = 0; i < 256; ++i) content.push_back(static_cast<char>(i));  // one newline among them
  content += "\nkey=value\n";

  EXPECT_EQ(ValueOf("key", content), "value");
}

TEST(CfgStringBoundsTest, TheLastOfAMillionLinesIsFound) {
  std::string content;
  for (int i = 0; i < 999'999; ++i) content += "some_key=1\n";
  ConfigFile const file(content + "last_key=end\n");

  Found const result = LookUp("last_key", file.Path());

  EXPECT_EQ(result.text, "end");
}

}  // namespace
}  // namespace velt::test
