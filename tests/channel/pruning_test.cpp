// Which archives of a log directory are deleted, and which are spared.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "velt/channel.h"

#include "tests/channel/housekeeping.h"
#include "tests/support/channel.h"
#include "tests/support/failing_removals.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace fs = std::filesystem;

namespace velt::test {
namespace {

using PruningTest = HousekeepingTest;

TEST_F(PruningTest, AsManyArchivesAsTheLimitAllStay) {
  PutArchives(30);

  MakeIdleChannel(setup)->RemoveSpilthFile();

  EXPECT_EQ(Names().size(), 30U);
}

TEST_F(PruningTest, OneArchiveAboveTheLimitCostsTheOldest) {
  PutArchives(31);

  MakeIdleChannel(setup)->RemoveSpilthFile();

  EXPECT_EQ(Names().size(), 30U);
  EXPECT_FALSE(Exists(dir / ArchiveName(1)));
}

TEST_F(PruningTest, ThreeArchivesAboveTheLimitCostTheThreeSmallestNames) {
  for (int n = 33; n >= 1; --n) Put(ArchiveName(n));  // the name counts, not which is made last

  MakeIdleChannel(setup)->RemoveSpilthFile();

  EXPECT_EQ(Names().size(), 30U);
  for (int n = 1; n <= 3; ++n) EXPECT_FALSE(Exists(dir / ArchiveName(n))) << n;
  EXPECT_TRUE(Exists(dir / ArchiveName(4)));
}

TEST_F(PruningTest, TheArchiveOfTheFirstFileIsSparedAndTheNextOneGoes) {
  auto const channel = MakeIdleChannel(setup);
  std::string const first = LeaveFirstFile(*channel);
  PutArchives(32);  // with the first 33, of which it is the oldest

  channel->RemoveSpilthFile();

  EXPECT_EQ(Names().size(), 30U);
  EXPECT_TRUE(Exists(dir / first));
  for (int n = 1; n <= 3; ++n) EXPECT_FALSE(Exists(dir / ArchiveName(n))) << n;
  EXPECT_TRUE(Exists(dir / ArchiveName(4)));
}

TEST_F(PruningTest, TheFirstFileStaysTheFirstAfterFurtherFiles) {
  auto const channel = MakeIdleChannel(setup);
  std::string const first = LeaveFirstFile(*channel);
  WaitForNextSecond();
  std::string const second = LeaveFirstFile(*channel);
  ASSERT_NE(first, second);
  PutArchives(30);  // both are the oldest of 32

  channel->RemoveSpilthFile();

  EXPECT_TRUE(Exists(dir / first));
  EXPECT_FALSE(Exists(dir / second));
  EXPECT_FALSE(Exists(dir / ArchiveName(1)));
  EXPECT_TRUE(Exists(dir / ArchiveName(2)));
}

TEST_F(PruningTest, AFirstOpenThatFailedProtectsNothing) {
  setup.directory = dir / "a/b";
  auto const channel = MakeIdleChannel(setup);
  ASSERT_FALSE(channel->OpenNewFile());
  fs::create_directories(setup.directory);
  for (int n = 1; n <= 31; ++n) Put("a/b/" + ArchiveName(n));

  channel->RemoveSpilthFile();

  EXPECT_EQ(ListDir(setup.directory).size(), 30U);
  EXPECT_FALSE(Exists(dir / ("a/b/" + ArchiveName(1))));
}

TEST_F(PruningTest, ALimitOfZeroRemovesEveryArchive) {
  PutArchives(5);
  setup.keep = 0;

  MakeIdleChannel(setup)->RemoveSpilthFile();

  EXPECT_EQ(Names(), std::vector<std::string>{});
}

TEST_F(PruningTest, ALimitOfZeroSparesTheFirstFile) {
  setup.keep = 0;
  auto const channel = MakeIdleChannel(setup);
  std::string const first = LeaveFirstFile(*channel);
  PutArchives(5);

  channel->RemoveSpilthFile();

  EXPECT_EQ(Names(), std::vector<std::string>{first});
}

TEST_F(PruningTest, ALimitOfOneKeepsOne) {
  PutArchives(2);
  setup.keep = 1;

  MakeIdleChannel(setup)->RemoveSpilthFile();

  EXPECT_EQ(Names(), std::vector<std::string>{ArchiveName(2)});
}

TEST_F(PruningTest, TheLargestLimitRemovesNothing) {
  PutArchives(50);
  setup.keep = 4'294'967'295U;

  MakeIdleChannel(setup)->RemoveSpilthFile();

  EXPECT_EQ(Names().size(), 50U);
}

TEST_F(PruningTest, ARemovalThatFailedIsCounted) {
  PutArchives(5);
  setup.keep = 3;
  auto const channel = MakeIdleChannel(setup);
  std::vector<std::string> stuck = {dir / ArchiveName(1)};
  std::vector<std::string> asked;
  unremovable = &stuck;
  asked_to_remove = &asked;

  channel->RemoveSpilthFile();

  unremovable = nullptr;
  asked_to_remove = nullptr;
  EXPECT_EQ(asked, (std::vector<std::string>{dir / ArchiveName(1), dir / ArchiveName(2)}));
  EXPECT_EQ(Names(),
            (std::vector<std::string>{ArchiveName(1), ArchiveName(3), ArchiveName(4), ArchiveName(5)}));
}

TEST_F(PruningTest, WhenNoRemovalWorksItEndsWithEverythingInPlace) {
  PutArchives(4);
  setup.keep = 0;
  auto const channel = MakeIdleChannel(setup);
  std::vector<std::string> stuck;
  for (int n = 1; n <= 4; ++n) stuck.push_back(dir / ArchiveName(n));
  unremovable = &stuck;

  channel->RemoveSpilthFile();

  unremovable = nullptr;
  EXPECT_EQ(Names().size(), 4U);
}

TEST_F(PruningTest, TheStemIsFoundAnywhereInAName) {
  setup.prefix = "a";
  setup.keep = 0;
  auto const channel = MakeIdleChannel(setup);
  std::string const first = LeaveFirstFile(*channel);  // "a<15 characters>.log.gz"
  std::string const stem = first.substr(0, 16);
  Put("axyz" + stem + ".gz");  // as long as an archive's name, the stem in its middle
  Put("a29990101_000001.log.gz");

  channel->RemoveSpilthFile();

  EXPECT_EQ(Names(), (std::vector<std::string>{first, "axyz" + stem + ".gz"}));
}

TEST_F(PruningTest, TheStemEndsAtTheFirstDotOfThePrefix) {
  setup.prefix = "a.b_";
  setup.keep = 0;
  auto const channel = MakeIdleChannel(setup);
  std::string const first = LeaveFirstFile(*channel);
  Put("a.b_29990101_000001.log.gz");

  channel->RemoveSpilthFile();

  EXPECT_EQ(Names(), (std::vector<std::string>{first, "a.b_29990101_000001.log.gz"}))
      << "every name contains \"a\"";
}

TEST_F(PruningTest, APrefixThatBeginsWithADotProtectsNothing) {
  setup.prefix = ".abc_";
  setup.keep = 0;
  auto const channel = MakeIdleChannel(setup);
  LeaveFirstFile(*channel);
  Put(".abc_29990101_000001.log.gz");

  channel->RemoveSpilthFile();

  EXPECT_EQ(Names(), std::vector<std::string>{});
}

TEST_F(PruningTest, OnlyArchivesOfTheChannelAreCountedAndRemoved) {
  setup.keep = 1;
  std::vector<std::string> const foreign = {"abc_20240305_140709.log",    "abc_20240305_140709.tar",
                                            "abc_20240305_140709.tar.gz", "abd_20240305_140709.log.gz",
                                            "abc_2024030_140709.log.gz",  "unrelated.gz"};
  for (auto const& name : foreign) Put(name);
  PutArchives(1);

  MakeIdleChannel(setup)->RemoveSpilthFile();

  EXPECT_EQ(Names().size(), 7U);
}

TEST_F(PruningTest, WhatIsNoRegularFileIsNoArchiveWhateverItsName) {
  setup.keep = 1;
  fs::create_directory(dir / ArchiveName(1));
  fs::create_symlink("missing", dir / ArchiveName(2));
  ASSERT_EQ(mkfifo((dir / ArchiveName(3)).c_str(), 0600), 0);
  Put(ArchiveName(4));

  MakeIdleChannel(setup)->RemoveSpilthFile();

  EXPECT_EQ(Names(),
            (std::vector<std::string>{ArchiveName(1), ArchiveName(2), ArchiveName(3), ArchiveName(4)}));
}

TEST_F(PruningTest, AnArchiveThatIsALinkIsRemovedAndItsTargetStays) {
  setup.keep = 0;
  Put("target");
  fs::create_symlink("target", dir / ArchiveName(1));

  MakeIdleChannel(setup)->RemoveSpilthFile();

  EXPECT_EQ(Names(), std::vector<std::string>{"target"});
}

}  // namespace
}  // namespace velt::test
