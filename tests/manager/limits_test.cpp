// The table of limits: what each number of a configuration becomes at its bounds and beyond them.
#include <climits>
#include <string>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "debug/manager/limits.h"
#include "tests/support/manager_host.h"

namespace velt::test {
namespace {

TEST(LimitsTest, TheRingTakesNoneToAThousandRecordsAndElseAHundred) {
  EXPECT_EQ(Bounded(kRingRecords, 0), 0);
  EXPECT_EQ(Bounded(kRingRecords, 1000), 1000);
  EXPECT_EQ(Bounded(kRingRecords, -1), 100);
  EXPECT_EQ(Bounded(kRingRecords, 1001), 100);
}

TEST(LimitsTest, AManagerTakesNoneToAHundredChannelsAndElseFifty) {
  EXPECT_EQ(Bounded(kChannels, 0), 0);
  EXPECT_EQ(Bounded(kChannels, 100), 100);
  EXPECT_EQ(Bounded(kChannels, -1), 50);
  EXPECT_EQ(Bounded(kChannels, 101), 50);
}

TEST(LimitsTest, AFileTakesOneToFiftyMegabytesAndElseFive) {
  EXPECT_EQ(Bounded(kFileBytes, 1'048'576), 1'048'576);
  EXPECT_EQ(Bounded(kFileBytes, 52'428'800), 52'428'800);
  EXPECT_EQ(Bounded(kFileBytes, 1'048'575), 5'242'880);
  EXPECT_EQ(Bounded(kFileBytes, 52'428'801), 5'242'880);
  EXPECT_EQ(Bounded(kFileBytes, INT_MIN), 5'242'880);
}

TEST(LimitsTest, AHostKeepsOneToTwoHundredArchivesAndElseThirty) {
  EXPECT_EQ(Bounded(kArchives, 1), 1);
  EXPECT_EQ(Bounded(kArchives, 200), 200);
  EXPECT_EQ(Bounded(kArchives, 0), 30);
  EXPECT_EQ(Bounded(kArchives, 201), 30);
}

TEST(LimitsTest, AnArchiveTakesOneToFiftyFilesAndElseTen) {
  EXPECT_EQ(Bounded(kFilesPerArchive, 1), 1);
  EXPECT_EQ(Bounded(kFilesPerArchive, 50), 50);
  EXPECT_EQ(Bounded(kFilesPerArchive, 0), 10);
  EXPECT_EQ(Bounded(kFilesPerArchive, 51), 10);
}

TEST(LimitsTest, OneHostKeepsFiveTimesTheArchives) {
  EXPECT_EQ(ArchiveFactor("VELTMrb_p2_"), 5);
  EXPECT_EQ(ArchiveFactor("VELTMrb_p3_"), 1);
}

TEST(LimitsTest, AKeyThatTheHostRenamesIsLookedUpByItsNewName) {
  ManagerHost const host("nEachFileMaxSize = 7\nfile_megabytes = 9\n");
  MAXLOGSIZEITEM = "file_megabytes";
  int bytes = 0;

  EXPECT_TRUE(VeltDebugMgr::GetMaxFileSize(bytes, host.ConfigFile(), "", true));

  EXPECT_EQ(bytes, 9'437'184);
}

}  // namespace
}  // namespace velt::test
