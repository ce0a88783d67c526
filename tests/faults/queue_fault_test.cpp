// A queue whose output stalls or is slow, with one caller and with many: how long they wait, and that every
// record is accounted for.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <iostream>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "velt/channel.h"

#include "tests/checker/record_text.h"
#include "tests/checker/report.h"
#include "tests/faults/counted.h"
#include "tests/faults/host.h"
#include "tests/faults/process_state.h"
#include "tests/faults/scale.h"
#include "tests/faults/shim/shim.h"
#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/manager_host.h"
#include "tests/support/process.h"
#include "tests/support/running_program.h"

namespace velt::test {
namespace {

using faults::ExpectCounted;
using faults::Figure;
using faults::ProcessState;
using faults::QuietCounts;
using faults::Scaled;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr unsigned kProducers = 8;
// A sanitizer would need minutes to fill a queue of full size; there its water marks are lowered.
constexpr unsigned kQueueRecords = faults::kSanitized ? 8'000 : 128'000;
constexpr milliseconds kWait(1'000);
constexpr milliseconds kSlack(3'000);  // for the scheduler of a busy machine, added to the second

long long Milliseconds(std::chrono::nanoseconds time) {
  return std::chrono::duration_cast<milliseconds>(time).count();
}

// The shortest and longest call that was refused, and how many were.
class RefusedCalls {
 public:
  // Times `trace`: reads the clock before and after.
  faults::TraceCall Watch(faults::TraceCall trace) {
    return [this, trace = std::move(trace)](std::string const& text) {
      auto const begin = Clock::now();
      bool const accepted = trace(text);
      if (!accepted) Add(Clock::now() - begin);
      return accepted;
    };
  }
  void Add(std::chrono::nanoseconds took) {
    std::lock_guard<std::mutex> const lock(mutex_);
    ++count_;
    shortest_ = std::min(shortest_, took);
    longest_ = std::max(longest_, took);
  }

  std::size_t count_ = 0;
  std::chrono::nanoseconds shortest_ = std::chrono::hours(1);
  std::chrono::nanoseconds longest_{0};

 private:
  std::mutex mutex_;
};

class QueueFaultTest : public ::testing::Test {
 protected:
  QueueFaultTest() {
    setup_.directory = dir_ / "logs";
    producers_.side_directory = dir_ / "side";
    producers_.producers = kProducers;
    producers_.records = kQueueRecords + 2'000;  // one thread may fill it nearly alone
    producers_.length = [](unsigned) { return std::size_t{20}; };
  }

  std::unique_ptr<VeltDebugInfo> MakeChannelWithQueue() const {
    auto channel = MakeChannel(setup_);
    if (faults::kSanitized) {
      OutputQueueOf(*channel).high_water_mark(kQueueRecords * sizeof(OutDataUnit));
      OutputQueueOf(*channel).low_water_mark(kQueueRecords * sizeof(OutDataUnit));
    }
    return channel;
  }
  // Every producer traces until `refusals` of its calls were refused.
  void TraceUntilRefused(faults::TraceCall const& trace, int refusals) {
    InThreads(static_cast<int>(kProducers), [&](int number) {
      faults::Producer producer(producers_, static_cast<unsigned>(number), trace);
      for (int refused = 0; refused < refusals && !producer.Exhausted();)
        refused += producer.TraceNext() ? 0 : 1;
      if (producer.Exhausted()) exhausted_ = true;
    });
  }
  checker::Report CheckFamily(std::string const& directory,
                              std::vector<std::string> const& other_texts = {}) const {
    checker::Expectation expected;
    expected.other_texts = other_texts;
    expected.directory = directory;
    expected.prefix = "t_";
    return Check(expected, checker::ReadOutcomes(producers_.side_directory));
  }
  static void ExpectOneSecondEach(RefusedCalls const& refused, std::size_t count) {
    EXPECT_EQ(refused.count_, count);
    EXPECT_GE(Milliseconds(refused.shortest_), kWait.count() - 20);
    EXPECT_LT(Milliseconds(refused.longest_), (kWait + kSlack).count());
  }
  // The last lines of the family; `in_ring` records waited in the ring.
  static void ExpectLinesOfAnOrderlyStop(std::string const& directory, unsigned in_ring) {
    auto const lines = Lines(ReadFamily(directory, "t_"));
    ASSERT_GE(lines.size(), 5U);
    auto const line = [&lines](std::size_t from_end) { return lines[lines.size() - from_end]; };
    EXPECT_EQ(line(5), "thread handle output string exit");
    EXPECT_EQ(line(4).substr(26), " about to clear m_DiscardQueue(" + std::to_string(in_ring) + ")");
    // The thread may find the queue empty and end before the stop marker is queued, which then counts as
    // left.
    EXPECT_THAT(line(3).substr(26),
                testing::AnyOf(" about to clear m_OutputQueue(0)", " about to clear m_OutputQueue(1)"));
    EXPECT_EQ(line(2).substr(26), " after m_OutputQueue cleared");
    EXPECT_EQ(line(1).rfind("File close at ", 0), 0U);
  }
  static void ReportStall(checker::Report const& report, RefusedCalls const& refused) {
    Figure({{"accepted", static_cast<long long>(report.accepted)},
            {"refused", static_cast<long long>(report.refused)},
            {"records_verified", static_cast<long long>(report.found)},
            {"lost", static_cast<long long>(report.missing)},
            {"shortest_refusal_ms", Milliseconds(refused.shortest_)},
            {"longest_refusal_ms", Milliseconds(refused.longest_)}});
  }

  ScratchDir const dir_;
  ChannelSetup setup_{dir_.Path()};
  faults::ProducerSetup producers_;
  std::atomic<bool> exhausted_{false};
};

// --- stalled output ---

TEST_F(QueueFaultTest, AStalledFileRefusesAfterOneSecondAndLosesNothingThatWasAccepted) {
  int const refusals = Scaled(1, 5);
  shim::Rule stall;
  stall.call = shim::Call::kWrite;
  stall.action = shim::Action::kStall;
  stall.count = 0;
  stall.path = "*/logs/*.log";
  shim::AddRule(stall);
  auto channel = MakeChannelWithQueue();
  RefusedCalls refused;

  TraceUntilRefused(refused.Watch(faults::ToChannel(*channel)), refusals);
  VeltTraceCounts const stalled = channel->Counts();
  std::atomic<bool> ended{false};
  std::thread stopper([&] {
    channel.reset();
    ended = true;
  });
  std::this_thread::sleep_for(milliseconds(300));
  EXPECT_FALSE(ended) << "the destructor waits until the stall ends";
  shim::ClearRules();
  stopper.join();

  EXPECT_FALSE(exhausted_);
  ExpectOneSecondEach(refused, kProducers * static_cast<std::size_t>(refusals));
  checker::Report const report = CheckFamily(setup_.directory);
  EXPECT_TRUE(report.Clean()) << report.Text();
  faults::ExpectSum(stalled);
  EXPECT_EQ(stalled.accepted, report.accepted);
  EXPECT_EQ(stalled.refused, report.refused);
  EXPECT_EQ(stalled.queued, report.found) << "the device has not taken one of them";
  ExpectLinesOfAnOrderlyStop(setup_.directory, 0);
  EXPECT_GE(report.found, kQueueRecords);
  ReportStall(report, refused);
}

TEST_F(QueueFaultTest, AFullPipeAtStandardOutputRefusesAfterOneSecondAndLosesNothingThatWasAccepted) {
  int const refusals = Scaled(1, 5);
  PipeEnds pipe;
  RefusedCalls refused;
  VeltTraceCounts counts{};
  std::string printed;
  int const standard_output = dup(1);
  dup2(pipe.write, 1);
  pipe.write.Close();

  {
    auto channel = MakeChannelWithQueue();
    TraceUntilRefused(refused.Watch([&channel](std::string const& text) {
      return channel->Trace("m", VeltLogLevel{3}, text.c_str(), nullptr, true, true);
    }),
                      refusals);
    std::thread reader([&] {
      std::vector<char> block(65'536);
      for (ssize_t n = 0; (n = read(pipe.read, block.data(), block.size())) > 0;) {
        printed.append(block.data(), static_cast<std::size_t>(n));
      }
    });
    counts = QuietCounts(*channel);
    channel.reset();
    std::cout.flush();
    dup2(standard_output, 1);  // closes the last writing end
    reader.join();
  }
  close(standard_output);

  EXPECT_FALSE(exhausted_);
  ExpectOneSecondEach(refused, kProducers * static_cast<std::size_t>(refusals));
  checker::Report const report = CheckFamily(setup_.directory);
  EXPECT_TRUE(report.Clean()) << report.Text();
  ExpectCounted(counts, report);
  std::size_t printed_whole = 0;
  for (auto const& body : Bodies(printed)) {
    bool const whole = body.rfind(" m I: ", 0) == 0 &&
                       checker::ParseRecord(body.substr(6)).state == checker::TextState::kWhole;
    printed_whole += whole ? 1 : 0;
  }
  EXPECT_EQ(printed_whole, report.accepted);
  ReportStall(report, refused);
}

TEST_F(QueueFaultTest, ASlowFileHoldsNoCallerLongerThanTheSecond) {
  auto const run = milliseconds(Scaled(1'500, 20'000));
  auto channel = MakeChannelWithQueue();
  shim::Rule slow;
  slow.call = shim::Call::kWrite;
  slow.action = shim::Action::kDelay;
  slow.count = 0;
  slow.delay_ms = 30;
  slow.path = "*/logs/*.log";
  int const rule = shim::AddRule(slow);
  producers_.records = kQueueRecords + 8'000;
  RefusedCalls refused;

  faults::Producers producers(producers_, refused.Watch(faults::ToChannel(*channel)));
  ASSERT_TRUE(WaitUntil([&] { return OutputQueueOf(*channel).is_full(); }));
  std::this_thread::sleep_for(run);
  producers.Stop();
  unsigned const delayed = shim::AppliedCalls(rule);
  shim::ClearRules();
  VeltTraceCounts const counts = QuietCounts(*channel);
  channel.reset();

  checker::Report const report = CheckFamily(setup_.directory);
  EXPECT_TRUE(report.Clean()) << report.Text();
  ExpectCounted(counts, report);
  EXPECT_GE(report.found, kQueueRecords);
  EXPECT_GT(delayed, 10U);
  EXPECT_LT(Milliseconds(producers.LongestCall()), (kWait + kSlack).count());
  Figure({{"delayed_writes", delayed},
          {"accepted", static_cast<long long>(report.accepted)},
          {"refused", static_cast<long long>(report.refused)},
          {"records_verified", static_cast<long long>(report.found)},
          {"lost", static_cast<long long>(report.missing)},
          {"longest_call_ms", Milliseconds(producers.LongestCall())}});
}

// --- one caller and many ---

class ManyThreadsTest : public QueueFaultTest, public ::testing::WithParamInterface<unsigned> {};

TEST_P(ManyThreadsTest, EveryRecordOfEveryThreadIsThereInItsOrder) {
  producers_.producers = GetParam();
  producers_.records = static_cast<unsigned>(Scaled(15'000, 500'000)) / GetParam();
  producers_.length = {};
  setup_.directory = dir_ / "logs";
  auto channel = MakeChannel(setup_);

  faults::Producers producers(producers_, faults::ToChannel(*channel));
  producers.Wait();
  VeltTraceCounts const counts = QuietCounts(*channel);
  channel.reset();

  checker::Report const report = CheckFamily(setup_.directory);
  EXPECT_TRUE(report.Clean()) << report.Text();
  ExpectCounted(counts, report);
  EXPECT_EQ(report.called, std::size_t{producers_.producers} * producers_.records);
  EXPECT_EQ(report.found + report.refused, report.called);
  // Turns of the others, on a processor that hundreds share.
  milliseconds const turns(GetParam() > 64 ? 20 * GetParam() : 0);
  EXPECT_LT(Milliseconds(producers.LongestCall()), (kWait + kSlack + turns).count());
  Figure({{"threads", GetParam()},
          {"records_verified", static_cast<long long>(report.found)},
          {"refused", static_cast<long long>(report.refused)},
          {"lost", static_cast<long long>(report.missing)},
          {"longest_call_us", producers.LongestCall().count() / 1'000}});
}

INSTANTIATE_TEST_SUITE_P(Threads, ManyThreadsTest, ::testing::Values(1U, 64U, 512U));

TEST_F(QueueFaultTest, ThreadsThatComeAndGoLeaveNothingBehind) {
  constexpr unsigned kRecordsEach = 5;
  int const warm_up = 5;
  int const rounds = Scaled(40, 400);
  producers_.records = static_cast<unsigned>(warm_up + rounds) * kRecordsEach;
  auto channel = MakeChannel(setup_);
  std::vector<std::unique_ptr<faults::Producer>> numbered;
  for (unsigned i = 0; i < kProducers; ++i) {
    numbered.push_back(std::make_unique<faults::Producer>(producers_, i, faults::ToChannel(*channel)));
  }
  auto const round = [&] {
    InThreads(static_cast<int>(kProducers), [&](int number) {
      for (unsigned i = 0; i < kRecordsEach; ++i) numbered[static_cast<std::size_t>(number)]->TraceNext();
    });
    WaitUntil([&] { return OutputQueueOf(*channel).is_empty(); });
  };

  for (int i = 0; i < warm_up; ++i) round();
  ProcessState const before = ProcessState::Now();
  for (int i = 0; i < rounds; ++i) round();
  ProcessState const after = ProcessState::Settled(before.threads);
  VeltTraceCounts const counts = QuietCounts(*channel);
  channel.reset();

  EXPECT_EQ(after.threads, before.threads);
  EXPECT_EQ(after.descriptors, before.descriptors);
  // A record leaked by each thread would come to 300,000 bytes in the short run.
  EXPECT_LT(after.heap_bytes, before.heap_bytes + 100'000);
  checker::Report const report = CheckFamily(setup_.directory);
  EXPECT_TRUE(report.Clean()) << report.Text();
  ExpectCounted(counts, report);
  EXPECT_EQ(report.found, std::size_t{kProducers} * producers_.records);
  Figure({{"threads", static_cast<long long>(kProducers) * (warm_up + rounds)},
          {"records_verified", static_cast<long long>(report.found)},
          {"heap_growth_bytes",
           static_cast<long long>(after.heap_bytes) - static_cast<long long>(before.heap_bytes)}});
}

// --- destruction ---

TEST_F(QueueFaultTest, DestructionWithAnEmptyQueueEndsTheFileWithItsLines) {
  setup_.ring = 10;
  auto channel = MakeChannel(setup_);
  ASSERT_TRUE(channel->Trace("m", VeltLogLevel{3}, "kept", nullptr, false, false));

  channel.reset();

  ExpectLinesOfAnOrderlyStop(setup_.directory, 1);
}

TEST_F(QueueFaultTest, DestructionRightAfterAStallWritesTheFullQueueAndThenItsLines) {
  constexpr unsigned kInRing = 3;
  setup_.ring = 10;
  auto channel = MakeChannelWithQueue();
  for (unsigned i = 0; i < kInRing; ++i)
    ASSERT_TRUE(channel->Trace("m", VeltLogLevel{3}, "kept", nullptr, false, false));
  Gate gate;
  StallAt(gate, *channel);
  RefusedCalls refused;
  TraceUntilRefused(refused.Watch(faults::ToChannel(*channel)), 1);
  std::size_t const waiting = OutputQueueOf(*channel).message_count();
  VeltTraceCounts const stalled = channel->Counts();

  auto const begin = Clock::now();
  gate.Open();
  channel.reset();
  auto const took = Clock::now() - begin;

  EXPECT_FALSE(exhausted_);
  EXPECT_EQ(waiting, kQueueRecords);
  ExpectOneSecondEach(refused, kProducers);
  checker::Report const report = CheckFamily(setup_.directory, {"stalled"});
  EXPECT_TRUE(report.CleanBut({checker::Kind::kWrongLine})) << report.Text();
  EXPECT_EQ(report.Count(checker::Kind::kWrongLine), 2U) << "of the value that stalled it";
  EXPECT_EQ(report.accepted, kQueueRecords);
  EXPECT_EQ(report.found, kQueueRecords);
  faults::ExpectSum(stalled);
  EXPECT_EQ(stalled.accepted, report.accepted + 1) << "with the value that stalled it";
  EXPECT_EQ(stalled.refused, report.refused);
  EXPECT_EQ(stalled.queued, report.found + 1);
  EXPECT_EQ(stalled.inRing, kInRing);
  ExpectLinesOfAnOrderlyStop(setup_.directory, kInRing);
  Figure({{"records_verified", static_cast<long long>(report.found)},
          {"refused", static_cast<long long>(report.refused)},
          {"lost", static_cast<long long>(report.missing)},
          {"destruction_ms", Milliseconds(took)}});
}

TEST_F(QueueFaultTest, AChannelWhoseFileNeverOpenedEndsWithItsFullQueue) {
  setup_.directory = dir_ / "missing/logs";
  auto channel = MakeChannelWithQueue();
  RefusedCalls refused;
  TraceUntilRefused(refused.Watch(faults::ToChannel(*channel)), 1);
  VeltTraceCounts const counts = channel->Counts();

  auto const begin = Clock::now();
  channel.reset();
  auto const took = Clock::now() - begin;

  ExpectOneSecondEach(refused, kProducers);
  faults::ExpectSum(counts);
  EXPECT_EQ(counts.accepted, kQueueRecords);
  EXPECT_EQ(counts.refused, refused.count_);
  EXPECT_EQ(counts.queued, kQueueRecords) << "no file, no record";
  EXPECT_LT(Milliseconds(took), 30'000);
  EXPECT_FALSE(Exists(dir_ / "missing"));
  std::size_t accepted = 0;
  for (auto const& outcomes : checker::ReadOutcomes(producers_.side_directory)) {
    accepted += outcomes.Count(checker::Outcome::kAccepted);
  }
  EXPECT_EQ(accepted, kQueueRecords);
  Figure({{"accepted", static_cast<long long>(accepted)}, {"destruction_ms", Milliseconds(took)}});
}

}  // namespace
}  // namespace velt::test
