// Others that change the open log file, foreign files beside the logs, and symbolic links.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "tests/checker/report.h"
#include "tests/faults/scenario.h"

namespace fs = std::filesystem;

namespace velt::faults {
namespace {

using checker::Kind;
using checker::Report;

constexpr unsigned kLimit = 10'000;

class FileFaultTest : public Scenario {
 protected:
  FileFaultTest() {
    family.setup.max_bytes = kLimit;
    family.expected.max_bytes = kLimit;
  }

  // Traces, record after record, until another file than `last` is open.
  bool TraceUntilNextFile(std::string const& last) {
    test::WaitForNextSecond();
    auto const next = [&] {
      std::string const now = family.OpenLog();
      return now > last && test::CountOf(test::ReadFile(now), "header\n") == 1;
    };
    for (int i = 0; i < 500 && !next(); ++i) {
      if (!family.Trace() || !family.WaitForEmptyQueue()) return false;
      usleep(500);  // until the last record is dealt with
    }
    return test::WaitUntil(next);
  }

  Family family{dir.Path()};
};

TEST_F(FileFaultTest, RecordsGoOnIntoAnUnlinkedFileAndThenIntoANewOne) {
  family.expected.witness_directory = family.witness_directory;
  family.Start();
  ASSERT_TRUE(family.WaitForFile());
  EXPECT_TRUE(family.Trace(5));
  std::string const first = family.OpenLog();
  LinkLogs(family.setup.directory, "t_", family.witness_directory);
  fs::remove(first);

  ASSERT_TRUE(TraceUntilNextFile(first));
  LinkLogs(family.setup.directory, "t_", family.witness_directory);
  EXPECT_TRUE(family.Trace(20));
  Report const report = family.Finish();

  EXPECT_TRUE(report.Clean()) << report.Text();
  EXPECT_GT(report.pruned, 50U) << "what is in the unlinked file";
  EXPECT_GE(report.found, 20U);
  family.Print(report);
}

TEST_F(FileFaultTest, ARenamedFileIsFilledAndThenANewOneIsOpened) {
  family.Start();
  ASSERT_TRUE(family.WaitForFile());
  EXPECT_TRUE(family.Trace(5));
  std::string const first = family.OpenLog();
  fs::rename(first, dir / "renamed");

  ASSERT_TRUE(TraceUntilNextFile(first));
  EXPECT_TRUE(family.Trace(20));
  fs::rename(dir / "renamed", first);
  Report const report = family.Finish();

  EXPECT_TRUE(report.Clean()) << report.Text();
  EXPECT_EQ(report.files, 2U);
  EXPECT_EQ(report.missing, 0U);
  family.Print(report);
}

TEST_F(FileFaultTest, ATruncatedFileLosesWhatWasInItAndNothingElse) {
  family.expected.max_bytes.reset();
  family.Start();
  ASSERT_TRUE(family.WaitForFile());
  EXPECT_TRUE(family.Trace(30));
  ASSERT_TRUE(
      test::WaitUntil([this] { return test::CountOf(test::ReadFile(family.OpenLog()), " m I: ") == 30; }));
  std::string const first = family.OpenLog();
  fs::resize_file(first, 0);
  family.written_elsewhere = 30;

  ASSERT_TRUE(TraceUntilNextFile(first));
  EXPECT_TRUE(family.Trace(20));
  Report const report = family.Finish();

  EXPECT_TRUE(report.CleanBut({Kind::kMissing, Kind::kNulBytes, Kind::kNoHeader})) << report.Text();
  EXPECT_EQ(report.missing, 30U);
  EXPECT_EQ(report.Count(Kind::kNulBytes), 1U) << "the gap up to where writing went on";
  family.Print(report);
}

TEST_F(FileFaultTest, AFileWithoutPermissionsIsFilledAndCompressedOnceTheyAreBack) {
  OrdinaryUser const user(dir.Path());
  family.Start();
  ASSERT_TRUE(family.WaitForFile());
  std::string const first = family.OpenLog();
  chmod(first.c_str(), 0);

  ASSERT_TRUE(TraceUntilNextFile(first));
  EXPECT_TRUE(test::Exists(first));
  EXPECT_FALSE(test::Exists(first + ".gz"));
  chmod(first.c_str(), 0640);
  ASSERT_TRUE(TraceUntilNextFile(family.OpenLog()));
  Report const report = family.Finish();

  EXPECT_TRUE(report.Clean()) << report.Text();
  EXPECT_FALSE(test::Exists(first));
  EXPECT_EQ(report.archives, 2U);
  family.Print(report);
}

// Inode, size, mode and time of last change of everything in a directory.
using Listing = std::map<std::string, std::tuple<ino_t, off_t, mode_t, time_t, long>>;

Listing List(std::string const& directory) {
  Listing listing;
  for (auto const& entry : fs::directory_iterator(directory)) {
    struct stat info {};
    lstat(entry.path().c_str(), &info);
    listing[entry.path().filename()] = {info.st_ino, info.st_size, info.st_mode, info.st_ctim.tv_sec,
                                        info.st_ctim.tv_nsec};
  }
  return listing;
}

TEST_F(FileFaultTest, ForeignFilesAndNearMissesBesideTheLogsAreNeverTouched) {
  int const count = Scaled(2'000, 100'000);
  std::string const logs = family.setup.directory;
  fs::create_directory(logs);
  std::array<std::string, 6> source;
  for (int i = 0; i < count; ++i) {
    std::string const stem = logs + "/" + (i % 2 == 0 ? "t_" : "other_") + std::to_string(100'000 + i);
    std::string const path = stem + (i % 3 == 0 ? ".log" : i % 3 == 1 ? ".log.gz" : ".txt");
    // Most are links to others: only names matter, and files take longer to make.
    if (i % 1'000 < 6) {
      test::WriteFile(source[static_cast<std::size_t>(i % 6)] = path, "x");
    } else {
      ASSERT_EQ(link(source[static_cast<std::size_t>(i % 6)].c_str(), path.c_str()), 0);
    }
  }
  for (char const* name : {"t_2024030_140709.log", "t_202403050_140709.log", "t_20240305_140709.log.bak",
                           "t_20240305_140709.LOG", "t_20240305_140709.log.gz.tmp", "t_20240305_140709.log.g",
                           "t_20240305_140709.tar", "t_20240305_140709.tar.gz", "T_20240305_140709.log",
                           "xt_20240305_140709.log", "t_.log", "t_", ".log", "t_a_20240305_140709.log",
                           "t_20240305_14070.log.gz", "t20240305_140709.log"}) {
    test::WriteFile(logs + "/" + name, "near miss");
  }
  fs::create_directory(logs + "/t_20240305_140710.log");
  fs::create_directory(logs + "/t_20240305_140710.log.gz");
  fs::create_symlink("/nowhere", logs + "/t_20240305_140711.log");
  family.setup.keep = 1;
  Listing const before = List(logs);

  auto const start = std::chrono::steady_clock::now();
  family.Start();
  EXPECT_TRUE(test::WaitUntil([&] { return List(logs).size() > before.size(); }));
  auto const took = std::chrono::steady_clock::now() - start;
  test::WaitForNextSecond();
  EXPECT_TRUE(family.Trace(100)) << "one file was ended past its limit";
  family.channel.reset();
  Listing const after = List(logs);

  EXPECT_LT(took, std::chrono::seconds(20));
  std::size_t own = 0;
  for (auto const& entry : after) own += before.count(entry.first) == 0 ? 1 : 0;
  EXPECT_EQ(own, 2U) << "one archive and one file";
  long long touched = 0;
  std::string first_touched;
  for (auto const& entry : before) {
    auto const now = after.find(entry.first);
    if (now != after.end() && now->second == entry.second) continue;
    if (touched++ == 0) first_touched = entry.first;
  }
  EXPECT_EQ(touched, 0) << first_touched;
  Figure({{"foreign_files", static_cast<long long>(before.size())},
          {"start_ms", std::chrono::duration_cast<std::chrono::milliseconds>(took).count()},
          {"touched", touched}});
}

TEST_F(FileFaultTest, ALogDirectoryThatIsASymbolicLinkIsFollowed) {
  fs::create_directory(dir / "real");
  fs::create_directory_symlink(dir / "real", family.setup.directory);
  family.Start();
  ASSERT_TRUE(family.WaitForFile());

  EXPECT_TRUE(family.Fill());
  EXPECT_TRUE(family.Trace(5));
  Report const report = family.Finish();

  EXPECT_TRUE(report.Clean()) << report.Text();
  EXPECT_EQ(report.archives, 1U);
  EXPECT_TRUE(fs::is_symlink(family.setup.directory));
  EXPECT_EQ(test::FilesOf(dir / "real", "t_", "").size(), 2U);
  family.Print(report);
}

TEST_F(FileFaultTest, ALogFilesNameThatIsASymbolicLinkIsCompressedAndOnlyTheLinkRemoved) {
  fs::create_directory(family.setup.directory);
  test::WriteFile(dir / "target", "what was in it");
  std::vector<std::string> const names = test::ComingNames("t_", 2);
  for (auto const& name : names) fs::create_symlink(dir / "target", family.setup.directory + "/" + name);
  family.Start();
  ASSERT_TRUE(family.WaitForFile());
  EXPECT_EQ(test::ReadFile(dir / "target"), "what was in it") << "only the links were removed";
  for (auto const& name : names) {
    EXPECT_FALSE(fs::is_symlink(family.setup.directory + "/" + name));
    std::string const archive = family.setup.directory + "/" + name + ".gz";
    EXPECT_EQ(test::ReadGzip(archive), "what was in it");
    fs::remove(archive);
  }
  EXPECT_TRUE(family.Trace(10));
  Report const report = family.Finish();
  EXPECT_TRUE(report.Clean()) << report.Text();
}

TEST_F(FileFaultTest, ALogFilesNameThatIsALinkToNothingIsLeftAloneAndALaterOneTaken) {
  // The housekeeping before an opening leaves only links to nothing: `stat` does not find them.
  fs::create_directory(family.setup.directory);
  std::vector<std::string> const links = test::ComingNames("t_", 30);
  for (auto const& name : links) fs::create_symlink(dir / "target", family.setup.directory + "/" + name);
  family.Start();
  ASSERT_TRUE(family.WaitForFile());
  EXPECT_TRUE(family.Trace(10));
  std::string const used = family.OpenLog();

  EXPECT_FALSE(fs::exists(dir / "target"));
  for (auto const& name : links) {
    std::string const link = family.setup.directory + "/" + name;
    EXPECT_TRUE(fs::is_symlink(link)) << name;
    EXPECT_LT(link, used);
    fs::remove(link);
  }
  Report const report = family.Finish();
  EXPECT_TRUE(report.Clean()) << report.Text();
  EXPECT_EQ(report.found, 10U);
  EXPECT_EQ(test::ModeOf(used), 0640U);
}

}  // namespace
}  // namespace velt::faults
