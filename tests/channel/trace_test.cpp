// The caller's side of a channel: how records are made, cut, filtered, queued and refused.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "velt/channel.h"

#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using Clock = std::chrono::steady_clock;

constexpr int kQueueRecords = 128'000;  // 10,240,000 bytes of 80 each

VeltLogLevel Level(int value) { return VeltLogLevel{value}; }

// A value that cannot be copied.
class AsnWithoutCopy : public AsnType {
 public:
  AsnType* Clone() const override { throw std::runtime_error("no copy"); }
  void Print(std::ostream& out, int, int) const override { out << "never"; }
};

// A value whose copy is nothing.
class AsnOfNullCopy : public AsnType {
 public:
  AsnType* Clone() const override { return nullptr; }
  void Print(std::ostream& out, int, int) const override { out << "never"; }
};

// A value that prints a little and then throws.
class AsnThatBreaks : public AsnType {
 public:
  AsnType* Clone() const override { return new AsnThatBreaks; }
  void Print(std::ostream& out, int, int) const override {
    out << "half";
    throw std::runtime_error("cannot print the rest");
  }
};

// By the clock that stamps are taken from; time() may be a tick behind it.
std::string LocalSecond() {
  std::time_t const now = std::chrono::system_clock::to_time_t(
      std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()));
  std::tm local{};
  localtime_r(&now, &local);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
  return text;
}

class TraceTest : public ::testing::Test {
 protected:
  // Everything in the files of the channel once it has ended.
  std::string LogAfterStop() {
    channel.reset();
    return ReadFamily(dir.Path(), "t_");
  }

  void TraceNumbers(int thread, int count) const {
    std::string const module = "thread" + std::to_string(thread);
    for (int i = 0; i < count; ++i) {
      EXPECT_TRUE(channel->Trace(module, Level(3), std::to_string(i).c_str(), nullptr, false, true));
    }
  }
  // How many of a thread's numbers follow one another in `log` from 0 on, until one is wrong.
  static int InOrder(std::string const& log, int thread) {
    std::string const start = " thread" + std::to_string(thread) + " I: ";
    int next = 0;
    for (std::size_t at = log.find(start); at != std::string::npos; at = log.find(start, at + 1)) {
      std::string const expected = std::to_string(next) + "\n";
      if (log.compare(at + start.size(), expected.size(), expected) != 0) break;
      ++next;
    }
    return next;
  }

  ScratchDir const dir;
  ChannelSetup setup{dir.Path()};
  std::unique_ptr<VeltDebugInfo> channel;
};

// Looks at records in the ring, where they stay as they were made.
class TracedRecordTest : public TraceTest {
 protected:
  TracedRecordTest() {
    setenv("TZ", "UTC", 1);
    tzset();
    setup.ring = 100;
    channel = MakeChannel(setup);
  }

  std::unique_ptr<OutDataUnit> Made(std::string const& module, int level, std::string const& text,
                                    AsnType const* asn = nullptr) const {
    EXPECT_TRUE(channel->Trace(module, Level(level), text.c_str(), asn, false, false));
    auto rec = TakeFrom(RingOf(*channel));
    return rec == nullptr ? std::make_unique<OutDataUnit>() : std::move(rec);
  }
};

TEST_F(TracedRecordTest, TheTextIsModuleTagAndMessageBetweenSpaces) {
  EXPECT_STREQ(Made("Sched", 3, "message")->m_pText, " Sched I: message");
  EXPECT_STREQ(Made("Sched", 3, "")->m_pText, " Sched I: ");
  EXPECT_STREQ(Made("", 3, "message")->m_pText, "  I: message");
}

TEST_F(TracedRecordTest, FourLevelsHaveATag) {
  EXPECT_STREQ(Made("m", 0, "x")->m_pText, " m A: x");
  EXPECT_STREQ(Made("m", 1, "x")->m_pText, " m E: x");
  EXPECT_STREQ(Made("m", 2, "x")->m_pText, " m W: x");
  EXPECT_STREQ(Made("m", 3, "x")->m_pText, " m I: x");
  for (int const level : {4, 7, 31, 32, 33, -1, INT_MAX, INT_MIN}) {
    EXPECT_STREQ(Made("m", level, "x")->m_pText, " m x") << level;
  }
}

TEST_F(TracedRecordTest, ALevelIsKeptBelowFourAndAtThirtyTwo) {
  std::pair<int, int> const kept[] = {
      {INT_MIN, INT_MIN}, {-5, -5}, {-1, -1},    {0, 0}, {1, 1}, {2, 2}, {3, 3}, {4, 3}, {7, 3}, {31, 3},
      {32, 32},           {33, 3},  {INT_MAX, 3}};

  for (auto const& [level, stored] : kept) EXPECT_EQ(Made("m", level, "x")->m_nLevel, stored) << level;
}

TEST_F(TracedRecordTest, AModuleOfOneSpaceIsFiledAsDefault) {
  auto const rec = Made(" ", 3, "x");

  EXPECT_EQ(rec->m_strModule, "default");
  EXPECT_STREQ(rec->m_pText, "   I: x");
}

TEST_F(TracedRecordTest, EveryOtherModuleIsFiledAsItIs) {
  EXPECT_EQ(Made("", 3, "x")->m_strModule, "");
  EXPECT_EQ(Made("  ", 3, "x")->m_strModule, "  ");
  EXPECT_EQ(Made("\t", 3, "x")->m_strModule, "\t");
  EXPECT_EQ(Made("debug", 3, "x")->m_strModule, "debug");
  EXPECT_STREQ(Made("  ", 3, "x")->m_pText, "    I: x");
}

TEST_F(TracedRecordTest, AModuleOfTenThousandCharactersStaysWhole) {
  std::string const module(10'000, 'm');

  auto const rec = Made(module, 1, "x");

  EXPECT_EQ(rec->m_strModule, module);
  EXPECT_EQ(rec->m_pText, " " + module + " E: x");
}

TEST_F(TracedRecordTest, AMessageIsCutAt2048Characters) {
  for (std::size_t const size : {1U, 2047U, 2048U, 2049U, 5000U, 10'000'000U}) {
    std::string const message(size, 'x');

    auto const rec = Made("m", 3, message);

    EXPECT_EQ(rec->m_pText, " m I: " + std::string(size < 2048 ? size : 2048, 'x')) << size;
  }
}

TEST_F(TracedRecordTest, TheCutTakesTheNewlineWithIt) {
  auto const rec = Made("m", 3, std::string(2048, 'x') + "\n");

  EXPECT_EQ(rec->m_pText, " m I: " + std::string(2048, 'x'));
}

TEST_F(TracedRecordTest, AMessageIsNeverReadAsAFormat) {
  EXPECT_STREQ(Made("%s", 3, "100%s %n %d")->m_pText, " %s I: 100%s %n %d");
}

TEST_F(TracedRecordTest, TheTimeStampIsTheLocalTimeWithMicroseconds) {
  std::string const before = LocalSecond();
  auto const rec = Made("m", 3, "x");
  std::string const after = LocalSecond();

  ASSERT_NE(rec->m_pTimeStamp, nullptr);
  std::string const stamp = rec->m_pTimeStamp;
  EXPECT_THAT(stamp, MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6}"));
  EXPECT_LE(before, stamp.substr(0, 19));
  EXPECT_LE(stamp.substr(0, 19), after);
}

TEST_F(TracedRecordTest, TheThreadIdIsTheTracingThreadsOwn) {
  std::int64_t other_id = 0;
  std::int64_t other_made = 0;
  std::thread([&] {
    other_id = gettid();
    other_made = Made("m", 3, "x")->m_nThreadId;
  }).join();

  EXPECT_EQ(Made("m", 3, "x")->m_nThreadId, gettid());
  EXPECT_EQ(other_made, other_id);
}

TEST_F(TracedRecordTest, TheValueIsACopyThatTheRecordOwns) {
  AsnText const value("value");

  auto rec = Made("m", 3, "x", &value);

  ASSERT_NE(rec->m_pAsn, nullptr);
  EXPECT_NE(rec->m_pAsn, &value);
  EXPECT_EQ(AsnText::Live(), 2);
  rec.reset();
  EXPECT_EQ(AsnText::Live(), 1);
}

TEST_F(TracedRecordTest, WithoutAValueThereIsNone) { EXPECT_EQ(Made("m", 3, "x")->m_pAsn, nullptr); }

TEST_F(TracedRecordTest, ANullCopyIsNoValue) {
  AsnOfNullCopy const value;

  auto const rec = Made("m", 3, "x", &value);

  EXPECT_STREQ(rec->m_pText, " m I: x");
  EXPECT_EQ(rec->m_pAsn, nullptr);
}

TEST_F(TracedRecordTest, ACopyThatThrowsReachesTheCallerAndQueuesNothing) {
  AsnWithoutCopy const value;

  EXPECT_THROW(channel->Trace("m", Level(3), "x", &value, false, false), std::runtime_error);
  EXPECT_THROW(channel->Trace("m", Level(3), "x", &value, false, true), std::runtime_error);

  EXPECT_TRUE(RingOf(*channel).is_empty());
  EXPECT_EQ(CountOf(LogAfterStop(), " m I: x"), 0U);
}

TEST_F(TracedRecordTest, AFilteredRecordHasNeitherFlag) {
  auto const rec = Made("m", 3, "x");

  EXPECT_FALSE(rec->m_bPrint);
  EXPECT_FALSE(rec->m_bLog);
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
  for (int t = 0; t < kThreads; ++t) threads.emplace_back([this, t] { TraceNumbers(t, kRecords); });
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

using TraceInnerTest = TraceTest;

TEST_F(TraceInnerTest, AQueuedRecordIsLeftToTheQueue) {
  channel = MakeIdleChannel(setup);
  OutDataUnit* const made = NewRecord(" x");
  OutDataUnit* rec = made;

  bool const traced = channel->TraceInner(rec);

  EXPECT_TRUE(traced);
  EXPECT_EQ(rec, made);
  EXPECT_EQ(TakeFrom(OutputQueueOf(*channel)).get(), made);
}

TEST_F(TraceInnerTest, EitherFlagLeadsToTheOutputQueue) {
  setup.ring = 3;
  channel = MakeIdleChannel(setup);
  OutDataUnit* printed = NewRecord(" x", 3, false, true);
  OutDataUnit* logged = NewRecord(" x", 3, true, false);

  EXPECT_TRUE(channel->TraceInner(printed));
  EXPECT_TRUE(channel->TraceInner(logged));

  EXPECT_EQ(OutputQueueOf(*channel).message_count(), 2U);
  EXPECT_TRUE(RingOf(*channel).is_empty());
}

TEST_F(TraceInnerTest, TheChannelsOwnFlagsDoNotChangeAFinishedRecord) {
  setup.ring = 3;
  setup.log = true;
  setup.print = true;
  channel = MakeIdleChannel(setup);
  OutDataUnit* rec = NewRecord(" x", 3, false, false);

  EXPECT_TRUE(channel->TraceInner(rec));

  EXPECT_EQ(RingOf(*channel).message_count(), 1U);
}

TEST_F(TraceInnerTest, ANullRecordIsRefused) {
  channel = MakeIdleChannel(setup);
  OutDataUnit* rec = nullptr;

  EXPECT_FALSE(channel->TraceInner(rec));
  EXPECT_EQ(rec, nullptr);
}

TEST_F(TraceInnerTest, WithoutARingAFilteredRecordIsDeletedWithSuccess) {
  channel = MakeIdleChannel(setup);
  OutDataUnit* rec = NewRecord(" x", 3, false, false);
  rec->m_pAsn = new AsnText("value");

  EXPECT_TRUE(channel->TraceInner(rec));
  EXPECT_EQ(rec, nullptr);
  EXPECT_EQ(AsnText::Live(), 0);
}

TEST_F(TraceInnerTest, ARecordKeptInTheRingIsLeftUntouched) {
  setup.ring = 1;
  channel = MakeIdleChannel(setup);
  OutDataUnit* const made = NewRecord(" x", 3, false, false);
  OutDataUnit* rec = made;

  EXPECT_TRUE(channel->TraceInner(rec));
  EXPECT_EQ(rec, made);
}

TEST_F(TraceInnerTest, ARecordPushedOutOfTheRingIsDeleted) {
  setup.ring = 1;
  channel = MakeIdleChannel(setup);
  OutDataUnit* older = NewRecord(" older", 3, false, false);
  older->m_pAsn = new AsnText("value");
  OutDataUnit* newer = NewRecord(" newer", 3, false, false);
  channel->TraceInner(older);

  EXPECT_TRUE(channel->TraceInner(newer));

  EXPECT_EQ(AsnText::Live(), 0);
  EXPECT_EQ(RingOf(*channel).message_count(), 1U);
}

TEST_F(TraceInnerTest, ADeactivatedQueueRefusesAtOnceAndTheRecordIsDeleted) {
  setup.ring = 3;
  channel = MakeIdleChannel(setup);
  OutputQueueOf(*channel).deactivate();
  RingOf(*channel).deactivate();
  OutDataUnit* logged = NewRecord(" x");
  logged->m_pAsn = new AsnText("value");
  OutDataUnit* filtered = NewRecord(" x", 3, false, false);
  filtered->m_pAsn = new AsnText("value");

  EXPECT_FALSE(channel->TraceInner(logged));
  EXPECT_FALSE(channel->TraceInner(filtered));

  EXPECT_EQ(logged, nullptr);
  EXPECT_EQ(filtered, nullptr);
  EXPECT_EQ(AsnText::Live(), 0);
}

TEST_F(TraceInnerTest, AFullQueueRefusesAndDeletesTheRecord) {
  channel = MakeIdleChannel(setup);
  OutputQueueOf(*channel).high_water_mark(sizeof(OutDataUnit));
  OutputQueueOf(*channel).low_water_mark(sizeof(OutDataUnit));
  OutDataUnit* first = NewRecord(" first");
  OutDataUnit* second = NewRecord(" second");
  second->m_pAsn = new AsnText("value");

  EXPECT_TRUE(channel->TraceInner(first));
  EXPECT_FALSE(channel->TraceInner(second));

  EXPECT_EQ(second, nullptr);
  EXPECT_EQ(AsnText::Live(), 0);
}

TEST_F(TraceInnerTest, ARecordThatAHostBuiltIsWritten) {
  channel = MakeChannel(setup);
  OutDataUnit* rec = NewRecord(" built by the host");

  EXPECT_TRUE(channel->TraceInner(rec));

  EXPECT_EQ(CountOf(LogAfterStop(), "11-15 08:52:13.123456.T4711 built by the host\n"), 1U);
}

class FmtTraceTest : public TraceTest {
 protected:
  FmtTraceTest() { channel = MakeChannel(setup); }

  CaptureStdout out;  // what is formatted is printed as well
};

TEST_F(FmtTraceTest, AMessageIsLoggedAndPrintedAtLevelThreeWithoutAModule) {
  channel->FmtTrace("%s %d%%", "value", 42);

  EXPECT_EQ(CountOf(LogAfterStop(), "   I: value 42%\n"), 1U);
  EXPECT_THAT(out.Text(), EndsWith("   I: value 42%\n"));
}

TEST_F(FmtTraceTest, AMessageIsCutAt2046Characters) {
  for (std::size_t const size : {2045U, 2046U, 2047U, 5000U}) {
    channel->FmtTrace("%s", std::string(size, 'x').c_str());
  }

  std::string const log = LogAfterStop();
  EXPECT_EQ(CountOf(log, "   I: " + std::string(2045, 'x') + "\n"), 1U);
  EXPECT_EQ(CountOf(log, "   I: " + std::string(2046, 'x') + "\n"), 3U);
}

TEST_F(FmtTraceTest, AnEmptyMessageTracesNothing) {
  channel->FmtTrace("%s", "");

  EXPECT_EQ(CountOf(LogAfterStop(), "I: "), 0U);
  EXPECT_EQ(out.Text(), "");
}

TEST_F(FmtTraceTest, AFormatThatCannotBeExpandedTracesNothing) {
  channel->FmtTrace("some text %ls", L"\u00e9");  // no such character in the C locale

  EXPECT_EQ(CountOf(LogAfterStop(), "I: "), 0U);
  EXPECT_EQ(out.Text(), "");
}

TEST_F(FmtTraceTest, ANullFormatTracesNothing) {
  void (VeltDebugInfo::*const fmt_trace)(char const*, ...) = &VeltDebugInfo::FmtTrace;

  (channel.get()->*fmt_trace)(nullptr);

  EXPECT_EQ(CountOf(LogAfterStop(), "I: "), 0U);
}

class AsnTraceTest : public TraceTest {
 protected:
  std::string Printed(AsnType const* value) {
    channel = MakeIdleChannel(setup);
    std::string text = "before ";
    channel->ASNTrace(value, text);
    return text;
  }
};

TEST_F(AsnTraceTest, ATextGetsTheTitleAndTheValueAtItsEnd) {
  AsnText const value("value");

  EXPECT_EQ(Printed(&value), "before ASN Trace:\nvalue");
}

TEST_F(AsnTraceTest, ATextGetsNothingForNull) { EXPECT_EQ(Printed(nullptr), "before "); }

TEST_F(AsnTraceTest, ATextGetsTheTitleOfAnEmptyValue) {
  AsnText const value("");

  EXPECT_EQ(Printed(&value), "before ASN Trace:\n");
}

TEST_F(AsnTraceTest, ATextGetsTheValueUpToItsFirstNul) {
  AsnText const value(std::string("be\0hind", 7));

  EXPECT_EQ(Printed(&value), "before ASN Trace:\nbe");
}

TEST_F(AsnTraceTest, ATextGetsEightMegabytesWhole) {
  AsnText const value(std::string(8'000'000, 'v'));

  EXPECT_TRUE(Printed(&value) == "before ASN Trace:\n" + std::string(8'000'000, 'v'));
}

TEST_F(AsnTraceTest, APrintThatThrowsReachesTheCallerAndLeavesTheText) {
  channel = MakeIdleChannel(setup);
  AsnThatBreaks const value;
  std::string text = "before ";

  EXPECT_THROW(channel->ASNTrace(&value, text), std::runtime_error);
  EXPECT_EQ(text, "before ");
}

TEST_F(AsnTraceTest, AValueIsTracedAtLevelThreeWithoutAModule) {
  channel = MakeChannel(setup);
  AsnText const value("value");

  channel->ASNTrace(&value, false, true);

  EXPECT_EQ(CountOf(LogAfterStop(), "   I: ASN Trace:\nvalue\n"), 1U);
}

TEST_F(AsnTraceTest, TheFlagsAreTheCallers) {
  setup.ring = 3;
  CaptureStdout out;
  channel = MakeChannel(setup);
  AsnText const value("value");

  channel->ASNTrace(&value, true, false);
  channel->ASNTrace(&value, false, false);

  EXPECT_EQ(RingOf(*channel).message_count(), 1U);
  EXPECT_EQ(CountOf(LogAfterStop(), "ASN Trace"), 0U);
  EXPECT_THAT(out.Text(), HasSubstr("   I: ASN Trace:\nvalue\n"));
}

TEST_F(AsnTraceTest, NullTracesNothing) {
  channel = MakeChannel(setup);

  channel->ASNTrace(nullptr, false, true);

  EXPECT_EQ(CountOf(LogAfterStop(), "I: "), 0U);
}

TEST_F(AsnTraceTest, ATracedValueIsCutLikeEveryMessage) {
  channel = MakeChannel(setup);
  AsnText const value(std::string(8'000'000, 'v'));

  channel->ASNTrace(&value, false, true);

  EXPECT_EQ(CountOf(LogAfterStop(), "   I: ASN Trace:\n" + std::string(2048 - 11, 'v') + "\n"), 1U);
}

TEST_F(AsnTraceTest, APrintThatThrowsTracesNothing) {
  channel = MakeChannel(setup);
  AsnThatBreaks const value;

  EXPECT_THROW(channel->ASNTrace(&value, false, true), std::runtime_error);

  EXPECT_EQ(CountOf(LogAfterStop(), "half"), 0U);
}

}  // namespace
}  // namespace velt::test
