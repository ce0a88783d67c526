// What a channel counts: every record once, as what became of it.
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "velt/channel.h"

#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/output.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

constexpr unsigned kLong = 60'000;

class CountsTest : public ::testing::Test {
 protected:
  void Start() { channel_ = MakeChannel(setup_); }
  bool Trace(bool print, bool log, AsnType const* value = nullptr) const {
    return channel_->Trace("m", VeltLogLevel{3}, "record", value, print, log);
  }
  bool Logged() const { return Trace(false, true); }
  bool Filtered() const { return Trace(false, false); }

  // The counts while nothing is traced or written; the sum must then hold.
  VeltTraceCounts Quiet() const {
    EXPECT_TRUE(channel_->Flush(kLong));
    return Sum();
  }
  VeltTraceCounts Sum() const {
    VeltTraceCounts const now = channel_->Counts();
    EXPECT_EQ(now.accepted, now.written + now.printedOnly + now.lost + now.queued);
    return now;
  }
  // The queue takes `records`; the output thread waits at the gate with one more in hand.
  void StallWithRoomFor(unsigned records) {
    OutputQueueOf(*channel_).high_water_mark(records * sizeof(OutDataUnit));
    OutputQueueOf(*channel_).low_water_mark(records * sizeof(OutDataUnit));
    StallAt(gate_, *channel_);
  }

  ScratchDir const dir_;
  ChannelSetup setup_{dir_ / "logs"};
  Gate gate_;  // outlives the channel, whose thread may still be in it
  std::unique_ptr<VeltDebugInfo> channel_;
};

TEST_F(CountsTest, ANewChannelHasOpenedOneFileAndCountedNoRecord) {
  Start();
  ASSERT_TRUE(WaitUntil([this] { return channel_->Counts().filesOpened == 1; }));

  VeltTraceCounts const now = Quiet();

  EXPECT_EQ(now.accepted, 0U);
  EXPECT_EQ(now.refused, 0U);
  EXPECT_EQ(now.lost, 0U);
  EXPECT_EQ(now.inRing, 0U);
  EXPECT_EQ(now.displaced, 0U);
}

TEST_F(CountsTest, LoggedRecordsAreWritten) {
  Start();
  for (int i = 0; i < 7; ++i) ASSERT_TRUE(Logged());

  VeltTraceCounts const now = Quiet();

  EXPECT_EQ(now.accepted, 7U);
  EXPECT_EQ(now.written, 7U);
  EXPECT_EQ(now.printedOnly, 0U);
}

TEST_F(CountsTest, PrintedRecordsCountOnceAsWrittenWhenTheyAreLoggedToo) {
  CaptureStdout const output;
  Start();
  ASSERT_TRUE(Trace(true, false));
  ASSERT_TRUE(Trace(true, false));
  ASSERT_TRUE(Trace(true, true));

  VeltTraceCounts const now = Quiet();

  EXPECT_EQ(now.accepted, 3U);
  EXPECT_EQ(now.printedOnly, 2U);
  EXPECT_EQ(now.written, 1U);
}

TEST_F(CountsTest, WhetherStandardOutputTakesAPrintedRecordIsNotLookedAt) {
  int const standard_output = dup(1);
  close(1);
  Start();
  bool const accepted = Trace(true, false);

  VeltTraceCounts const now = Quiet();
  dup2(standard_output, 1);
  close(standard_output);

  EXPECT_TRUE(accepted);
  EXPECT_EQ(now.accepted, 1U);
  EXPECT_EQ(now.printedOnly, 1U);
  EXPECT_EQ(now.lost, 0U);
}

TEST_F(CountsTest, EveryCallThatIsRefusedCounts) {
  Start();
  EXPECT_FALSE(channel_->Trace("m", VeltLogLevel{3}, nullptr, nullptr, false, true));
  OutDataUnit* none = nullptr;
  EXPECT_FALSE(channel_->TraceInner(none));
  channel_->FmtTrace(nullptr);

  VeltTraceCounts const now = Quiet();

  EXPECT_EQ(now.refused, 3U);
  EXPECT_EQ(now.accepted, 0U);
}

// Cannot be copied into a record.
class AsnWithoutClone : public AsnType {
 public:
  AsnType* Clone() const override { throw std::runtime_error("no copy"); }
  void Print(std::ostream& /*out*/, int, int) const override {}
};

TEST_F(CountsTest, AValueWhoseCopyThrowsCountsAsRefused) {
  Start();
  AsnWithoutClone const value;
  EXPECT_THROW(Trace(false, true, &value), std::runtime_error);

  EXPECT_EQ(Quiet().refused, 1U);
}

TEST_F(CountsTest, AValueWhosePrintThrowsCountsAsWritten) {
  Start();
  AsnThatBreaks const value("head of it");
  ASSERT_TRUE(Trace(false, true, &value));

  VeltTraceCounts const now = Quiet();

  EXPECT_EQ(now.written, 1U);
  EXPECT_EQ(now.lost, 0U);
}

TEST_F(CountsTest, AValueWhosePrintThrowsOnTheCallersThreadCountsAsRefused) {
  Start();
  AsnThatBreaks const value("head of it");

  EXPECT_ANY_THROW(channel_->ASNTrace(&value, false, true));

  EXPECT_EQ(Quiet().refused, 1U);
  EXPECT_EQ(Quiet().accepted, 0U);
}

TEST_F(CountsTest, AChannelWithoutAThreadRefusesAll) {
  channel_ = MakeIdleChannel(setup_);
  EXPECT_FALSE(Logged());
  EXPECT_FALSE(Filtered());

  EXPECT_EQ(Sum().refused, 2U);
}

TEST_F(CountsTest, AFullQueueRefusesAndTheSumHoldsWhileItIsStalled) {
  Start();
  channel_->SetQueueWait(0);
  StallWithRoomFor(3);
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(Logged());
  EXPECT_FALSE(Logged());
  EXPECT_FALSE(Logged());

  VeltTraceCounts const stalled = Sum();
  EXPECT_EQ(stalled.accepted, 4U);
  EXPECT_EQ(stalled.queued, 4U) << "the record at the gate is not dealt with yet";
  EXPECT_EQ(stalled.refused, 2U);

  gate_.Open();
  VeltTraceCounts const now = Quiet();
  EXPECT_EQ(now.written, 4U);
  EXPECT_EQ(now.queued, 0U);
  EXPECT_EQ(now.refused, 2U);
}

TEST_F(CountsTest, AForkedChildsCallsCountInTheChildOnly) {
  Start();
  ASSERT_TRUE(Logged());
  Quiet();

  EXPECT_EQ(InFork([this] {
              if (Logged() || Filtered()) return 1;
              return channel_->Counts().refused == 2 ? 0 : 2;
            }),
            0);

  EXPECT_EQ(Quiet().refused, 0U);
}

TEST_F(CountsTest, AFilteredStopMarkerOfTheHostChangesNoCount) {
  Start();
  auto* marker = new OutDataUnit;  // neither printed nor logged: it never reaches the output thread
  ASSERT_TRUE(channel_->TraceInner(marker));
  ASSERT_TRUE(Logged());

  VeltTraceCounts const now = Quiet();

  EXPECT_EQ(now.accepted, 1U);
  EXPECT_EQ(now.written, 1U);
  EXPECT_EQ(now.queued, 0U);
}

TEST_F(CountsTest, AFilteredStopMarkerOfTheHostIsARecordOfTheRing) {
  setup_.ring = 5;
  Start();
  auto* marker = new OutDataUnit;
  ASSERT_TRUE(channel_->TraceInner(marker));

  VeltTraceCounts const now = Quiet();

  EXPECT_EQ(now.accepted, 0U);
  EXPECT_EQ(now.queued, 0U);
  EXPECT_EQ(now.inRing, 1U);
}

TEST_F(CountsTest, AStopMarkerOfTheHostIsNoRecord) {
  Start();
  ASSERT_TRUE(Logged());
  OutDataUnit* marker = NewStopMarker();
  ASSERT_TRUE(channel_->TraceInner(marker));
  ASSERT_TRUE(WaitUntil([this] { return ThreadHasEnded(*channel_); }));

  VeltTraceCounts const now = Sum();

  EXPECT_EQ(now.accepted, 1U);
  EXPECT_EQ(now.written, 1U);
  EXPECT_EQ(now.queued, 0U);
}

TEST_F(CountsTest, ARecordWithoutTextOrStampIsLost) {
  Start();
  OutDataUnit* rec = WithoutStamp(NewRecord("without a stamp"));
  ASSERT_TRUE(channel_->TraceInner(rec));

  VeltTraceCounts const now = Quiet();

  EXPECT_EQ(now.accepted, 1U);
  EXPECT_EQ(now.lost, 1U);
}

TEST_F(CountsTest, WhatADeviceRefusesIsLostAndWhatItTakesAgainIsWritten) {
  Start();
  ASSERT_TRUE(Logged());
  Quiet();
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  rlimit const none{1, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(Logged());
  VeltTraceCounts const full = Quiet();
  setrlimit(RLIMIT_FSIZE, &before);
  ASSERT_TRUE(Logged());

  VeltTraceCounts const now = Quiet();

  EXPECT_EQ(full.lost, 5U);
  EXPECT_EQ(now.lost, 5U);
  EXPECT_EQ(now.written, 2U);
  EXPECT_EQ(CountOf(ReadFamily(setup_.directory, "t_"), " m I: record\n"), 2U);
}

TEST_F(CountsTest, RecordsWaitAsQueuedWhileNoFileCanBeOpened) {
  setup_.directory = dir_ / "missing/logs";
  Start();
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(Logged());

  EXPECT_EQ(Sum().queued, 5U);
  EXPECT_FALSE(channel_->Flush(50));
  EXPECT_EQ(Sum().lost, 0U);

  std::filesystem::create_directory(dir_ / "missing");
  EXPECT_EQ(Quiet().written, 5U);
}

TEST_F(CountsTest, FilteredRecordsStayInTheRingUntilNewerOnesDisplaceThem) {
  setup_.ring = 3;
  Start();
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(Filtered());

  VeltTraceCounts const now = Quiet();

  EXPECT_EQ(now.accepted, 0U);
  EXPECT_EQ(now.inRing, 3U);
  EXPECT_EQ(now.displaced, 2U);
}

TEST_F(CountsTest, WithoutARingFilteredRecordsCountNowhere) {
  Start();
  ASSERT_TRUE(Filtered());

  VeltTraceCounts const now = Quiet();

  EXPECT_EQ(now.accepted + now.refused + now.inRing + now.displaced, 0U);
}

TEST_F(CountsTest, ARingThatAnAlarmBringsOutIsAcceptedAndWritten) {
  CaptureStdout const output;
  setup_.ring = 3;
  Start();
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(Filtered());
  ASSERT_TRUE(channel_->Trace("m", VeltLogLevel{0}, "alarm", nullptr, false, true));

  VeltTraceCounts const now = Quiet();

  EXPECT_EQ(now.accepted, 4U);
  EXPECT_EQ(now.written, 4U);
  EXPECT_EQ(now.inRing, 0U);
  EXPECT_EQ(now.displaced, 2U);
}

TEST_F(CountsTest, ARingThatIsDeletedIsDisplaced) {
  setup_.ring = 10;
  Start();
  for (int i = 0; i < 4; ++i) ASSERT_TRUE(Filtered());
  channel_->DequeueMsg();

  VeltTraceCounts const now = Quiet();

  EXPECT_EQ(now.inRing, 0U);
  EXPECT_EQ(now.displaced, 4U);
}

TEST_F(CountsTest, FilesArchivesAndBytesAreThoseInTheDirectory) {
  setup_.max_bytes = 0;  // every record ends its file
  setup_.keep = 2;
  Start();
  for (int i = 0; i < 6; ++i) ASSERT_TRUE(Logged());
  Quiet();
  ASSERT_TRUE(WaitUntil([this] { return channel_->Counts().filesOpened == 7; }));

  VeltTraceCounts const now = Sum();

  EXPECT_EQ(now.archivesMade, 6U);
  EXPECT_EQ(now.archivesFailed, 0U);
  EXPECT_EQ(now.archivesRemoved, 4U);
  EXPECT_EQ(FilesOf(setup_.directory, "t_", ".gz").size(), 2U);
}

TEST_F(CountsTest, BytesAreThoseOfTheFilesHeadIncluded) {
  Start();
  for (int i = 0; i < 50; ++i) ASSERT_TRUE(Logged());
  VeltTraceCounts const now = Quiet();

  EXPECT_EQ(now.bytesWritten, ReadFamily(setup_.directory, "t_").size());
}

TEST_F(CountsTest, AnArchiveThatCannotBeMadeCounts) {
  setup_.max_bytes = 0;
  Start();
  ASSERT_TRUE(WaitUntil([this] { return channel_->Counts().filesOpened == 1; }));
  std::string const log = FilesOf(setup_.directory, "t_", ".log").front();
  std::filesystem::create_directory(setup_.directory + "/" + log + ".gz");
  ASSERT_TRUE(Logged());

  ASSERT_TRUE(WaitUntil([this] { return channel_->Counts().filesOpened == 2; }));

  EXPECT_EQ(Sum().archivesFailed, 1U);
  EXPECT_EQ(Sum().archivesMade, 0U);
}

// --- the queue's wait ---

class QueueWaitTest : public CountsTest {
 protected:
  long long RefusalTakesMs() const {
    auto const begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(Logged());
    auto const took = std::chrono::steady_clock::now() - begin;
    return std::chrono::duration_cast<std::chrono::milliseconds>(took).count();
  }
  void Fill() {
    StallWithRoomFor(2);
    ASSERT_TRUE(Logged());
    ASSERT_TRUE(Logged());
  }
};

TEST_F(QueueWaitTest, IsOneSecondUnlessSet) {
  Start();
  Fill();
  long long const took = RefusalTakesMs();
  gate_.Open();
  EXPECT_GE(took, 980);
  EXPECT_LT(took, 4'000);
}

TEST_F(QueueWaitTest, OfZeroRefusesAtOnce) {
  Start();
  Fill();
  channel_->SetQueueWait(0);
  long long const took = RefusalTakesMs();
  gate_.Open();
  EXPECT_LT(took, 500);
}

TEST_F(QueueWaitTest, OfFiftyMillisecondsIsWaited) {
  Start();
  Fill();
  channel_->SetQueueWait(50);
  long long const took = RefusalTakesMs();
  gate_.Open();
  EXPECT_GE(took, 45);
  EXPECT_LT(took, 800);
}

TEST_F(QueueWaitTest, ACallGetsRoomThatIsMadeWhileItWaits) {
  Start();
  Fill();
  channel_->SetQueueWait(60'000);
  std::thread opener([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    gate_.Open();
  });
  EXPECT_TRUE(Logged());
  opener.join();
  EXPECT_EQ(Quiet().refused, 0U);
}

TEST_F(QueueWaitTest, ThatIsShortenedEndsACallThatWaitsAlready) {
  Start();
  Fill();
  channel_->SetQueueWait(4'000'000'000);
  std::atomic<bool> ended{false};
  std::thread caller([&] {
    EXPECT_FALSE(Logged());
    ended = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // usually it waits then; else it is refused

  channel_->SetQueueWait(0);

  EXPECT_TRUE(WaitUntil([&] { return ended.load(); }, std::chrono::seconds(20)));
  if (!ended) gate_.Open();
  caller.join();
  gate_.Open();
}

}  // namespace
}  // namespace velt::test
