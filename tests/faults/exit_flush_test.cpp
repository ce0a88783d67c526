// Processes that end without Destroy: what they traced is in the files.
#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/checker/family.h"
#include "tests/faults/scenario.h"

namespace velt::faults {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Less than the one second for which the exit waits for a stalled device. Sanitizers need longer to exit.
constexpr long long kAtOnceMs = kSanitized ? 6'000 : 900;

class ExitFlushTest : public Scenario {
 protected:
  struct Left {
    test::Outcome outcome;
    milliseconds took{0};
    std::size_t accepted = 0;
  };

  Left Run(std::string const& way, unsigned records, std::vector<std::string> const& more = {},
           unsigned run = 0) const {
    std::vector<std::string> command = {VELT_EXIT_HOST, "directory=" + dir.Path(), "way=" + way,
                                        "run=" + std::to_string(run), "records=" + std::to_string(records)};
    command.insert(command.end(), more.begin(), more.end());
    Left left;
    auto const begin = Clock::now();
    left.outcome = test::RunProgram(command);
    left.took = std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
    left.accepted = static_cast<std::size_t>(Number(left.outcome.out, "accepted "));
    return left;
  }
  // What a process printed behind that word; -1 when it did not.
  static long long Number(std::string const& text, std::string const& word) {
    std::size_t const at = text.find(word);
    return at == std::string::npos ? -1 : std::stoll(text.substr(at + word.size()));
  }

  // How many different records of that run are in the files; each must be there once.
  std::size_t Found(unsigned run = 0, std::string const& prefix = "t_") const {
    std::string const head = " m I: R" + std::to_string(run) + "-";
    std::set<std::string> found;
    for (auto const& file : checker::ReadFamilyFiles(dir / "logs", prefix)) {
      for (auto const& line : test::Lines(file.text)) {
        std::size_t const at = line.find(head);
        if (at != std::string::npos && !found.insert(line.substr(at + head.size())).second)
          ADD_FAILURE() << line;
      }
    }
    return found.size();
  }
  std::string Text() const {
    std::string text;
    for (auto const& file : checker::ReadFamilyFiles(dir / "logs", "t_")) text += file.text;
    return text;
  }
};

class WayOutTest : public ExitFlushTest, public ::testing::WithParamInterface<char const*> {};

TEST_P(WayOutTest, LosesNoRecord) {
  constexpr unsigned kRecords = 20'000;  // several files: one of them is compressed at the exit, perhaps

  Left const left = Run(GetParam(), kRecords);

  EXPECT_EQ(left.outcome.exit_code, 0) << left.outcome.signal << left.outcome.err;
  EXPECT_EQ(left.accepted, kRecords);
  EXPECT_EQ(Found(), kRecords);
  EXPECT_EQ(test::CountOf(Text().substr(Text().rfind("File create at ")), "File close at "), 0U)
      << "the exit closes no file";
}

INSTANTIATE_TEST_SUITE_P(Ways, WayOutTest,
                         ::testing::Values("return", "exit", "thread", "terminate", "fork", "fork_own"),
                         [](auto const& test) { return test.param; });

TEST_F(ExitFlushTest, OfManyExitsNoneLosesARecord) {
  int const exits = kSanitized ? Scaled(10, 100) : Scaled(50, 1'000);
  constexpr unsigned kRecords = 500;
  std::size_t found = 0;
  std::size_t accepted = 0;
  for (int i = 0; i < exits; ++i) {
    test::ScratchDir const own;
    Left const left = Run(i % 2 == 0 ? "return" : "exit", kRecords, {"logs=" + (own / "logs")});
    accepted += left.accepted;
    EXPECT_EQ(left.outcome.exit_code, 0) << left.outcome.err;
    for (auto const& file : checker::ReadFamilyFiles(own / "logs", "t_"))
      found += test::CountOf(file.text, " m I: R0-");
  }
  EXPECT_EQ(accepted, kRecords * static_cast<std::size_t>(exits));
  EXPECT_EQ(found, accepted);
  Figure({{"exits", exits},
          {"records_verified", static_cast<long long>(found)},
          {"lost", static_cast<long long>(accepted - found)}});
}

TEST_F(ExitFlushTest, RestartsInARowLoseNoRecord) {
  int const restarts = kSanitized ? 15 : 50;
  constexpr unsigned kRecords = 100;
  std::size_t found = 0;
  auto const begin = Clock::now();
  for (int i = 0; i < restarts; ++i) {
    ASSERT_EQ(Run("return", kRecords, {}, static_cast<unsigned>(i)).outcome.exit_code, 0);
  }
  auto const took = std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
  for (int i = 0; i < restarts; ++i) {
    std::size_t const of_run = Found(static_cast<unsigned>(i));
    EXPECT_EQ(of_run, kRecords) << "restart " << i;
    found += of_run;
  }
  EXPECT_EQ(checker::ReadFamilyFiles(dir / "logs", "t_").size(), static_cast<std::size_t>(restarts));
  Figure({{"restarts", restarts},
          {"took_ms", took.count()},
          {"records_verified", static_cast<long long>(found)},
          {"lost", restarts * static_cast<long long>(kRecords) - static_cast<long long>(found)}});
}

// Static objects of the host.

TEST_F(ExitFlushTest, WhatAStaticObjectTracesInItsDestructorIsInTheFile) {
  Left const left = Run("trace", 1'000);
  EXPECT_EQ(left.outcome.exit_code, 0);
  EXPECT_EQ(Found(), 1'100U);
}

TEST_F(ExitFlushTest, AStaticObjectMayDestroyTheManager) {
  Left const left = Run("destroy", 1'000);
  EXPECT_EQ(left.outcome.exit_code, 0);
  EXPECT_EQ(Found(), 1'000U);
  EXPECT_EQ(test::CountOf(Text(), "File close at "), 1U) << "an orderly end";
}

TEST_F(ExitFlushTest, StaticObjectsMayTraceAndThenDestroy) {
  Left const left = Run("trace_destroy", 1'000);
  EXPECT_EQ(left.outcome.exit_code, 0);
  EXPECT_EQ(Found(), 1'100U);
}

TEST_F(ExitFlushTest, StaticObjectsMayDestroyAndThenTrace) {
  Left const left = Run("destroy_trace", 1'000);
  EXPECT_EQ(left.outcome.exit_code, 0);
  EXPECT_EQ(Found(), 1'000U) << "what is traced without a manager is refused";
}

// Forked children.

TEST_F(ExitFlushTest, AForkedChildOfAStalledHostLeavesAtOnce) {
  Left const left = Run("fork", 1'000, {"rules=write,action=stall,first=20,count=0,path=*/logs/*.log"});
  EXPECT_EQ(left.outcome.exit_code, 0);
  EXPECT_GE(Number(left.outcome.out, "child_ms "), 0);
  EXPECT_LT(Number(left.outcome.out, "child_ms "), kAtOnceMs);
  EXPECT_EQ(Found(), 1'000U);
}

TEST_F(ExitFlushTest, AForkedChildsOwnManagerIsFlushedInTheChild) {
  Left const left = Run("fork_own", 1'000);
  EXPECT_EQ(left.outcome.exit_code, 0);
  EXPECT_EQ(Found(), 1'000U);
  if (!VELT_THREAD_SANITIZER) {  // its runtime starts no threads in a forked child
    EXPECT_EQ(Found(0, "child_"), 1'000U);
  }
}

// Devices.

TEST_F(ExitFlushTest, AStalledDeviceHoldsTheExitForASecond) {
  Left const left = Run("return", 1'000, {"rules=write,action=stall,first=20,count=0,path=*/logs/*.log"});
  EXPECT_EQ(left.outcome.exit_code, 0);
  EXPECT_GE(left.took.count(), 1'000);
  EXPECT_LT(left.took.count(), 8'000);
  EXPECT_LT(Found(), 1'000U);
}

TEST_F(ExitFlushTest, AStalledFamilyHoldsTheExitForASecondWhileAnotherIsBusy) {
  Left const left = Run("busy", 1'000, {"rules=write,action=stall,first=20,count=0,path=*/logs/t_2*.log"});
  EXPECT_EQ(left.outcome.exit_code, 0);
  EXPECT_GE(left.took.count(), 1'000);
  EXPECT_LT(left.took.count(), 8'000);
}

TEST_F(ExitFlushTest, ADirectoryThatCannotBeMadeHoldsTheExitForASecond) {
  Left const left = Run("return", 1'000, {"logs=" + (dir / "missing/logs")});
  EXPECT_EQ(left.outcome.exit_code, 0);
  EXPECT_EQ(left.accepted, 1'000U);
  EXPECT_GE(left.took.count(), 1'000);
  EXPECT_LT(left.took.count(), 8'000);
}

TEST_F(ExitFlushTest, ASlowDeviceIsWaitedForAsLongAsItTakesRecords) {
  Left const left =
      Run("return", 500, {"rules=write,action=delay,ms=400,first=20,count=8,path=*/logs/*.log"});
  EXPECT_EQ(left.outcome.exit_code, 0);
  EXPECT_EQ(Found(), 500U);
  EXPECT_GE(left.took.count(), 3'000) << "eight delays";
}

// Without the library.

TEST_F(ExitFlushTest, ABareExitAndAnAbortDoNotWait) {
  char const* const rules = "rules=write,action=stall,first=20,count=0,path=*/logs/*.log";
  // A flush would take a second each time; a busy machine may, now and then.
  bool at_once = false;
  for (int attempt = 0; attempt < 10 && !at_once; ++attempt) {
    Left const bare = Run("_exit", 100, {rules});
    EXPECT_EQ(bare.outcome.exit_code, 0);
    at_once = bare.took.count() < kAtOnceMs;
  }
  EXPECT_TRUE(at_once);
  Left const abort = Run("abort", 100, {rules});
  EXPECT_EQ(abort.outcome.signal, SIGABRT);
  EXPECT_LT(abort.took.count(), 5'000) << "writing a core may take long";
}

}  // namespace
}  // namespace velt::faults
