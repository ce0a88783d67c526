// The end of a channel: the lines that it leaves, what it still writes, and that it always comes to an end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "velt/channel.h"

#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace fs = std::filesystem;

namespace velt::test {
namespace {

using ::testing::MatchesRegex;
using ::testing::StartsWith;

constexpr char const* kMarkerOrNot = "[01]";
constexpr char const* kStampPattern = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6}";

class ShutdownTest : public ::testing::Test {
 protected:
  void Trace(std::string const& text) const {
    EXPECT_TRUE(channel->Trace("m", VeltLogLevel{3}, text.c_str(), nullptr, false, true));
  }
  void Hand(OutDataUnit* rec) const { EXPECT_TRUE(channel->TraceInner(rec)); }
  // Makes the output queue count as full with so many records.
  void LimitQueue(std::size_t records) const {
    OutputQueueOf(*channel).high_water_mark(records * sizeof(OutDataUnit));
    OutputQueueOf(*channel).low_water_mark(records * sizeof(OutDataUnit));
  }
  void WaitForFile() const {
    EXPECT_TRUE(WaitUntil(
        [this] { return CountOf(ReadFamily(dir.Path(), "t_"), "Thread handle output string is") == 1; }));
  }
  // Stops the output thread before its time.
  void EndThread() const {
    WaitForFile();
    Hand(NewStopMarker());
    EXPECT_TRUE(WaitUntil([this] { return ThreadHasEnded(*channel); }));
  }
  std::string LogAfterStop() {
    channel.reset();
    return ReadFamily(dir.Path(), "t_");
  }
  // Expects the lines that an orderly stop writes at the end of `log`. The thread may find the queue empty
  // and end before the stop marker is queued. The marker then counts as left in the queue: kMarkerOrNot.
  static void ExpectStopLines(std::string const& log, int in_ring, std::string const& in_queue) {
    auto const lines = Lines(log);
    ASSERT_GE(lines.size(), 5U) << log;
    std::string const stamp = kStampPattern;
    auto const at = [&lines](std::size_t from_end) { return lines[lines.size() - from_end]; };
    EXPECT_EQ(at(5), "thread handle output string exit");
    EXPECT_THAT(at(4),
                MatchesRegex(stamp + " about to clear m_DiscardQueue\\(" + std::to_string(in_ring) + "\\)"));
    EXPECT_THAT(at(3), MatchesRegex(stamp + " about to clear m_OutputQueue\\(" + in_queue + "\\)"));
    EXPECT_THAT(at(2), MatchesRegex(stamp + " after m_OutputQueue cleared"));
    EXPECT_THAT(at(1), StartsWith("File close at "));
    EXPECT_EQ(log.back(), '\n');
  }

  ScratchDir const dir;
  ChannelSetup setup{dir.Path()};
  std::unique_ptr<VeltDebugInfo> channel;
};

TEST_F(ShutdownTest, AnOrderlyStopLeavesItsLines) {
  channel = MakeChannel(setup);
  WaitForFile();
  EXPECT_TRUE(WaitUntil([] { return StateOf(ThreadsNamed("velt:t_").front()) == 'S'; }))
      << "waits for a record";

  std::string const log = LogAfterStop();

  ExpectStopLines(log, 0, "0");
  EXPECT_EQ(CountOf(log, "File close at "), 1U);
}

TEST_F(ShutdownTest, WhatWasAcceptedIsWritten) {
  channel = MakeChannel(setup);
  for (int i = 0; i < 5000; ++i) Trace("record " + std::to_string(i));

  std::string const log = LogAfterStop();

  ExpectStopLines(log, 0, kMarkerOrNot);
  std::size_t at = 0;
  for (int i = 0; i < 5000; ++i) {
    at = log.find(" m I: record " + std::to_string(i) + "\n", at);
    ASSERT_NE(at, std::string::npos) << "record " << i << " is the first that is missing";
  }
}

TEST_F(ShutdownTest, TheRingIsCountedAndNotWritten) {
  setup.ring = 5;
  channel = MakeChannel(setup);
  {
    AsnText const value("value");
    for (int i = 0; i < 3; ++i) channel->Trace("m", VeltLogLevel{3}, "filtered", &value, false, false);
  }

  std::string const log = LogAfterStop();

  ExpectStopLines(log, 3, kMarkerOrNot);
  EXPECT_EQ(CountOf(log, "filtered"), 0U);
  EXPECT_EQ(AsnText::Live(), 0);
}

TEST_F(ShutdownTest, RecordsBehindAStopMarkerAreCountedAndNotWritten) {
  channel = MakeChannel(setup);
  EndThread();
  OutDataUnit* const with_value = NewRecord(" behind");
  with_value->m_pAsn = new AsnText("value");
  Hand(with_value);
  Hand(NewRecord(" behind"));

  std::string const log = LogAfterStop();

  ExpectStopLines(log, 0, "3");  // the marker that the destructor queues is the third
  EXPECT_EQ(CountOf(log, "behind"), 0U);
  EXPECT_EQ(AsnText::Live(), 0);
}

TEST_F(ShutdownTest, AStalledThreadIsWaitedFor) {
  channel = MakeChannel(setup);
  Gate gate;
  StallAt(gate, *channel);
  for (int i = 0; i < 100; ++i) Trace("waits");
  RecordQueue& queue = OutputQueueOf(*channel);
  std::thread opener([&gate, &queue] {
    EXPECT_TRUE(WaitUntil([&queue] { return queue.message_count() == 101; })) << "the stop marker";
    gate.Open();
  });

  std::string const log = LogAfterStop();
  opener.join();

  ExpectStopLines(log, 0, kMarkerOrNot);
  EXPECT_EQ(CountOf(log, " m I: waits\n"), 100U);
}

TEST_F(ShutdownTest, AFullQueueOfAStalledThreadIsWaitedFor) {
  channel = MakeChannel(setup);
  Gate gate;
  StallAt(gate, *channel);
  LimitQueue(100);
  for (int i = 0; i < 100; ++i) Trace("waits");
  std::thread opener([&gate, main = gettid()] {
    EXPECT_TRUE(WaitUntil([main] { return StateOf(main) == 'S'; }));
    gate.Open();
  });

  std::string const log = LogAfterStop();
  opener.join();

  ExpectStopLines(log, 0, kMarkerOrNot);
  EXPECT_EQ(CountOf(log, " m I: waits\n"), 100U);
}

TEST_F(ShutdownTest, AFullQueueWithoutAThreadIsDeleted) {
  channel = MakeChannel(setup);
  EndThread();
  LimitQueue(100);
  for (int i = 0; i < 100; ++i) Trace("behind");

  std::string const log = LogAfterStop();

  ExpectStopLines(log, 0, "100");
  EXPECT_EQ(CountOf(log, "behind"), 0U);
}

TEST_F(ShutdownTest, AChannelThatEndsAtOnceLeavesAWholeFile) {
  for (int round = 0; round < 5; ++round) {
    ScratchDir const own;
    MakeChannel(ChannelSetup(own.Path())).reset();

    std::string const log = ReadFamily(own.Path(), "t_");
    ExpectStopLines(log, 0, kMarkerOrNot);
    EXPECT_EQ(CountOf(log, "This is the first log file\n"), 1U);
  }
}

TEST_F(ShutdownTest, AChannelWithoutAFileEndsSilently) {
  setup.directory = dir / "missing/logs";
  setup.ring = 3;
  channel = MakeChannel(setup);
  {
    AsnText const value("value");
    channel->Trace("m", VeltLogLevel{3}, "never written", &value, false, true);
    channel->Trace("m", VeltLogLevel{3}, "never written", &value, false, false);
  }

  channel.reset();

  EXPECT_EQ(AsnText::Live(), 0);
  EXPECT_EQ(ListDir(dir.Path()), std::vector<std::string>{});
}

TEST_F(ShutdownTest, AChannelWithoutAFileEndsWithAFullQueueToo) {
  setup.directory = dir / "missing/logs";
  channel = MakeChannel(setup);
  LimitQueue(10);
  for (int i = 0; i < 10; ++i) Trace("never written");

  channel.reset();

  EXPECT_EQ(ListDir(dir.Path()), std::vector<std::string>{});
}

TEST_F(ShutdownTest, AChannelThatCannotOpenItsNextFileEnds) {
  setup.directory = dir / "logs";
  setup.max_bytes = 0;
  channel = MakeChannel(setup);
  EXPECT_TRUE(WaitUntil([this] { return CountOf(ReadFamily(dir / "logs", "t_"), "Thread handle") == 1; }));
  fs::rename(dir / "logs", dir / "away");
  WriteFile(dir / "logs", "in the way");
  Trace("ends its file");
  Trace("finds none");
  EXPECT_TRUE(WaitUntil([this] { return CountOf(ReadFamily(dir / "away", "t_"), "File close at ") == 1; }));

  channel.reset();

  EXPECT_EQ(ReadFile(dir / "logs"), "in the way");
  std::string const log = ReadFamily(dir / "away", "t_");
  EXPECT_EQ(CountOf(log, " m I: ends its file\n"), 1U);
  EXPECT_EQ(CountOf(log, "finds none"), 0U);
}

TEST_F(ShutdownTest, AChannelWithoutAThreadOnlyClosesItsFile) {
  channel = MakeIdleChannel(setup);
  ASSERT_TRUE(channel->OpenNewFile());
  std::string const name = ListDir(dir.Path()).front();

  std::string const log = LogAfterStop();

  EXPECT_THAT(log, StartsWith(HeadOf(name, setup) + "File close at "));
  EXPECT_EQ(Lines(log).size(), 3U);
}

TEST_F(ShutdownTest, AChannelWithoutAThreadDeletesWhatItWasHanded) {
  setup.ring = 3;
  channel = MakeIdleChannel(setup);
  for (bool const log : {true, false}) {
    OutDataUnit* const rec = NewRecord(" never written", 3, log);
    rec->m_pAsn = new AsnText("value");
    Hand(rec);
  }

  channel.reset();

  EXPECT_EQ(AsnText::Live(), 0);
  EXPECT_EQ(ListDir(dir.Path()), std::vector<std::string>{});
}

TEST_F(ShutdownTest, AForkedChildDestroysTheChannelWithoutTouchingTheParentsFile) {
  channel = MakeChannel(setup);
  Trace("before");
  EXPECT_TRUE(WaitUntil([this] { return CountOf(ReadFamily(dir.Path(), "t_"), " m I: before\n") == 1; }));
  std::string const before = ReadFamily(dir.Path(), "t_");

  int const code = InFork([this] {
    channel.reset();
    return 0;
  });

  EXPECT_EQ(code, 0);
  EXPECT_EQ(ReadFamily(dir.Path(), "t_"), before);
  Trace("after");
  std::string const log = LogAfterStop();
  EXPECT_EQ(CountOf(log, " m I: before\n"), 1U);
  EXPECT_EQ(CountOf(log, " m I: after\n"), 1U);
  ExpectStopLines(log, 0, kMarkerOrNot);
  EXPECT_EQ(CountOf(log, "File close at "), 1U);
}

TEST_F(ShutdownTest, AForkedChildDestroysAChannelWithRecordsInItsQueues) {
  setup.ring = 3;
  channel = MakeChannel(setup);
  Gate gate;
  StallAt(gate, *channel);
  for (int i = 0; i < 10; ++i) Trace("queued");
  channel->Trace("m", VeltLogLevel{3}, "filtered", nullptr, false, false);

  int const code = InFork([this] {
    channel.reset();
    return 0;
  });

  gate.Open();
  std::string const log = LogAfterStop();
  EXPECT_EQ(code, 0);
  EXPECT_EQ(CountOf(log, " m I: queued\n"), 10U);
  ExpectStopLines(log, 1, kMarkerOrNot);
}

TEST_F(ShutdownTest, AForkedChildThatExitsWritesNothingASecondTime) {
  channel = MakeChannel(setup);
  EndThread();  // its last line may be unflushed
  ChannelSetup other(dir.Path());
  other.prefix = "other_";
  auto const running = MakeChannel(other);

  int const code = InFork([this] {
    channel.reset();
    std::fflush(nullptr);
    return 0;
  });

  std::string const log = LogAfterStop();
  EXPECT_EQ(code, 0);
  EXPECT_EQ(CountOf(log, "thread handle output string exit\n"), 1U);
  EXPECT_EQ(CountOf(log, "File create at "), 1U);
}

TEST_F(ShutdownTest, AForkedChildCanHaveAChannelOfItsOwn) {
  // The parent has no thread yet, so the child may start one.
  channel = MakeIdleChannel(setup);

  int const code = InFork([this] {
    ChannelSetup own(dir.Path());
    own.prefix = "child_";
    auto const of_child = MakeChannel(own);
    bool const traced = of_child->Trace("m", VeltLogLevel{3}, "of the child", nullptr, false, true);
    bool const refused = !channel->Init();
    return traced && refused ? 0 : 1;
  });

  EXPECT_EQ(code, 0);
  EXPECT_EQ(CountOf(ReadFamily(dir.Path(), "child_"), " m I: of the child\n"), 1U);
  EXPECT_EQ(FilesOf(dir.Path(), "t_", ".log"), std::vector<std::string>{});
}

}  // namespace
}  // namespace velt::test
