// The example service, run as a process: each record that it lists as traced is in its log families once.
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/process.h"
#include "tests/support/running_program.h"

namespace velt::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

std::string const kProgram = std::string(VELT_EXAMPLES_DIR) + "/service_host";

// Runs the service in `root` and asks it to end once it is ready; returns its exit code. Its output is in
// out.txt.
int RunService(std::string const& root, std::string const& out_file, int stop_signal) {
  Descriptor const out(open(out_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  RunningProgram program({kProgram, root}, {-1, out, -1});
  bool const ready = WaitUntil([&] { return CountOf(ReadFile(out_file), "ready\n") == 1; });
  if (!ready) return -3;
  program.Signal(stop_signal);
  return program.Wait();
}

// The records of a family from the module on, "net E: text", in the order of the files.
std::vector<std::string> Records(std::string const& directory, std::string const& prefix) {
  std::vector<std::string> records;
  for (auto const& line : Lines(ReadFamily(directory, prefix))) {
    std::size_t const module = line.find(' ', 21);
    if (line.size() > 23 && line.compare(21, 2, ".T") == 0 && module != std::string::npos) {
      records.push_back(line.substr(module + 1));
    }
  }
  return records;
}

// The messages of records, without module and tag, sorted.
std::vector<std::string> SortedMessages(std::vector<std::string> const& records) {
  std::vector<std::string> messages;
  messages.reserve(records.size());
  for (auto const& record : records) messages.push_back(record.substr(record.find(": ") + 2));
  std::sort(messages.begin(), messages.end());
  return messages;
}

std::vector<std::string> SortedLines(std::string const& file) {
  std::vector<std::string> lines = Lines(ReadFile(file));
  std::sort(lines.begin(), lines.end());
  return lines;
}

class ServiceHostTest : public testing::Test {
 protected:
  int Run(int stop_signal = SIGTERM) { return RunService(root_, scratch_ / "out.txt", stop_signal); }

  ScratchDir scratch_;
  std::string root_ = scratch_ / "root";
  std::string log_ = root_ + "/log";
};

TEST_F(ServiceHostTest, EveryRecordThatItTracedIsInItsTwoFamiliesOnce) {
  int const exit_code = Run();

  EXPECT_EQ(exit_code, 0);
  std::vector<std::string> const main = SortedLines(root_ + "/traced_main.txt");
  std::vector<std::string> const gateway = SortedLines(root_ + "/traced_gw.txt");
  // 4000 and 5000 by the workers, 20 from the ring, the alert, and the ends of five threads.
  EXPECT_THAT(main, SizeIs(9026));
  EXPECT_THAT(gateway, SizeIs(2000));
  EXPECT_TRUE(SortedMessages(Records(log_, "demo2")) == main);
  EXPECT_TRUE(SortedMessages(Records(log_, "demogw_")) == gateway);
}

TEST_F(ServiceHostTest, TheMainFamilyRotatesOnceAndEveryModuleIsInIt) {
  Run();

  EXPECT_THAT(FilesOf(log_, "demo2", ".log.gz"), SizeIs(1));
  EXPECT_THAT(FilesOf(log_, "demo2", ".log"), SizeIs(1));
  EXPECT_THAT(FilesOf(log_, "demogw_", ".log"), SizeIs(1));
  std::string const text = ReadFamily(log_, "demo2");
  for (char const* const label :
       {" sched I: ", " net E: ", " net A: ", " store I: ", " MRB W: ", " MRB E: ", "  W: "}) {
    EXPECT_THAT(text, HasSubstr(label));
  }
}

TEST_F(ServiceHostTest, TheRingOfFilteredRecordsStandsBeforeTheAlert) {
  Run();

  std::vector<std::string> const records = Records(log_, "demo2");
  auto const alert = std::find(records.begin(), records.end(), "net A: the link to the store is down");
  ASSERT_NE(alert, records.end());
  ASSERT_GE(alert - records.begin(), 20);
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(*(alert - 20 + i), "net I: filtered record " + std::to_string(10 + i) + ", kept in the ring");
  }
  EXPECT_EQ(CountOf(ReadFile(scratch_ / "out.txt"), "kept in the ring\n"), 20U) << "the ring is printed too";
}

TEST_F(ServiceHostTest, LevelThreeOfTheStoreShowsOnlyAfterItWasSwitchedOn) {
  Run();

  std::string const text = ReadFamily(log_, "demo2");
  EXPECT_EQ(CountOf(text, " store I: round 1"), 0U);
  EXPECT_EQ(CountOf(text, " store I: round 2"), 1000U);
}

TEST_F(ServiceHostTest, ItSetsUpItsRootAndEndsOnAnInterruptToo) {
  int const exit_code = Run(SIGINT);

  EXPECT_EQ(exit_code, 0);
  EXPECT_THAT(ListDir(root_ + "/conf"), ElementsAre("default_debug.cfg", "velt.cfg"));
  EXPECT_EQ(CountOf(ReadFamily(log_, "demo2"), "SetVeltAppExit (1)"), 1U);
}

TEST_F(ServiceHostTest, ASecondRunInTheSameRootKeepsTheRecordsOfTheFirst) {
  int const first = Run();
  int const second = Run();

  EXPECT_EQ(first, 0);
  EXPECT_EQ(second, 0);
  EXPECT_THAT(Records(log_, "demo2"), SizeIs(2 * 9026));
}

// The number behind `label` in a text.
std::uint64_t NumberBehind(std::string const& text, std::string const& label) {
  std::size_t const at = text.find(label);
  return at == std::string::npos ? UINT64_MAX : std::stoull(text.substr(at + label.size()));
}

TEST_F(ServiceHostTest, WhatFourThreadsTraceFlatOutIsAllThereAndSoTheCountsSay) {
  Outcome const outcome = RunProgram({kProgram, "--flat-out", root_});

  ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
  std::vector<std::string> const accepted = SortedLines(root_ + "/traced_flat_out.txt");
  std::uint64_t const count = NumberBehind(outcome.out, "accepted ");
  EXPECT_EQ(count, accepted.size());
  EXPECT_EQ(count + NumberBehind(outcome.out, "refused "), 480'000U);
  EXPECT_EQ(NumberBehind(outcome.out, "written "), count);
  EXPECT_EQ(NumberBehind(outcome.out, "lost "), 0U);
  EXPECT_EQ(NumberBehind(outcome.out, "queued "), 0U);
  EXPECT_EQ(NumberBehind(outcome.out, "files opened "), ListDir(log_).size());
  EXPECT_GE(ListDir(log_).size(), 8U) << "files of 5 MB";
  EXPECT_TRUE(SortedMessages(Records(log_, "flat_out_")) == accepted);
}

TEST_F(ServiceHostTest, AnExceptionThatNobodyCatchesLosesNoRecord) {
  // A large file of an earlier run is compressed first, so that records are still in the queue when the
  // service ends.
  std::string earlier;
  for (unsigned i = 1; earlier.size() < 10'000'000; i = i * 1664525U + 1013904223U)
    earlier += std::to_string(i);
  std::filesystem::create_directories(log_);
  WriteFile(log_ + "/demo20200101_000000.log", earlier + "\n");

  Outcome const outcome = RunProgram({kProgram, "--crash", root_});

  EXPECT_EQ(outcome.signal, SIGABRT);
  std::vector<std::string> const records = Records(log_, "demo2");
  ASSERT_THAT(records, SizeIs(10000));
  EXPECT_EQ(records.front(), "sched I: record 0 before the end");
  EXPECT_EQ(records.back(), "sched I: record 9999 before the end");
}

}  // namespace
}  // namespace velt::test
