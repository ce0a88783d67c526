// Directories and descriptors that are missing for a while.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "tests/checker/report.h"
#include "tests/faults/scenario.h"
#include "tests/faults/shim/shim.h"

namespace fs = std::filesystem;

namespace velt::faults {
namespace {

using checker::Report;
using shim::Action;
using shim::Call;

// A limit that every record passes: each one ends its file.
constexpr unsigned kEachRecord = 0;

class DirectoryFaultTest : public Scenario {
 protected:
  DirectoryFaultTest() {
    family.setup.max_bytes = kEachRecord;
    family.expected.max_bytes = kEachRecord;
  }

  // Counts what the output thread tries to open; the rules themselves make nothing fail.
  void CountAttempts() {
    attempts = shim::AddRule({Call::kCreate, Action::kDelay, 1, 0, 0, 0, "*/logs/t_*.log"});
  }
  bool WaitForTwoAttempts() const {
    unsigned const before = shim::MatchedCalls(attempts);
    return test::WaitUntil([=] { return shim::MatchedCalls(attempts) >= before + 2; });
  }
  // Waits for an open file that holds only its head.
  bool WaitForNewFile(std::string const& last) const {
    return test::WaitUntil([&] {
      std::string const now = family.OpenLog();
      return now != last && test::CountOf(test::ReadFile(now), "header\n") == 1;
    });
  }

  Family family{dir.Path()};
  int attempts = -1;
};

// No file or directory can be opened while it lives: the limit of descriptors is lowered, or under a
// sanitizer, which needs descriptors itself, the calls fail.
class NoDescriptors {
 public:
  NoDescriptors() {
    if (kSanitized) {
      for (Call const call : {Call::kCreate, Call::kOpendir, Call::kOpen})
        shim::AddRule({call, Action::kFail, 1, 0, EMFILE, 0, nullptr});
      return;
    }
    getrlimit(RLIMIT_NOFILE, &before_);
    rlimit const none{0, before_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  }
  ~NoDescriptors() {
    if (kSanitized) {
      shim::ClearRules();
    } else {
      setrlimit(RLIMIT_NOFILE, &before_);
    }
  }
  NoDescriptors(NoDescriptors const&) = delete;
  NoDescriptors& operator=(NoDescriptors const&) = delete;

 private:
  rlimit before_{};
};

TEST_F(DirectoryFaultTest, WithoutDescriptorsAtItsStartAndAtARotationEveryRecordWaits) {
  CountAttempts();
  {
    NoDescriptors const none;
    family.channel = test::MakeChannel(family.setup);
    EXPECT_TRUE(test::WaitUntil([this] { return shim::MatchedCalls(attempts) >= 2; })) << "tried again";
  }
  ASSERT_TRUE(family.WaitForFile());
  family.producer = std::make_unique<Producer>(family.producers, 0, ToChannel(*family.channel));
  if (kSanitized) CountAttempts();  // its rule was cleared with the others
  std::string const first = family.OpenLog();
  test::WaitForNextSecond();
  unsigned const before = shim::MatchedCalls(attempts);
  {
    // The outcome file is open, so the producer needs none.
    NoDescriptors const none;
    EXPECT_TRUE(family.Trace()) << "this record ends its file";
    EXPECT_TRUE(test::WaitUntil([=] { return shim::MatchedCalls(attempts) >= before + 2; }));
    EXPECT_EQ(family.channel->LogPath(), family.setup.directory + "/");
  }
  ASSERT_TRUE(WaitForNewFile(first));
  EXPECT_TRUE(family.Fill());

  Report const report = family.Finish();
  EXPECT_TRUE(report.Clean()) << report.Text();
  EXPECT_EQ(report.found, report.called);
  EXPECT_GE(report.found, 2U);
  family.Print(report);
}

TEST_F(DirectoryFaultTest, AReadOnlyDirectoryStopsTheNextFileUntilItIsWritable) {
  OrdinaryUser const user(dir.Path());
  CountAttempts();
  family.Start();
  ASSERT_TRUE(family.WaitForFile());
  std::string const first = family.OpenLog();
  test::WaitForNextSecond();
  chmod(family.setup.directory.c_str(), 0555);

  EXPECT_TRUE(family.Trace());
  EXPECT_TRUE(WaitForTwoAttempts());
  EXPECT_TRUE(test::Exists(first)) << "no archive can be made, so the file stays";
  chmod(family.setup.directory.c_str(), 0755);
  ASSERT_TRUE(WaitForNewFile(first));
  EXPECT_TRUE(family.Fill());
  Report const report = family.Finish();

  EXPECT_TRUE(report.Clean()) << report.Text();
  EXPECT_EQ(report.archives, 2U);
  EXPECT_EQ(report.found, report.called);
  EXPECT_GE(report.found, 2U);
  family.Print(report);
}

TEST_F(DirectoryFaultTest, ARemovedDirectoryTakesItsFileAlongAndComesBackWithTheNextOne) {
  family.setup.max_bytes = 10'000;
  family.expected.max_bytes = 10'000;
  family.expected.witness_directory = family.witness_directory;
  family.Start();
  ASSERT_TRUE(family.WaitForFile());
  LinkLogs(family.setup.directory, "t_", family.witness_directory);
  fs::remove_all(family.setup.directory);

  test::WaitForNextSecond();
  while (family.OpenLog().empty() && family.producer->Accepted() < 1'000) {
    ASSERT_TRUE(family.Trace());
    ASSERT_TRUE(family.WaitForEmptyQueue());
  }
  ASSERT_TRUE(WaitForNewFile(""));
  LinkLogs(family.setup.directory, "t_", family.witness_directory);
  EXPECT_TRUE(family.Trace(50));
  Report const report = family.Finish();

  EXPECT_TRUE(report.Clean()) << report.Text();
  EXPECT_GT(report.pruned, 50U) << "records of the removed file";
  EXPECT_GE(report.found, 50U);
  EXPECT_EQ(test::ModeOf(family.setup.directory), 0755U & ~umask(umask(0)));
  umask(022);
  family.Print(report);
}

TEST_F(DirectoryFaultTest, WhileAFileStandsInTheDirectorysPlaceRecordsWaitUntilItIsPutBack) {
  family.setup.max_bytes = 10'000;
  family.expected.max_bytes = 10'000;
  CountAttempts();
  family.Start();
  ASSERT_TRUE(family.WaitForFile());
  fs::rename(family.setup.directory, dir / "away");
  test::WriteFile(family.setup.directory, "in the way");

  std::string const first = test::FilesOf(dir / "away", "t_", ".log").front();
  EXPECT_TRUE(family.Trace(100)) << "more than fills the moved file; the others wait";
  EXPECT_TRUE(WaitForTwoAttempts());
  EXPECT_EQ(test::ReadFile(family.setup.directory), "in the way");
  fs::remove(family.setup.directory);
  fs::rename(dir / "away", family.setup.directory);
  ASSERT_TRUE(WaitForNewFile(family.setup.directory + "/" + first));
  Report const report = family.Finish();

  EXPECT_TRUE(report.Clean()) << report.Text();
  EXPECT_EQ(report.files, 2U);
  family.Print(report);
}

TEST_F(DirectoryFaultTest, AChannelWhoseFileNeverOpensEndsAndGivesUpWhatItAccepted) {
  test::WriteFile(family.setup.directory, "in the way");
  family.drains = false;
  family.Start();
  EXPECT_TRUE(family.Trace(100));

  Report const report = family.Finish();

  EXPECT_EQ(report.files, 0U);
  EXPECT_EQ(report.accepted, 100U);
  EXPECT_EQ(report.missing, 100U) << "accepted while no file was open, and counted here";
  EXPECT_EQ(test::ReadFile(family.setup.directory), "in the way");
  family.Print(report);
}

class ModeTest : public Scenario, public testing::WithParamInterface<unsigned> {};

TEST_P(ModeTest, ModesOfFilesDoNotDependOnTheUmaskAndTheDirectorysDoes) {
  mode_t const before = umask(GetParam());
  Family family(dir.Path());
  family.setup.max_bytes = 5'000;
  family.expected.max_bytes = 5'000;
  family.Start();
  ASSERT_TRUE(family.WaitForFile());

  EXPECT_TRUE(family.Fill());
  EXPECT_TRUE(family.Trace());
  Report const report = family.Finish();
  umask(before);

  EXPECT_TRUE(report.Clean()) << report.Text();  // 0640 and 0440
  EXPECT_EQ(report.archives, 1U);
  EXPECT_EQ(test::ModeOf(family.setup.directory), 0755U & ~GetParam());
}

INSTANTIATE_TEST_SUITE_P(Umask, ModeTest, testing::Values(0U, 077U), [](auto const& mask) {
  return mask.param == 0 ? std::string("Nothing") : std::string("GroupAndOthers");
});

}  // namespace
}  // namespace velt::faults
