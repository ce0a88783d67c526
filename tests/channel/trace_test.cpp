// Trace: refused, filtered, kept in the ring, queued, and written in order.
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "velt/channel.h"

#include "tests/channel/traced_channel.h"
#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

using ::testing::EndsWith;
using ::testing::MatchesRegex;
using Clock = std::chrono::steady_clock;

constexpr int kQueueRecords = 128'000;  // 10,240,000 bytes of 80 each

void TraceNumbers(VeltDebugInfo& channel, int thread, int count) {
  std::string const module = "thread" + std::to_string(thread);
  for (int i = 0; i < count; ++i) {
    EXPECT_TRUE(channel.Trace(module, Level(3), std::to_string(i).c_str(), nullptr, false, true));
  }
}

// How many of a thread's numbers follow one another in `log` from 0 on, until one is wrong.
int InOrder(std::string const& log, int thread) {
  std::string const start = " thread" + std::to_string(thread) + " I: ";
  int next = 0;
  for (std::size_t at = log.find(start); at != std::string::npos; at = log.find(start, at + 1)) {
    std::string const expected = std::to_string(next) + "\n";
    if (log.compare(at + start.size(), expected.size(), expected) != 0) break;
    ++next;
  }
  return next;
}

TEST_F(TraceTest, ANullTextIsRefused) {
  setup.ring = 3;
  channel = MakeChannel(setup);

  EXPECT_FALSE(channel->Trace("m", Level(3), nullptr, nullptr, true, true));
  EXPECT_FALSE(channel->Trace("m", Level(3), nullptr, nullptr, false, false));
  EXPECT_TRUE(RingOf(*channel).is_empty());
}

TEST_F(TraceTest, AChannelWithoutAThreadRefuses) {
  setup.ring = 3;
  channel = MakeIdleChannel(setup);

  EXPECT_FALSE(channel->Trace("m", Level(3), "x", nullptr, false, true));
  EXPECT_FALSE(channel->Trace("m", Level(3), "x", nullptr, true, false));
  EXPECT_FALSE(channel->Trace("m", Level(3), "x", nullptr, false, false));
  EXPECT_TRUE(RingOf(*channel).is_empty());
  EXPECT_TRUE(OutputQueueOf(*channel).is_empty());
}

TEST_F(TraceTest, ARecordForTheLogIsOneLineInTheFile) {
  channel = MakeChannel(setup);

  EXPECT_TRUE(channel->Trace("Sched", Level(1), "message", nullptr, false, true));

  std::string line;
  for (auto const& candidate : Lines(LogAfterStop())) {
    if (candidate.find(" Sched ") != std::string::npos) line += candidate;
  }
  EXPECT_THAT(line, MatchesRegex("[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6}\\.T" +
                                 std::to_string(gettid()) + " Sched E: message"));
}

TEST_F(TraceTest, AValueIsWrittenBehindItsRecordAndDeleted) {
  channel = MakeChannel(setup);
  {
    AsnText const value("the value");
    EXPECT_TRUE(channel->Trace("m", Level(3), "x", &value, false, true));
  }

  EXPECT_EQ(CountOf(LogAfterStop(), " m I: x\nASN Trace:\nthe value\n"), 1U);
  EXPECT_EQ(AsnText::Live(), 0);
}

TEST_F(TraceTest, TheChannelsOwnFlagsStandInForTheCallers) {
  setup.ring = 3;
  setup.log = true;
  channel = MakeChannel(setup);

  EXPECT_TRUE(channel->Trace("m", Level(3), "by default", nullptr, false, false));

  EXPECT_TRUE(RingOf(*channel).is_empty());
  EXPECT_EQ(CountOf(LogAfterStop(), " m I: by default\n"), 1U);
}

TEST_F(TraceTest, TheChannelsOwnPrintFlagPrints) {
  setup.print = true;
  CaptureStdout out;
  channel = MakeChannel(setup);

  EXPECT_TRUE(channel->Trace("m", Level(3), "printed", nullptr, false, false));

  EXPECT_EQ(CountOf(LogAfterStop(), "printed"), 0U);
  EXPECT_THAT(out.Text(), EndsWith(" m I: printed\n"));
}

TEST_F(TraceTest, TheCallersFlagsAreEnough) {
  CaptureStdout out;
  channel = MakeChannel(setup);

  EXPECT_TRUE(channel->Trace("m", Level(3), "printed", nullptr, true, false));
  EXPECT_TRUE(channel->Trace("m", Level(3), "logged", nullptr, false, true));

  std::string const log = LogAfterStop();
  EXPECT_EQ(CountOf(log, "printed"), 0U);
  EXPECT_EQ(CountOf(log, " m I: logged\n"), 1U);
  EXPECT_THAT(out.Text(), EndsWith(" m I: printed\n"));
}

TEST_F(TraceTest, WithoutARingAFilteredRecordIsDroppedWithSuccess) {
  channel = MakeChannel(setup);

  EXPECT_TRUE(channel->Trace("m", Level(3), "filtered", nullptr, false, false));

  EXPECT_TRUE(RingOf(*channel).is_empty());
  channel->Trace("m", Level(0), "severe", nullptr, false, true);
  EXPECT_EQ(CountOf(LogAfterStop(), "filtered"), 0U);
}

TEST_F(TraceTest, ARingKeepsTheNewestOfItsCapacity) {
  setup.ring = 3;
  channel = MakeChannel(setup);

  for (char const* const text : {"1", "2", "3", "4", "5"}) {
    EXPECT_TRUE(channel->Trace("m", Level(3), text, nullptr, false, false));
  }

  std::string kept;
  while (auto const rec = TakeFrom(RingOf(*channel))) kept += rec->m_pText;
  EXPECT_EQ(kept, " m I: 3 m I: 4 m I: 5");
}

TEST_F(TraceTest, ARingOfOneKeepsOne) {
  setup.ring = 1;
  channel = MakeChannel(setup);

  channel->Trace("m", Level(3), "1", nullptr, false, false);
  EXPECT_EQ(RingOf(*channel).message_count(), 1U);
  channel->Trace("m", Level(3), "2", nullptr, false, false);

  EXPECT_EQ(RingOf(*channel).message_count(), 1U);
  EXPECT_STREQ(TakeFrom(RingOf(*channel))->m_pText, " m I: 2");
}

TEST_F(TraceTest, ManyThreadsShareARingWithoutOverfillingIt) {
  setup.ring = 10;
  CaptureStdout const out;
  channel = MakeChannel(setup);
  std::vector<std::thread> threads;
  threads.reserve(8);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([this] {
      for (int i = 0; i < 500; ++i)
        EXPECT_TRUE(channel->Trace("m", Level(3), "filtered", nullptr, false, false));
    });
  }
  for (int i = 0; i < 20; ++i) EXPECT_TRUE(channel->Trace("m", Level(0), "severe", nullptr, false, true));
  for (auto& thread : threads) thread.join();

  EXPECT_LE(RingOf(*channel).message_count(), 10U);
  EXPECT_EQ(CountOf(LogAfterStop(), "severe"), 20U);
}

TEST_F(TraceTest, TheRingComesOutBeforeALevelZeroRecord) {
  setup.ring = 3;
  CaptureStdout const out;
  channel = MakeChannel(setup);
  for (char const* const text : {"f1", "f2", "f3", "f4", "f5"})
    channel->Trace("m", Level(3), text, nullptr, false, false);

  channel->Trace("m", Level(0), "severe", nullptr, false, true);

  std::string order;
  for (auto const& line : Lines(LogAfterStop())) {
    for (char const* const text : {"f1", "f2", "f3", "f4", "f5", "severe"}) {
      if (line.find(std::string(": ") + text) != std::string::npos) order += std::string(text) + " ";
    }
  }
  EXPECT_EQ(order, "f3 f4 f5 severe ");
}

TEST_F(TraceTest, EveryRecordOfEveryThreadIsWrittenOnceInItsThreadsOrder) {
  constexpr int kThreads = 4;
  constexpr int kRecords = 1000;
  channel = MakeChannel(setup);
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int t = 0; t < kThreads; ++t) threads.emplace_back([this, t] { TraceNumbers(*channel, t, kRecords); });
  for (auto& thread : threads) thread.join();

  std::string const log = LogAfterStop();
  for (int t = 0; t < kThreads; ++t) {
    EXPECT_EQ(InOrder(log, t), kRecords)
        << "the first record of thread " << t << " missing or out of its order";
  }
}

TEST_F(TraceTest, AFullQueueMakesTheCallerWaitOneSecondAndRefuses) {
  setup.directory = dir / "missing/logs";  // no file can be opened, so nothing leaves the queue
  channel = MakeChannel(setup);
  OutputQueueOf(*channel).high_water_mark(sizeof(OutDataUnit));
  OutputQueueOf(*channel).low_water_mark(sizeof(OutDataUnit));
  EXPECT_TRUE(channel->Trace("m", Level(3), "fills it", nullptr, false, true));
  AsnText const value("value");
  auto const start = Clock::now();

  bool const traced = channel->Trace("m", Level(3), "one too many", &value, false, true);

  auto const waited = Clock::now() - start;
  EXPECT_FALSE(traced);
  EXPECT_GE(waited, std::chrono::milliseconds(950));
  EXPECT_LT(waited, std::chrono::seconds(30));
  EXPECT_EQ(AsnText::Live(), 1) << "the refused copy is deleted";
  EXPECT_EQ(OutputQueueOf(*channel).message_count(), 1U);
}

TEST_F(TraceTest, TheQueueAdmits128000RecordsAndNoMore) {
  channel = MakeIdleChannel(setup);
  int admitted = 0;
  for (bool queued = true; queued && admitted <= kQueueRecords;) {
    OutDataUnit* rec = NewStopMarker();  // the smallest record
    queued = channel->TraceInner(rec);
    if (queued) ++admitted;
  }

  EXPECT_EQ(admitted, 128'000);
}

TEST_F(TraceTest, ARefusedRecordIsLostAndALaterOneFindsRoom) {
  channel = MakeChannel(setup);
  OutputQueueOf(*channel).high_water_mark(sizeof(OutDataUnit));
  OutputQueueOf(*channel).low_water_mark(sizeof(OutDataUnit));
  Gate gate;
  StallAt(gate, *channel);
  bool const first = channel->Trace("m", Level(3), "fills it", nullptr, false, true);
  bool const second = channel->Trace("m", Level(3), "refused", nullptr, false, true);
  gate.Open();

  bool const third = channel->Trace("m", Level(3), "finds room", nullptr, false, true);

  std::string const log = LogAfterStop();
  EXPECT_TRUE(first);
  EXPECT_FALSE(second);
  EXPECT_TRUE(third);
  EXPECT_EQ(CountOf(log, " m I: fills it\n"), 1U);
  EXPECT_EQ(CountOf(log, " m I: refused\n"), 0U);
  EXPECT_EQ(CountOf(log, " m I: finds room\n"), 1U);
}

}  // namespace
}  // namespace velt::test
