// VeltAllCfgItem: all items of a file, or those that a marker selects.
#include <string>

#include <gtest/gtest.h>

#include "velt/config.h"

#include "tests/config/config_file.h"
#include "tests/support/files.h"

namespace velt::test {
namespace {

TEST(AllCfgItemTest, CollectsEveryItem) {
  Items const items = AllOf("a = 1\n\n# c=3\n[s]\n =empty name\nb=\nd=x=y");

  EXPECT_EQ(items, (Items{{"", "empty name"}, {"a", "1"}, {"b", ""}, {"d", "x=y"}}));
}

TEST(AllCfgItemTest, TheLastLineOfANameCounts) { EXPECT_EQ(AllOf("n=1\nn=2\n"), (Items{{"n", "2"}})); }

TEST(AllCfgItemTest, AHundredThousandLinesAreScannedToTheEnd) {
  std::string content;
  for (int i = 0; i < 100'000; ++i) content += "some_key=1\n";

  Items const items = AllOf(content + "last_key=end\n", "_key");

  EXPECT_EQ(items, (Items{{"some", "1"}, {"last", "end"}}));
}

TEST(AllCfgItemTest, TheMarkerSelectsAndIsCutFromTheName) {
  Items const items = AllOf("x_output=1\ny_level=2\nz_output_more=3\nplain=4\n", "_output");

  EXPECT_EQ(items, (Items{{"x", "1"}, {"z", "3"}}));
}

TEST(AllCfgItemTest, TheFirstOccurrenceOfTheMarkerCuts) {
  EXPECT_EQ(AllOf("a_level_level=1\n", "_level"), (Items{{"a", "1"}}));
}

TEST(AllCfgItemTest, ANameThatBeginsWithTheMarkerBecomesEmpty) {
  EXPECT_EQ(AllOf("_level=1\n_level_x=2\n", "_level"), (Items{{"", "2"}}));
}

TEST(AllCfgItemTest, TheMarkerInTheValueDoesNotCount) { EXPECT_EQ(AllOf("a=b_level\n", "_level"), Items{}); }

TEST(AllCfgItemTest, TheMarkerIsCaseSensitive) { EXPECT_EQ(AllOf("a_LEVEL=1\n", "_level"), Items{}); }

TEST(AllCfgItemTest, BlanksBeforeTheMarkerStayInTheName) {
  EXPECT_EQ(AllOf("a _level=1\n", "_level"), (Items{{"a ", "1"}}));
}

TEST(AllCfgItemTest, TheMapIsAddedToAndItsEntriesOverwritten) {
  ConfigFile const file("b=new\nc=3\n");
  Items items{{"a", "kept"}, {"b", "old"}};

  EXPECT_TRUE(VeltAllCfgItem(items, file.Path(), ""));

  EXPECT_EQ(items, (Items{{"a", "kept"}, {"b", "new"}, {"c", "3"}}));
}

TEST(AllCfgItemTest, AnEmptyFileNameIsSuccess) {
  Items items{{"a", "kept"}};

  EXPECT_TRUE(VeltAllCfgItem(items, "", "_level"));

  EXPECT_EQ(items, (Items{{"a", "kept"}}));
}

TEST(AllCfgItemTest, AMissingFileIsAFailureThatLeavesTheMap) {
  ScratchDir const directory;
  Items items{{"a", "kept"}};

  EXPECT_FALSE(VeltAllCfgItem(items, directory / "missing.cfg", ""));

  EXPECT_EQ(items, (Items{{"a", "kept"}}));
}

TEST(AllCfgItemTest, EmptyAndBlankFilesAreSuccess) {
  EXPECT_EQ(AllOf(""), Items{});
  EXPECT_EQ(AllOf("\n"), Items{});
  EXPECT_EQ(AllOf(" \t\r\n\r\n  "), Items{});
}

TEST(AllCfgItemTest, ADirectoryOpensButHoldsNothing) {
  ScratchDir const directory;
  Items items{{"a", "kept"}};

  EXPECT_TRUE(VeltAllCfgItem(items, directory.Path(), ""));

  EXPECT_EQ(items, (Items{{"a", "kept"}}));
}

TEST(AllCfgItemTest, AnOverLongLineIsStoredAndEndsTheScanWithSuccess) {
  Items const items = AllOf("a=1\nlong=" + std::string(3000, 'x') + "\nb=2\n");

  EXPECT_EQ(items, (Items{{"a", "1"}, {"long", std::string(2042, 'x')}}));
}

TEST(AllCfgItemTest, TheLastLineNeedsNoNewline) {
  EXPECT_EQ(AllOf("a=1\nb=2"), (Items{{"a", "1"}, {"b", "2"}}));
}

TEST(AllCfgItemTest, CarriageReturnsAndNulsAreNoPartOfAnItem) {
  EXPECT_EQ(AllOf(std::string("a=1\r\nb=2\0x\r\n", 12)), (Items{{"a", "1"}, {"b", "2"}}));
}

}  // namespace
}  // namespace velt::test
