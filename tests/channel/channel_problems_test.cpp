// What a channel reports of its files and its queue: which sentence, how often, on which thread.
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "velt/channel.h"
#include "velt/manager.h"
#include "velt/problem.h"

#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace {

std::atomic<long> seconds_ahead{0};  // of the monotonic clock

}  // namespace

// Replaces the system's function in this whole program, so that the ten seconds between two reports pass at
// once.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  long const result = syscall(SYS_clock_gettime, clock, time);
  if (result == 0 && clock == CLOCK_MONOTONIC) time->tv_sec += seconds_ahead;
  return static_cast<int>(result);
}

namespace velt::test {
namespace {

namespace fs = std::filesystem;

constexpr unsigned kLong = 60'000;

struct Told {
  VeltProblemKind kind;
  std::string sentence;
  std::string path;
  int error;
  std::uint64_t count;
  int thread;
};

std::mutex told_lock;
std::vector<Told> told;

void Keep(VeltProblem const& problem) {
  std::lock_guard<std::mutex> const lock(told_lock);
  told.push_back({problem.kind, problem.sentence, problem.path, problem.error, problem.count, gettid()});
}

std::vector<Told> Reports(VeltProblemKind kind) {
  std::lock_guard<std::mutex> const lock(told_lock);
  std::vector<Told> found;
  std::copy_if(told.begin(), told.end(), std::back_inserter(found),
               [&](Told const& one) { return one.kind == kind; });
  return found;
}

// Files of this process may not grow while it lives.
class NoRoom {
 public:
  NoRoom() {
    std::signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &before_);
    rlimit const none{1, before_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
  }
  ~NoRoom() { setrlimit(RLIMIT_FSIZE, &before_); }
  NoRoom(NoRoom const&) = delete;
  NoRoom& operator=(NoRoom const&) = delete;

 private:
  rlimit before_{};
};

class ChannelProblemsTest : public ::testing::Test {
 protected:
  ~ChannelProblemsTest() override {
    gate_.Open();
    channel_.reset();
    VeltSetProblemHandler(nullptr);
  }
  void Start(VeltProblemHandler handler = Keep) {
    VeltSetProblemHandler(handler);
    channel_ = MakeChannel(setup_);
  }
  bool Trace(char const* text = "record") const {
    return channel_->Trace("m", VeltLogLevel{3}, text, nullptr, false, true);
  }
  void TraceAndFlush(int count) const {
    for (int i = 0; i < count; ++i) ASSERT_TRUE(Trace());
    ASSERT_TRUE(channel_->Flush(kLong));
  }
  bool WaitForFiles(unsigned count) const {
    return WaitUntil([=] { return channel_->Counts().filesOpened >= count; });
  }
  std::string Log() const {
    auto const logs = FilesOf(setup_.directory, "t_", ".log");
    return logs.empty() ? "" : setup_.directory + "/" + logs.back();
  }
  // Calls are refused at once: the queue is full, and its output thread waits.
  void FillQueue() {
    channel_->SetQueueWait(0);
    OutputQueueOf(*channel_).high_water_mark(2 * sizeof(OutDataUnit));
    OutputQueueOf(*channel_).low_water_mark(2 * sizeof(OutDataUnit));
    StallAt(gate_, *channel_);
    ASSERT_TRUE(Trace());
    ASSERT_TRUE(Trace());
  }
  int OutputThread() const {
    auto const threads = ThreadsNamed("velt:t_");
    return threads.size() == 1 ? threads.front() : -1;
  }

  ScratchDir const dir_;
  ChannelSetup setup_{dir_ / "logs"};
  std::unique_ptr<VeltDebugInfo> channel_;
  Gate gate_;
};

// --- each kind ---

TEST_F(ChannelProblemsTest, AFileThatCannotBeOpenedIsToldAtOnceAndAgainWhenItCan) {
  setup_.directory = dir_ / "missing/logs";
  Start();
  ASSERT_TRUE(WaitUntil([] { return !Reports(VeltProblemKind::kCannotOpen).empty(); }));
  Told const closed = Reports(VeltProblemKind::kCannotOpen).front();
  fs::create_directory(dir_ / "missing");
  ASSERT_TRUE(WaitUntil([] { return !Reports(VeltProblemKind::kOpenAgain).empty(); }));
  Told const open = Reports(VeltProblemKind::kOpenAgain).front();

  EXPECT_EQ(closed.error, ENOENT);
  EXPECT_EQ(closed.count, 1U);
  EXPECT_EQ(closed.path.rfind(dir_ / "missing/logs/t_", 0), 0U) << closed.path;
  EXPECT_EQ(closed.sentence, "cannot open the log file " + closed.path +
                                 ", 1 attempt, tried again every second, records wait in the queue: No such "
                                 "file or directory (2)");
  EXPECT_EQ(open.path, Log());
  EXPECT_EQ(open.error, 0);
  EXPECT_GE(open.count, 1U);
  EXPECT_EQ(open.sentence.rfind("opened the log file " + open.path + " after ", 0), 0U) << open.sentence;
  EXPECT_EQ(closed.thread, OutputThread());
}

TEST_F(ChannelProblemsTest, WithoutAProblemNothingIsTold) {
  setup_.max_bytes = 0;
  Start();
  TraceAndFlush(5);
  ASSERT_TRUE(WaitForFiles(6));

  EXPECT_TRUE(told.empty()) << told.front().sentence;
}

TEST_F(ChannelProblemsTest, RecordsThatADeviceRefusesAreToldAndHowManyItCostWhenItTakesThemAgain) {
  Start();
  TraceAndFlush(1);
  {
    NoRoom const none;
    TraceAndFlush(5);
  }
  EXPECT_TRUE(Reports(VeltProblemKind::kWritesAgain).empty());
  TraceAndFlush(2);

  auto const refused = Reports(VeltProblemKind::kWriteRefused);
  auto const again = Reports(VeltProblemKind::kWritesAgain);
  ASSERT_EQ(refused.size(), 1U);
  EXPECT_EQ(refused[0].error, EFBIG);
  EXPECT_EQ(refused[0].count, 1U);
  EXPECT_EQ(refused[0].path, Log());
  EXPECT_EQ(refused[0].sentence, "cannot write to the log file " + Log() +
                                     ", 1 record lost: File too large (" + std::to_string(EFBIG) + ")");
  ASSERT_EQ(again.size(), 1U);
  EXPECT_EQ(again[0].count, 5U);
  EXPECT_EQ(again[0].error, 0);
  EXPECT_EQ(again[0].sentence, "the log file " + Log() + " takes records again, 5 records lost meanwhile");
  EXPECT_EQ(channel_->Counts().lost, 5U);
}

TEST_F(ChannelProblemsTest, TheEndOfALaterProblemIsToldOnceItsTenSecondsAreOver) {
  Start();
  auto const lose = [this](int records) {
    NoRoom const none;
    TraceAndFlush(records);
  };
  TraceAndFlush(1);
  lose(1);
  TraceAndFlush(1);
  ASSERT_EQ(Reports(VeltProblemKind::kWritesAgain).size(), 1U);

  lose(2);
  TraceAndFlush(1);  // too early for a second report
  lose(3);
  TraceAndFlush(1);
  EXPECT_EQ(Reports(VeltProblemKind::kWritesAgain).size(), 1U);
  seconds_ahead = 11;
  TraceAndFlush(1);

  auto const again = Reports(VeltProblemKind::kWritesAgain);
  ASSERT_EQ(again.size(), 2U) << "else the last report would be that the device refuses records";
  EXPECT_EQ(again[1].count, 5U);
}

TEST_F(ChannelProblemsTest, AnArchiveThatCannotBeMadeIsTold) {
  setup_.max_bytes = 0;
  Start();
  ASSERT_TRUE(WaitForFiles(1));
  std::string const first = Log();
  fs::create_directory(first + ".gz");
  TraceAndFlush(1);
  ASSERT_TRUE(WaitForFiles(2));

  auto const reports = Reports(VeltProblemKind::kCannotArchive);
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_EQ(reports[0].path, fs::canonical(first));
  EXPECT_EQ(reports[0].error, EISDIR);
  EXPECT_EQ(reports[0].count, 1U);
  EXPECT_EQ(reports[0].sentence,
            "cannot compress the log file " + reports[0].path +
                ", 1 failure, it stays and is tried again at the next rotation: Is a directory (21)");
}

TEST_F(ChannelProblemsTest, ARefusedRecordIsToldOnTheCallingThread) {
  Start();
  FillQueue();
  EXPECT_FALSE(Trace());

  auto const reports = Reports(VeltProblemKind::kRecordsRefused);
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_EQ(reports[0].count, 1U);
  EXPECT_EQ(reports[0].error, 0);
  EXPECT_EQ(reports[0].path, setup_.directory + "/t_");
  EXPECT_EQ(reports[0].sentence,
            "the queue of the log family " + setup_.directory + "/t_ is full, 1 record refused");
  EXPECT_EQ(reports[0].thread, gettid());
}

TEST_F(ChannelProblemsTest, WhatIsRefusedForItsOwnSakeIsNotTold) {
  Start();
  EXPECT_FALSE(channel_->Trace("m", VeltLogLevel{3}, nullptr, nullptr, false, true));

  EXPECT_TRUE(told.empty());
}

// --- how often ---

TEST_F(ChannelProblemsTest, OneReportInTenSecondsHasTheNumberOfThoseBetween) {
  Start();
  FillQueue();
  EXPECT_FALSE(Trace());
  for (int i = 0; i < 6; ++i) EXPECT_FALSE(Trace());
  seconds_ahead = 9;
  EXPECT_FALSE(Trace());
  EXPECT_EQ(Reports(VeltProblemKind::kRecordsRefused).size(), 1U);

  seconds_ahead = 10;
  EXPECT_FALSE(Trace());
  EXPECT_FALSE(Trace());

  auto const reports = Reports(VeltProblemKind::kRecordsRefused);
  ASSERT_EQ(reports.size(), 2U);
  EXPECT_EQ(reports[1].count, 8U);
  EXPECT_EQ(reports[1].sentence,
            "the queue of the log family " + setup_.directory + "/t_ is full, 8 records refused");
}

TEST_F(ChannelProblemsTest, LostRecordsBetweenTwoReportsAreCounted) {
  Start();
  TraceAndFlush(1);
  NoRoom const none;
  TraceAndFlush(4);
  seconds_ahead = 10;
  TraceAndFlush(2);

  auto const reports = Reports(VeltProblemKind::kWriteRefused);
  ASSERT_EQ(reports.size(), 2U);
  EXPECT_EQ(reports[0].count, 1U);
  EXPECT_EQ(reports[1].count, 4U);
}

TEST_F(ChannelProblemsTest, AttemptsBetweenTwoReportsAreCounted) {
  setup_.directory = dir_ / "missing/logs";
  Start();
  ASSERT_TRUE(WaitUntil([] { return Reports(VeltProblemKind::kCannotOpen).size() == 1; }));
  std::this_thread::sleep_for(std::chrono::milliseconds(1'200));  // for one attempt that is not reported
  seconds_ahead = 10;
  ASSERT_TRUE(WaitUntil([] { return Reports(VeltProblemKind::kCannotOpen).size() == 2; }));

  EXPECT_GE(Reports(VeltProblemKind::kCannotOpen)[1].count, 2U);
}

TEST_F(ChannelProblemsTest, KindsAndChannelsDoNotSilenceEachOther) {
  Start();
  ChannelSetup other_setup(dir_ / "other");
  auto const other = MakeChannel(other_setup);
  TraceAndFlush(1);
  NoRoom const none;
  TraceAndFlush(1);
  ASSERT_TRUE(other->Trace("m", VeltLogLevel{3}, "record", nullptr, false, true));
  ASSERT_TRUE(other->Flush(kLong));
  FillQueue();
  EXPECT_FALSE(Trace());

  EXPECT_EQ(Reports(VeltProblemKind::kWriteRefused).size(), 2U);
  EXPECT_EQ(Reports(VeltProblemKind::kRecordsRefused).size(), 1U);
}

TEST_F(ChannelProblemsTest, ManyThreadsThatAreRefusedAreToldOnce) {
  Start();
  FillQueue();
  std::vector<std::thread> threads;
  threads.reserve(8);
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([this] {
      for (int i = 0; i < 500; ++i) (void)Trace();
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(Reports(VeltProblemKind::kRecordsRefused).size(), 1U);
  seconds_ahead = 10;
  EXPECT_FALSE(Trace());

  auto const reports = Reports(VeltProblemKind::kRecordsRefused);
  ASSERT_EQ(reports.size(), 2U);
  EXPECT_EQ(reports[0].count + reports[1].count, 4'001U) << "every attempt is counted";
}

// --- the handler ---

TEST_F(ChannelProblemsTest, TheHandlerBeforeIsReturned) {
  EXPECT_EQ(VeltSetProblemHandler(Keep), nullptr);
  EXPECT_EQ(VeltSetProblemHandler(nullptr), &Keep);
  EXPECT_EQ(VeltSetProblemHandler(nullptr), nullptr);
}

VeltDebugInfo* channel_of_handler = nullptr;
std::atomic<int> deepest{0};
std::atomic<int> depth{0};

// Does everything that a host may do with the channel that has the problem.
void UseEverything(VeltProblem const& problem) {
  deepest = std::max(deepest.load(), ++depth);
  Keep(problem);
  (void)channel_of_handler->Counts();
  (void)channel_of_handler->Flush(10);
  channel_of_handler->SetQueueWait(0);
  (void)channel_of_handler->Trace("handler", VeltLogLevel{3}, "from the handler", nullptr, false, true);
  (void)channel_of_handler->Trace("handler", VeltLogLevel{3}, "into the ring", nullptr, false, false);
  (void)VeltDebugMgr::Instance()->IsInit();
  --depth;
}

TEST_F(ChannelProblemsTest, AHandlerMayUseTheChannelAndIsNotCalledAgainForWhatItDoes) {
  setup_.ring = 5;
  Start(nullptr);
  channel_of_handler = channel_.get();
  FillQueue();
  VeltSetProblemHandler(UseEverything);

  EXPECT_FALSE(Trace());
  seconds_ahead = 10;  // the handler's own call is refused, and would be reported now
  EXPECT_FALSE(Trace());

  EXPECT_EQ(deepest, 1);
  EXPECT_EQ(Reports(VeltProblemKind::kRecordsRefused).size(), 2U);
}

TEST_F(ChannelProblemsTest, WhatAHandlerTracesOnTheOutputThreadIsTraced) {
  Start(nullptr);
  channel_of_handler = channel_.get();
  TraceAndFlush(1);
  VeltSetProblemHandler(UseEverything);
  {
    NoRoom const none;
    TraceAndFlush(1);
  }
  TraceAndFlush(1);
  ASSERT_TRUE(channel_->Flush(kLong));

  EXPECT_EQ(deepest, 1);
  EXPECT_EQ(channel_->Counts().accepted, 5U) << "one for each of the two reports";
}

void KeepAndThrow(VeltProblem const& problem) {
  Keep(problem);
  throw std::runtime_error("the handler");
}

TEST_F(ChannelProblemsTest, WhatAHandlerThrowsReachesNeitherCallerNorThread) {
  Start(KeepAndThrow);
  TraceAndFlush(1);
  {
    NoRoom const none;
    TraceAndFlush(1);
  }
  TraceAndFlush(1);
  FillQueue();
  EXPECT_NO_THROW(EXPECT_FALSE(Trace()));
  seconds_ahead = 10;
  EXPECT_NO_THROW(EXPECT_FALSE(Trace())) << "and the next one is reported";

  EXPECT_EQ(Reports(VeltProblemKind::kRecordsRefused).size(), 2U);
  EXPECT_EQ(Reports(VeltProblemKind::kWriteRefused).size(), 1U);
}

struct CancelledCall {
  VeltDebugInfo* channel;
  std::atomic<int> result{-1};
};

void* TraceCancelled(void* argument) {
  auto* const call = static_cast<CancelledCall*>(argument);
  pthread_cancel(pthread_self());  // takes effect at the next cancellation point
  call->result = call->channel->Trace("m", VeltLogLevel{3}, "refused", nullptr, false, true) ? 1 : 0;
  pthread_testcancel();
  return nullptr;
}

void WriteSomething(VeltProblem const& problem) {
  Keep(problem);
  (void)!write(STDERR_FILENO, problem.sentence, 1);  // a cancellation point
}

TEST_F(ChannelProblemsTest, AThreadThatIsCancelledInARefusedCallEndsBehindThatCall) {
  Start(WriteSomething);
  FillQueue();
  CancelledCall call{channel_.get()};
  pthread_t thread{};
  ASSERT_EQ(pthread_create(&thread, nullptr, &TraceCancelled, &call), 0);
  void* end = nullptr;
  ASSERT_EQ(pthread_join(thread, &end), 0);

  EXPECT_EQ(end, PTHREAD_CANCELED);
  EXPECT_EQ(call.result, 0);
  EXPECT_EQ(Reports(VeltProblemKind::kRecordsRefused).size(), 1U);
}

// --- standard error ---

class ProblemLineTest : public ChannelProblemsTest {
 protected:
  // The lines of a child whose calls are refused twice.
  std::string ErrorsOfAChild(char const* setting, VeltProblemHandler handler = nullptr) {
    auto const outcome = RunInChild([&] {
      if (setting != nullptr) {
        setenv("VELT_PROBLEMS", setting, 1);
      } else {
        unsetenv("VELT_PROBLEMS");
      }
      Start(handler);
      FillQueue();
      bool const taken = Trace() || Trace();
      gate_.Open();
      channel_.reset();
      return taken ? 1 : 0;
    });
    EXPECT_EQ(outcome.exit_code, 0);
    return outcome.err;
  }
};

TEST_F(ProblemLineTest, GoesToStandardErrorWhenTheEnvironmentAsksForIt) {
  EXPECT_EQ(ErrorsOfAChild("stderr"), "veltbaseutil: the queue of the log family " + setup_.directory +
                                          "/t_ is full, 1 record refused\n");
}

TEST_F(ProblemLineTest, WithoutItNothingIsWritten) { EXPECT_EQ(ErrorsOfAChild(nullptr), ""); }

TEST_F(ProblemLineTest, AnotherValueWritesNothing) { EXPECT_EQ(ErrorsOfAChild("1"), ""); }

TEST_F(ProblemLineTest, AHandlerTakesItsPlace) { EXPECT_EQ(ErrorsOfAChild("stderr", Keep), ""); }

}  // namespace
}  // namespace velt::test
