// Housekeeping of a log directory: which files are a channel's, what is compressed, what is deleted.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "velt/channel.h"

#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace fs = std::filesystem;

namespace {

// Paths that the function below does not remove, and the paths it was called with.
std::vector<std::string>* unremovable = nullptr;
std::vector<std::string>* asked_to_remove = nullptr;

}  // namespace

// Replaces the system's function in this whole program.
extern "C" int remove(char const* path) noexcept {
  if (asked_to_remove != nullptr) asked_to_remove->emplace_back(path);
  if (unremovable != nullptr &&
      std::find(unremovable->begin(), unremovable->end(), path) != unremovable->end()) {
    errno = EPERM;
    return -1;
  }
  if (unlink(path) == 0) return 0;
  return errno == EISDIR || errno == EPERM ? rmdir(path) : -1;
}

namespace velt::test {
namespace {

// The name of the n-th archive of prefix "abc_" in a year to come: later than every file that a test makes.
std::string ArchiveName(int n) {
  char name[64];
  std::snprintf(name, sizeof name, "abc_29990101_%06d.log.gz", n);
  return name;
}

class HousekeepingTest : public ::testing::Test {
 protected:
  HousekeepingTest() { setup.prefix = "abc_"; }

  void Put(std::string const& name, std::string const& content = "content") const {
    WriteFile(dir / name, content);
  }
  void PutArchives(int count) const {
    for (int n = 1; n <= count; ++n) Put(ArchiveName(n));
  }
  int TypeOf(std::string const& name) const { return MakeIdleChannel(setup)->GetFileType(name); }
  std::vector<std::string> Names() const { return ListDir(dir.Path()); }

  // Opens and closes the first file of a channel, and replaces it by a file with the name of its archive.
  std::string LeaveFirstFile(VeltDebugInfo& channel) const {
    EXPECT_TRUE(channel.OpenNewFile());
    channel.CloseFile();
    auto const logs = FilesOf(dir.Path(), setup.prefix, ".log");
    std::string const name = logs.empty() ? "" : logs.front();
    fs::rename(dir / name, dir / (name + ".gz"));
    return name + ".gz";
  }

  ScratchDir const dir;
  ChannelSetup setup{dir.Path()};
};

using FileTypeTest = HousekeepingTest;

TEST_F(FileTypeTest, PrefixSuffixAndLengthTellTheKinds) {
  struct Row {
    char const* name;
    int type;
  };
  Row const rows[] = {
      {"abc_20240305_140709.tar.gz", 0},
      {"abc_20240305_140709.log", 1},
      {"abc_20240305_140709.tar", 2},
      {"abc_20240305_140709.log.gz", 3},
      {"abc_xxxxxxxxxxxxxxx.log", 1},  // the time characters are not looked at
      {"abc_...............log", 4},   // one character short
      {"abc_2024030_140709.log", 4},
      {"abc_d20240305_140709.log", 4},
      {"abc_20240305_140709.log.bak", 4},
      {"abc_20240305_140709.LOG", 4},
      {"abc_20240305_140709.log ", 4},
      {"abc_20240305_140709_log", 4},
      {"abc_2024030_140709.tar", 4},
      {"abc_d20240305_140709.tar", 4},
      {"abc_2024030_140709.tar.gz", 4},
      {"abc_d20240305_140709.tar.gz", 4},
      {"abc_2024030_140709.log.gz", 4},
      {"abc_d20240305_140709.log.gz", 4},
      {"abc_20240305_140709.old.gz", 3},  // any name of that length that ends in ".gz"
      {"abc_xxxxxxxxxxxxxxxxxxx.gz", 3},
      {"abc_20240305_140709.gz", 4},
      {"abc_20240305_140709.zip", 4},
      {"Abc_20240305_140709.log", 4},
      {"xabc_20240305_140709.log", 4},
      {"ab_20240305_1407091.log", 4},
      {"abc_.log", 4},
      {"abc_", 4},
      {"abc", 4},
      {"a", 4},
      {".log", 4},
      {"unrelated", 4},
  };

  for (Row const& row : rows) {
    Put(row.name);
    EXPECT_EQ(TypeOf(row.name), row.type) << row.name;
  }
}

TEST_F(FileTypeTest, AMissingFileIsForeign) { EXPECT_EQ(TypeOf("abc_20240305_140709.log"), 4); }

TEST_F(FileTypeTest, AnEmptyNameIsForeign) { EXPECT_EQ(TypeOf(""), 4); }

TEST_F(FileTypeTest, WithAnEmptyPrefixTheTimeAloneMakesTheName) {
  setup.prefix = "";
  Put("20240305_140709.log");
  Put("20240305_140709.log.gz");
  Put("a20240305_140709.log");

  EXPECT_EQ(TypeOf("20240305_140709.log"), 1);
  EXPECT_EQ(TypeOf("20240305_140709.log.gz"), 3);
  EXPECT_EQ(TypeOf("a20240305_140709.log"), 4);
}

TEST_F(FileTypeTest, DirectoriesAndFifosAreForeign) {
  fs::create_directory(dir / "abc_20240305_140709.log");
  ASSERT_EQ(mkfifo((dir / "abc_20240305_140710.log").c_str(), 0600), 0);

  EXPECT_EQ(TypeOf("abc_20240305_140709.log"), 4);
  EXPECT_EQ(TypeOf("abc_20240305_140710.log"), 4);
}

TEST_F(FileTypeTest, ASocketHasTheBitThatIsAskedFor) {
  std::string const path = dir / "abc_20240305_140709.log";
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(path.size(), sizeof address.sun_path);
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  int const fd = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);

  EXPECT_EQ(TypeOf("abc_20240305_140709.log"), 1);
  MakeIdleChannel(setup)->ProcessLogFileBeforeCreateNew();
  EXPECT_EQ(Names(), std::vector<std::string>{"abc_20240305_140709.log"})
      << "a file that cannot be read stays";
  close(fd);
}

TEST_F(FileTypeTest, LinksAreWhatTheyPointTo) {
  Put("target");
  fs::create_directory(dir / "directory");
  fs::create_symlink("target", dir / "abc_20240305_140701.log");
  fs::create_symlink("directory", dir / "abc_20240305_140702.log");
  fs::create_symlink("missing", dir / "abc_20240305_140703.log");
  fs::create_symlink("abc_20240305_140704.log", dir / "abc_20240305_140704.log");

  EXPECT_EQ(TypeOf("abc_20240305_140701.log"), 1);
  EXPECT_EQ(TypeOf("abc_20240305_140702.log"), 4) << "a directory";
  EXPECT_EQ(TypeOf("abc_20240305_140703.log"), 4) << "nothing";
  EXPECT_EQ(TypeOf("abc_20240305_140704.log"), 4) << "itself";
}

TEST_F(FileTypeTest, ALengthFitsOneKindOnly) {
  auto const channel = MakeIdleChannel(setup);
  auto const fits = [&channel](std::size_t length, int type) {
    return channel->CheckFileLength(std::string(length, 'x'), type);
  };

  EXPECT_FALSE(fits(25, 0));
  EXPECT_TRUE(fits(26, 0));
  EXPECT_FALSE(fits(27, 0));
  EXPECT_FALSE(fits(22, 1));
  EXPECT_TRUE(fits(23, 1));
  EXPECT_FALSE(fits(24, 1));
  EXPECT_FALSE(fits(22, 2));
  EXPECT_TRUE(fits(23, 2));
  EXPECT_FALSE(fits(24, 2));
  EXPECT_FALSE(fits(25, 3));
  EXPECT_TRUE(fits(26, 3));
  EXPECT_FALSE(fits(27, 3));
  EXPECT_FALSE(fits(0, 1));
}

TEST_F(FileTypeTest, NoLengthFitsAnUnknownKind) {
  auto const channel = MakeIdleChannel(setup);

  for (int const type : {-1, 4, 5, 1000}) {
    for (std::size_t length = 0; length < 40; ++length) {
      EXPECT_FALSE(channel->CheckFileLength(std::string(length, 'x'), type)) << type << " " << length;
    }
  }
}

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
