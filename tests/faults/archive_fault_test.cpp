// Archives that cannot be removed or made, a limit of one, and two processes with one family.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/checker/report.h"
#include "tests/faults/counted.h"
#include "tests/faults/killed_family.h"
#include "tests/faults/scenario.h"
#include "tests/faults/shim/shim.h"

namespace fs = std::filesystem;

namespace velt::faults {
namespace {

using checker::Kind;
using checker::Report;
using shim::Action;
using shim::Call;

constexpr unsigned kLimit = 5'000;

class ArchiveFaultTest : public Scenario {
 protected:
  ArchiveFaultTest() {
    family.setup.max_bytes = kLimit;
    family.expected.max_bytes = kLimit;
    family.expected.witness_directory = family.witness_directory;
  }

  void Start() {
    family.Start();
    ASSERT_TRUE(family.WaitForFile());
    first = family.OpenLog();
  }
  // Fills the open file, so that it becomes an archive and the next one is opened.
  bool Rotate() {
    LinkLogs(family.setup.directory, "t_", family.witness_directory);
    std::string const last = family.OpenLog();
    test::WaitForNextSecond();
    auto const next = [&] {
      std::string const now = family.OpenLog();
      return now > last && test::CountOf(test::ReadFile(now), "header\n") == 1;
    };
    // The file is past its limit and about to end: a record that came now could end the next file within the
    // same second.
    auto const ends = [&] { return !test::Exists(last) || test::ReadFile(last).size() > kLimit; };
    while (!ends()) {
      if (!family.Trace() || !family.WaitForEmptyQueue()) return false;
      usleep(500);
    }
    bool const rotated = test::WaitUntil(next);
    LinkLogs(family.setup.directory, "t_", family.witness_directory);
    return rotated;
  }
  std::vector<std::string> Archives() const { return test::FilesOf(family.setup.directory, "t_", ".log.gz"); }

  Family family{dir.Path()};
  std::string first;
};

TEST_F(ArchiveFaultTest, WithALimitOfOneOnlyTheArchiveOfTheFirstFileStays) {
  family.setup.keep = 1;
  ASSERT_NO_FATAL_FAILURE(Start());

  for (int i = 0; i < 3; ++i) ASSERT_TRUE(Rotate());
  EXPECT_TRUE(family.Trace(5));
  Report const report = family.Finish();

  EXPECT_TRUE(report.Clean()) << report.Text();
  ASSERT_EQ(Archives().size(), 1U);
  EXPECT_EQ(family.setup.directory + "/" + Archives()[0], first + ".gz");
  EXPECT_GT(report.pruned, 40U) << "two archives";
  family.Print(report);
}

TEST_F(ArchiveFaultTest, ArchivesThatCannotBeRemovedStayAndGoOnceTheyCan) {
  family.setup.keep = 1;
  int const refused = shim::AddRule({Call::kRemove, Action::kFail, 1, 0, EPERM, 0, "*.log.gz"});
  ASSERT_NO_FATAL_FAILURE(Start());
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(Rotate());
  EXPECT_EQ(Archives().size(), 3U);
  EXPECT_EQ(shim::MatchedCalls(refused), 1U + 2U) << "one attempt for each archive above the limit, no more";

  shim::ClearRules();
  ASSERT_TRUE(Rotate());
  Report const report = family.Finish();

  EXPECT_TRUE(report.Clean()) << report.Text();
  EXPECT_EQ(Archives().size(), 1U);
  family.Print(report);
}

TEST_F(ArchiveFaultTest, APlainFileThatCannotBeRemovedIsTriedOnceARotationAndStaysBesideItsArchive) {
  ASSERT_NO_FATAL_FAILURE(Start());
  int const refused = shim::AddRule({Call::kRemove, Action::kFail, 1, 0, EPERM, 0, "*.log"});
  for (int i = 0; i < 2; ++i) ASSERT_TRUE(Rotate());
  // An archive has mode 0440: only root can write it again. For an ordinary user its file is not tried again.
  bool const root = geteuid() == 0;
  EXPECT_EQ(shim::MatchedCalls(refused), root ? 1U + 2U : 1U + 1U);
  EXPECT_TRUE(test::Exists(first));
  EXPECT_TRUE(test::Exists(first + ".gz"));
  Report const meanwhile = family.Look();
  EXPECT_TRUE(meanwhile.CleanBut({Kind::kNoTrailer})) << meanwhile.Text();

  shim::ClearRules();
  ASSERT_TRUE(Rotate());
  Report const report = family.Finish();

  EXPECT_TRUE(report.Clean()) << report.Text();
  EXPECT_EQ(Archives().size(), 3U);
  EXPECT_EQ(test::Exists(first), !root);
  family.Print(report);
}

TEST_F(ArchiveFaultTest, AnOrdinaryUsersPlainFileBesideItsWholeArchiveCountsAsOneFile) {
  OrdinaryUser const user(dir.Path());
  ASSERT_NO_FATAL_FAILURE(Start());
  shim::AddRule({Call::kRemove, Action::kFail, 1, 1, EPERM, 0, "*.log"});

  for (int i = 0; i < 2; ++i) ASSERT_TRUE(Rotate());
  Report const report = family.Finish();

  EXPECT_TRUE(report.Clean()) << report.Text();
  EXPECT_EQ(Archives().size(), 2U);
  EXPECT_TRUE(test::Exists(first)) << "its archive cannot be written again, so it stays";
  EXPECT_EQ(report.files, 3U);
  family.Print(report);
}

TEST_F(ArchiveFaultTest, AnImmutableArchiveIsPassedOverAndNoNewerOneGoesForIt) {
  family.setup.keep = 2;
  fs::create_directory(family.setup.directory);
  std::string const old = family.setup.directory + "/t_20240305_140709.log.gz";
  test::WriteFile(old, "an archive of an earlier run");
  auto const attribute = [&](char const* change) {
    return test::RunProgram({"chattr", change, old}).exit_code == 0;
  };
  if (!attribute("+i"))
    GTEST_SKIP() << "only root, on a file system that knows it, can make a file immutable";
  ASSERT_NO_FATAL_FAILURE(Start());

  for (int i = 0; i < 3; ++i) EXPECT_TRUE(Rotate());
  std::size_t const archives = Archives().size();
  bool const kept = test::Exists(old);
  EXPECT_TRUE(attribute("-i"));
  EXPECT_TRUE(Rotate());
  Report const report = family.Finish();

  EXPECT_TRUE(kept);
  EXPECT_EQ(archives, 3U) << "two, and the archive that cannot be removed";
  EXPECT_FALSE(test::Exists(old));
  EXPECT_EQ(Archives().size(), 2U);
  EXPECT_TRUE(report.Clean()) << report.Text();
  family.Print(report);
}

TEST_F(ArchiveFaultTest, WhileADirectoryHasTheNameOfItsArchiveAPlainFileStays) {
  ASSERT_NO_FATAL_FAILURE(Start());
  fs::create_directory(first + ".gz");

  for (int i = 0; i < 2; ++i) ASSERT_TRUE(Rotate());
  EXPECT_TRUE(test::Exists(first));
  EXPECT_TRUE(fs::is_directory(first + ".gz"));
  fs::remove(first + ".gz");
  ASSERT_TRUE(Rotate());
  Report const report = family.Finish();

  EXPECT_TRUE(report.Clean()) << report.Text();
  EXPECT_FALSE(test::Exists(first));
  EXPECT_EQ(Archives().size(), 3U);
  family.Print(report);
}

// --- several processes ---

class SharedFamilyTest : public Scenario {
 protected:
  // Starts a host on the one family; its run number tells it from others.
  pid_t StartHost(unsigned run, unsigned records, unsigned pause_us) const {
    std::vector<std::string> words = {VELT_FAULT_HOST,
                                      "directory=" + (dir / "logs"),
                                      "prefix=t_",
                                      "side=" + (dir / "side"),
                                      "run=" + std::to_string(run),
                                      "records=" + std::to_string(records),
                                      "pause_us=" + std::to_string(pause_us),
                                      "max_bytes=40000",
                                      "keep=200"};
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (auto& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    pid_t const child = fork();
    if (child != 0) return child;
    dup2(open("/dev/null", O_RDWR | O_CLOEXEC), 1);
    execv(argv[0], argv.data());
    _exit(127);
  }
  static int Reap(pid_t host) {
    int status = 0;
    waitpid(host, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  Report Look() const {
    checker::Expectation expected;
    expected.directory = dir / "logs";
    expected.prefix = "t_";
    expected.in_order = false;
    return Check(expected, checker::ReadOutcomes(dir / "side"));
  }
  static void Print(Report const& report) {
    Figure({{"accepted", static_cast<long long>(report.accepted)},
            {"refused", static_cast<long long>(report.refused)},
            {"in_files", static_cast<long long>(report.found)},
            {"given_up", static_cast<long long>(report.missing)}});
  }
};

TEST_F(SharedFamilyTest, TwoProcessesOfOnePrefixTidyEachOthersFilesAndBothGoOn) {
  unsigned const rounds = Scaled(1U, 5U);

  for (unsigned round = 0; round < rounds; ++round) {
    pid_t const one = StartHost(2 * round, 300, 4'000);
    pid_t const other = StartHost(2 * round + 1, 300, 4'000);
    EXPECT_EQ(Reap(one), 0);
    EXPECT_EQ(Reap(other), 0);
  }

  Report const report = Look();
  EXPECT_EQ(report.called, rounds * 2U * 2U * 300U);
  EXPECT_EQ(report.accepted, report.called) << "faults of files do not reach the caller";
  EXPECT_TRUE(report.Accounted()) << report.Text();
  // Each wrote all of its records; some went with files that the other one compressed meanwhile.
  ExpectCounts(ReadCounts(dir / "side"), report.accepted, 0, report.found + report.missing);
  EXPECT_GT(report.found, 0U);
  EXPECT_EQ(report.Count(Kind::kRefusedFound), 0U) << report.Text();
  Print(report);
}

TEST_F(SharedFamilyTest, RestartsWithinOneSecondKeepTheRecordsOfEveryRun) {
  unsigned const rounds = Scaled(2U, 20U);

  for (unsigned round = 0; round < rounds; ++round) {
    test::WaitForNextSecond();
    for (unsigned run = 0; run < 3; ++run) EXPECT_EQ(Reap(StartHost(3 * round + run, 20, 0)), 0);
    Report const report = Look();
    EXPECT_TRUE(report.Accounted()) << report.Text();
    EXPECT_TRUE(report.Clean()) << report.Text();
  }

  Report const report = Look();
  EXPECT_EQ(report.found, rounds * 3U * 2U * 20U);
  ExpectCounted(ReadCounts(dir / "side"), report);
  Print(report);
}

}  // namespace
}  // namespace velt::faults
