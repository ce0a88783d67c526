// What housekeeping compresses, and in which directories it works.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
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

TEST_F(HousekeepingTest, AFinishedLogIsReplacedByItsReadOnlyArchive) {
  Put("abc_20240305_140709.log", "one\ntwo\n");

  MakeIdleChannel(setup)->ProcessLogFileBeforeCreateNew();

  EXPECT_EQ(Names(), std::vector<std::string>{"abc_20240305_140709.log.gz"});
  EXPECT_EQ(ReadGzip(dir / "abc_20240305_140709.log.gz"), "one\ntwo\n");
  EXPECT_EQ(ModeOf(dir / "abc_20240305_140709.log.gz"), 0440U);
}

TEST_F(HousekeepingTest, EveryLogOfTheChannelIsCompressed) {
  for (int n = 10; n < 60; ++n)
    Put("abc_20240305_1407" + std::to_string(n) + ".log", "log " + std::to_string(n));
  setup.keep = 100;

  MakeIdleChannel(setup)->ProcessLogFileBeforeCreateNew();

  EXPECT_EQ(Names().size(), 50U);
  for (int n = 10; n < 60; ++n) {
    EXPECT_EQ(ReadGzip(dir / ("abc_20240305_1407" + std::to_string(n) + ".log.gz")),
              "log " + std::to_string(n));
  }
}

TEST_F(HousekeepingTest, AnEmptyLogStaysWithoutAnArchive) {
  Put("abc_20240305_140709.log", "");

  MakeIdleChannel(setup)->ProcessLogFileBeforeCreateNew();

  EXPECT_EQ(Names(), std::vector<std::string>{"abc_20240305_140709.log"});
}

TEST_F(HousekeepingTest, ForeignFilesAndNearMissesStayAsTheyAre) {
  std::vector<std::string> names = {
      "abc_2024030_140709.log",     "abc_20240305_140709.log.bak", "abc_20240305_140709.tar",
      "abc_20240305_140709.tar.gz", "abc_d20240305_140709.log",    "abc_d20240305_140709.log.gz",
      "abd_20240305_140709.log",    "abd_20240305_140709.log.gz",  "core",
      "xabc_20240305_140709.log.gz"};
  for (int n = 0; n < 2000; ++n) names.push_back("foreign_" + std::to_string(n));
  for (auto const& name : names) Put(name, name);
  fs::create_directory(dir / "abc_20240306_140709.log");
  fs::create_directory(dir / "abc_20240306_140709.log.gz");
  Put("abc_20240306_140709.log/inside");
  setup.keep = 0;

  MakeIdleChannel(setup)->ProcessLogFileBeforeCreateNew();

  EXPECT_EQ(Names().size(), names.size() + 2);
  for (auto const& name : names) EXPECT_EQ(ReadFile(dir / name), name);
  EXPECT_TRUE(Exists(dir / "abc_20240306_140709.log/inside"));
  EXPECT_TRUE(fs::is_directory(dir / "abc_20240306_140709.log.gz"));
}

TEST_F(HousekeepingTest, ALogWhoseArchiveNameIsTakenStaysAndTheOthersAreCompressed) {
  Put("abc_20240305_140701.log");
  fs::create_directory(dir / "abc_20240305_140701.log.gz");
  Put("abc_20240305_140702.log");

  MakeIdleChannel(setup)->ProcessLogFileBeforeCreateNew();

  EXPECT_EQ(Names(), (std::vector<std::string>{"abc_20240305_140701.log", "abc_20240305_140701.log.gz",
                                               "abc_20240305_140702.log.gz"}));
}

TEST_F(HousekeepingTest, ALogThatCannotBeRemovedKeepsItsArchive) {
  Put("abc_20240305_140701.log", "content");
  std::vector<std::string> const stuck = {fs::canonical(dir.Path()).string() + "/abc_20240305_140701.log"};
  std::vector<std::string> list = stuck;
  auto const channel = MakeIdleChannel(setup);
  unremovable = &list;

  channel->ProcessLogFileBeforeCreateNew();

  unremovable = nullptr;
  EXPECT_EQ(Names(), (std::vector<std::string>{"abc_20240305_140701.log", "abc_20240305_140701.log.gz"}));
  EXPECT_EQ(ReadGzip(dir / "abc_20240305_140701.log.gz"), "content");
}

TEST_F(HousekeepingTest, ASecondLogBesideItsReadOnlyArchiveStaysForAnOrdinaryUser) {
  std::string const log = dir / "abc_20240305_140709.log";
  chmod(dir.Path().c_str(), 0777);
  auto const body = [this, &log] {
    if (geteuid() == 0 && setuid(65534) != 0) return 2;
    auto const channel = MakeIdleChannel(setup);
    WriteFile(log, "older");
    channel->ProcessLogFileBeforeCreateNew();
    WriteFile(log, "newer");
    channel->ProcessLogFileBeforeCreateNew();
    channel->ProcessLogFileBeforeCreateNew();
    return ReadFile(log) == "newer" && ReadGzip(log + ".gz") == "older" ? 0 : 1;
  };

  Outcome const child = RunInChild(body);

  EXPECT_EQ(child.exit_code, 0);
  EXPECT_EQ(Names(), (std::vector<std::string>{"abc_20240305_140709.log", "abc_20240305_140709.log.gz"}));
}

TEST_F(HousekeepingTest, ALogThatIsALinkBecomesAnArchiveAndItsTargetStays) {
  Put("target", "content");
  fs::create_symlink("target", dir / "abc_20240305_140709.log");

  MakeIdleChannel(setup)->ProcessLogFileBeforeCreateNew();

  EXPECT_EQ(Names(), (std::vector<std::string>{"abc_20240305_140709.log.gz", "target"}));
  EXPECT_EQ(ReadFile(dir / "target"), "content");
}

TEST_F(HousekeepingTest, ADirectoryThatIsALinkIsWorkedOnWhereItLeads) {
  fs::create_directory(dir / "real");
  fs::create_directory_symlink("real", dir / "link");
  Put("real/abc_20240305_140709.log");
  setup.directory = dir / "link";

  MakeIdleChannel(setup)->ProcessLogFileBeforeCreateNew();

  EXPECT_EQ(ListDir(dir / "real"), std::vector<std::string>{"abc_20240305_140709.log.gz"});
  EXPECT_TRUE(fs::is_symlink(dir / "link"));
}

TEST_F(HousekeepingTest, AMissingDirectoryIsNothingToDo) {
  setup.directory = dir / "missing";
  auto const channel = MakeIdleChannel(setup);

  EXPECT_NO_THROW(channel->ProcessLogFileBeforeCreateNew());
  EXPECT_NO_THROW(channel->RemoveSpilthFile());
  EXPECT_FALSE(Exists(dir / "missing"));
}

TEST_F(HousekeepingTest, ADirectoryThatIsAFileIsNothingToDo) {
  Put("file", "content");
  setup.directory = dir / "file";
  auto const channel = MakeIdleChannel(setup);

  EXPECT_NO_THROW(channel->ProcessLogFileBeforeCreateNew());
  EXPECT_NO_THROW(channel->RemoveSpilthFile());
  EXPECT_EQ(ReadFile(dir / "file"), "content");
}

TEST_F(HousekeepingTest, ADirectoryThatCannotBeListedIsNothingToDoForAnOrdinaryUser) {
  fs::create_directory(dir / "logs");
  Put("logs/abc_20240305_140709.log");
  setup.directory = dir / "logs";
  setup.keep = 0;
  chmod(dir.Path().c_str(), 0755);
  chmod(setup.directory.c_str(), 0333);

  Outcome const child = RunInChild([this] {
    if (geteuid() == 0 && setuid(65534) != 0) return 2;
    MakeIdleChannel(setup)->ProcessLogFileBeforeCreateNew();
    return 0;
  });

  chmod(setup.directory.c_str(), 0755);
  EXPECT_EQ(child.exit_code, 0);
  EXPECT_EQ(ListDir(setup.directory), std::vector<std::string>{"abc_20240305_140709.log"});
}

TEST_F(HousekeepingTest, ALongSpellingOfTheDirectoryWorks) {
  Put("abc_20240305_140709.log");
  setup.directory = dir.Path() + std::string(3900 - dir.Path().size(), '/');

  MakeIdleChannel(setup)->ProcessLogFileBeforeCreateNew();

  EXPECT_EQ(Names(), std::vector<std::string>{"abc_20240305_140709.log.gz"});
}

TEST_F(HousekeepingTest, DirectoriesAtAndBeyondTheLongestLengthDoNothing) {
  Put("abc_20240305_140709.log");
  for (std::size_t const length : {4095U, 4096U, 4097U, 4098U, 100'000U}) {
    setup.directory = dir.Path() + std::string(length - dir.Path().size(), '/');
    auto const channel = MakeIdleChannel(setup);
    ASSERT_EQ(channel->LogPath().size(), length);

    EXPECT_NO_THROW(channel->ProcessLogFileBeforeCreateNew());
    EXPECT_NO_THROW(channel->RemoveSpilthFile());
    EXPECT_FALSE(channel->OpenNewFile()) << length;
    EXPECT_EQ(channel->GetFileType("abc_20240305_140709.log"), 4) << length;
  }
  EXPECT_EQ(Names(), std::vector<std::string>{"abc_20240305_140709.log"});
}

TEST_F(HousekeepingTest, CompressionIsFollowedByPruning) {
  PutArchives(3);
  Put("abc_20240305_140709.log");
  setup.keep = 3;

  MakeIdleChannel(setup)->ProcessLogFileBeforeCreateNew();

  EXPECT_EQ(Names(), (std::vector<std::string>{ArchiveName(1), ArchiveName(2), ArchiveName(3)}));
}

TEST_F(HousekeepingTest, AnArchiveHoldsOneLogWhateverIsAskedFor) {
  Put("abc_20240305_140701.log", "one");
  Put("abc_20240305_140702.log", "two");
  std::unique_ptr<VeltDebugInfo> channel;
  {
    NoNewThreads const none;
    channel = std::make_unique<VeltDebugInfo>(dir.Path(), "abc_", "", false, false, 0U, 1000U, 30U, 2U, true);
  }

  channel->ProcessLogFileBeforeCreateNew();

  EXPECT_EQ(ReadGzip(dir / "abc_20240305_140701.log.gz"), "one");
  EXPECT_EQ(ReadGzip(dir / "abc_20240305_140702.log.gz"), "two");
}

}  // namespace
}  // namespace velt::test
