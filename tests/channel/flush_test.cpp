// Flush of one channel: what it waits for, and when it gives up.
#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "velt/channel.h"
#include "velt/problem.h"

#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr unsigned kLong = 60'000;

class FlushTest : public ::testing::Test {
 protected:
  bool Trace(AsnType const* value = nullptr) const {
    return channel_->Trace("m", VeltLogLevel{3}, "record", value, false, true);
  }
  std::size_t InFiles() const { return CountOf(ReadFamily(dir_.Path(), "t_"), " m I: record\n"); }

  ScratchDir const dir_;
  Gate gate_;  // outlives the channel, whose thread may still be in it
  std::unique_ptr<VeltDebugInfo> channel_ = MakeChannel(ChannelSetup(dir_.Path()));
};

TEST_F(FlushTest, OfAChannelThatWasNeverUsedIsTrueAtOnce) { EXPECT_TRUE(channel_->Flush(0)); }

TEST_F(FlushTest, AfterItAllRecordsAreInTheFile) {
  for (int i = 0; i < 20'000; ++i) ASSERT_TRUE(Trace());

  EXPECT_TRUE(channel_->Flush(kLong));

  EXPECT_EQ(InFiles(), 20'000U);
}

TEST_F(FlushTest, ACallWithoutTimeSaysWhetherAllIsDone) {
  StallAt(gate_, *channel_);
  ASSERT_TRUE(Trace());
  EXPECT_FALSE(channel_->Flush(0));

  gate_.Open();
  ASSERT_TRUE(channel_->Flush(kLong));
  EXPECT_TRUE(channel_->Flush(0));
}

TEST_F(FlushTest, AStalledChannelIsGivenUpWhenTheTimeIsOver) {
  StallAt(gate_, *channel_);
  auto const begin = Clock::now();

  EXPECT_FALSE(channel_->Flush(200));

  EXPECT_GE(Clock::now() - begin, milliseconds(200));
  EXPECT_LT(Clock::now() - begin, milliseconds(5'000));
  gate_.Open();
}

TEST_F(FlushTest, ItEndsWhileOtherThreadsGoOnTracing) {
  std::atomic<bool> stop{false};
  std::thread other([&] {
    while (!stop) (void)Trace();
  });
  ASSERT_TRUE(WaitUntil([this] { return channel_->Counts().accepted > 1'000; }));

  bool const flushed = channel_->Flush(kLong);
  stop = true;
  other.join();

  EXPECT_TRUE(flushed);
}

TEST_F(FlushTest, ItWaitsForARecordThatWasStillInTheHandOfTheOutputThread) {
  StallAt(gate_, *channel_);  // the queue is empty, but the record is not dealt with yet
  std::atomic<bool> done{false};
  std::thread flusher([&] {
    EXPECT_TRUE(channel_->Flush(kLong));
    done = true;
  });
  std::this_thread::sleep_for(milliseconds(100));
  EXPECT_FALSE(done);

  gate_.Open();
  flusher.join();
}

TEST_F(FlushTest, RecordsKeptInTheRingAreNotWaitedFor) {
  ChannelSetup setup(dir_ / "ring");
  setup.ring = 10;
  auto const channel = MakeChannel(setup);
  ASSERT_TRUE(channel->Trace("m", VeltLogLevel{3}, "kept", nullptr, false, false));

  EXPECT_TRUE(channel->Flush(kLong));

  EXPECT_EQ(channel->Counts().inRing, 1U);
}

TEST_F(FlushTest, RecordsThatLeaveTheRingMeanwhileDoNotEndTheWaitEarly) {
  ChannelSetup setup(dir_ / "ring");
  setup.ring = 10;
  auto const channel = MakeChannel(setup);
  Gate in_ring;
  AsnAtGate const value(in_ring);
  ASSERT_TRUE(channel->Trace("m", VeltLogLevel{3}, "kept", nullptr, false, false));
  ASSERT_TRUE(channel->Trace("m", VeltLogLevel{3}, "kept", nullptr, false, false));
  ASSERT_TRUE(channel->Trace("m", VeltLogLevel{3}, "kept", &value, false, false));
  StallAt(gate_, *channel);
  ASSERT_TRUE(channel->Trace("m", VeltLogLevel{0}, "alert", nullptr, false, true));
  std::atomic<bool> done{false};
  std::thread flusher([&] {
    EXPECT_TRUE(channel->Flush(kLong));
    done = true;
  });
  std::this_thread::sleep_for(milliseconds(100));

  gate_.Open();
  in_ring.WaitForVisitor();  // three records are dealt with, but only one of the two that were queued
  std::this_thread::sleep_for(milliseconds(100));

  EXPECT_FALSE(done) << "the alert is not written yet";
  in_ring.Open();
  flusher.join();
  EXPECT_EQ(CountOf(ReadFamily(setup.directory, "t_"), " m A: alert\n"), 1U);
}

TEST_F(FlushTest, InAForkedChildItIsFalseAtOnce) {
  EXPECT_EQ(InFork([this] {
              auto const begin = Clock::now();
              if (channel_->Flush(kLong)) return 1;
              return Clock::now() - begin < std::chrono::seconds(10) ? 0 : 2;
            }),
            0);
}

// A value that flushes the channel which prints it.
class FlushingAsn : public AsnType {
 public:
  FlushingAsn(VeltDebugInfo& channel, std::atomic<int>& result) : channel_(channel), result_(result) {}
  AsnType* Clone() const override { return new FlushingAsn(channel_, result_); }
  void Print(std::ostream& /*out*/, int, int) const override { result_ = channel_.Flush(kLong) ? 1 : 0; }

 private:
  VeltDebugInfo& channel_;
  std::atomic<int>& result_;
};

TEST_F(FlushTest, OnTheOutputThreadItselfItIsFalseAtOnceWhileRecordsAreLeft) {
  std::atomic<int> result{-1};
  FlushingAsn const value(*channel_, result);
  auto const begin = Clock::now();
  ASSERT_TRUE(Trace(&value));

  ASSERT_TRUE(channel_->Flush(kLong));

  EXPECT_EQ(result, 0);
  EXPECT_LT(Clock::now() - begin, milliseconds(kLong / 2));
}

std::atomic<VeltDebugInfo*> unopened{nullptr};
std::atomic<int> flushed_unopened{-1};

// Flushes, on its output thread, the channel that has no file.
void FlushUnopened(VeltProblem const& problem) {
  if (problem.kind != VeltProblemKind::kCannotOpen) return;
  while (unopened == nullptr) std::this_thread::yield();
  flushed_unopened = unopened.load()->Flush(kLong) ? 1 : 0;
}

TEST_F(FlushTest, OnAnOutputThreadThatHasNoFileYetItIsFalseAtOnceToo) {
  (void)VeltSetProblemHandler(&FlushUnopened);
  auto const channel = MakeChannel(ChannelSetup("/proc/no such directory"));
  ASSERT_TRUE(channel->Trace("m", VeltLogLevel{3}, "waits for a file", nullptr, false, true));

  unopened = channel.get();

  EXPECT_TRUE(WaitUntil([] { return flushed_unopened != -1; }, milliseconds(kLong / 2)));
  EXPECT_EQ(flushed_unopened, 0);
  (void)VeltSetProblemHandler(nullptr);
}

TEST_F(FlushTest, RecordsThatADeviceRefusedAreDealtWith) {
  ChannelSetup setup("/proc/no such directory");
  auto const channel = MakeChannel(setup);
  ASSERT_TRUE(channel->Trace("m", VeltLogLevel{3}, "waits for a file", nullptr, false, true));

  EXPECT_FALSE(channel->Flush(100)) << "it waits in the queue, and is not lost yet";

  EXPECT_EQ(channel->Counts().queued, 1U);
}

}  // namespace
}  // namespace velt::test
