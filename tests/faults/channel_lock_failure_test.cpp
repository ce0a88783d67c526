// Locks of a channel and of its queues that fail: records are refused, none is lost that was accepted, and
// the thread and the destructor end.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <ace/Message_Block.h>
#include <ace/OS_NS_sys_time.h>

#include "velt/channel.h"

#include "tests/support/channel.h"
#include "tests/support/failing_locks.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

constexpr VeltLogLevel kLevel3{3};

ACE_Time_Value Soon() { return ACE_OS::gettimeofday() + ACE_Time_Value(60); }

class QueueLockFailureTest : public ::testing::Test {
 protected:
  ~QueueLockFailureTest() override {
    while (ACE_Message_Block* const block = queue_.TryDequeue()) block->release();
  }

  static ACE_Message_Block* NewBlock() { return new ACE_Message_Block(sizeof(OutDataUnit)); }

  bool Enqueue(ACE_Message_Block* block) { return queue_.EnqueueRecord(block); }

  RecordQueue queue_;
};

TEST_F(QueueLockFailureTest, NothingIsQueuedWithoutTheLock) {
  ACE_Message_Block* const block = NewBlock();
  ACE_Message_Block* evicted = block;

  EXPECT_EQ(With(Lock::kMutexLock, 1, [&] { return Enqueue(block); }), kRefused);
  EXPECT_EQ(With(Lock::kMutexLock, 1, [&] { return queue_.EnqueueEvicting(block, 10, evicted); }), kRefused);

  EXPECT_EQ(evicted, nullptr);
  EXPECT_EQ(queue_.message_count(), 0U);
  block->release();  // the caller still owns it
}

TEST_F(QueueLockFailureTest, NothingIsTakenWithoutTheLock) {
  ASSERT_TRUE(Enqueue(NewBlock()));
  ACE_Time_Value deadline = Soon();

  EXPECT_EQ(With(Lock::kMutexLock, 1, [&] { return queue_.TakeAll(&deadline) != nullptr; }), kRefused);
  EXPECT_EQ(With(Lock::kMutexLock, 1, [&] { return queue_.TryDequeue() != nullptr; }), kRefused);

  EXPECT_EQ(queue_.message_count(), 1U);
}

TEST_F(QueueLockFailureTest, WhatWasTakenIsSettledAndPutBackEvenWithoutTheLock) {
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(Enqueue(NewBlock()));
  ACE_Message_Block* const first = queue_.TakeAll(nullptr);
  ASSERT_NE(first, nullptr);
  ACE_Message_Block* const second = first->next();
  ACE_Message_Block* const third = second->next();
  {
    Failing const failing(Lock::kMutexLock);
    queue_.GiveBack(1);
    queue_.PutBack(third);
  }

  EXPECT_EQ(queue_.message_count(), 1U);
  EXPECT_EQ(queue_.TryDequeue(), third);
  for (ACE_Message_Block* const block : {first, second, third}) block->release();
}

class ChannelLockFailureTest : public ::testing::Test {
 protected:
  std::string Text() const {
    std::string text;
    for (auto const& name : ListDir(dir_.Path())) text += ReadFile(dir_ / name);
    return text;
  }

  ScratchDir const dir_;
};

TEST_F(ChannelLockFailureTest, ARecordIsRefusedWithoutTheQueuesLock) {
  ChannelSetup setup(dir_.Path());
  setup.ring = 10;
  auto channel = MakeChannel(setup);
  ASSERT_TRUE(channel->Trace("m", kLevel3, "before", nullptr, false, true));

  EXPECT_EQ(
      With(Lock::kMutexLock, 1, [&] { return channel->Trace("m", kLevel3, "no", nullptr, false, true); }),
      kRefused);
  EXPECT_EQ(
      With(Lock::kMutexLock, 1, [&] { return channel->Trace("m", kLevel3, "no", nullptr, false, false); }),
      kRefused);
  OutDataUnit* rec = NewRecord("no");
  EXPECT_EQ(With(Lock::kMutexLock, 1, [&] { return channel->TraceInner(rec); }), kRefused);
  EXPECT_EQ(rec, nullptr);
  EXPECT_TRUE(channel->Trace("m", VeltLogLevel{0}, "after", nullptr, false, true)) << "brings the ring out";

  channel.reset();
  std::string const text = Text();
  EXPECT_EQ(CountOf(text, " m I: before\n"), 1U);
  EXPECT_EQ(CountOf(text, " m A: after\n"), 1U);
  EXPECT_EQ(CountOf(text, "no\n"), 0U);
}

TEST_F(ChannelLockFailureTest, ACallerWaitsForRoomUntilOneSecondAfterItsCall) {
  using std::chrono::milliseconds;
  using std::chrono::steady_clock;
  auto channel = MakeIdleChannel(ChannelSetup(dir_.Path()));
  OutputQueueOf(*channel).high_water_mark(sizeof(OutDataUnit));
  OutputQueueOf(*channel).low_water_mark(sizeof(OutDataUnit));
  OutDataUnit* first = NewRecord("fills it");
  ASSERT_TRUE(channel->TraceInner(first));
  std::vector<TimedWait> waits;
  steady_clock::time_point before;
  {
    TimedWaitsEndAtOnce const record(waits);
    before = steady_clock::now();
    OutDataUnit* second = NewRecord("one too many");
    EXPECT_FALSE(channel->TraceInner(second));
  }

  ASSERT_EQ(waits.size(), 1U);
  auto const whole = waits[0].asked_at - before + waits[0].remaining;
  EXPECT_LE(waits[0].remaining, milliseconds(1000));
  EXPECT_GE(whole, milliseconds(990)) << "the two clocks may differ a little";
}

// Takes most of a second to be copied into a record.
class AsnSlowToClone : public AsnType {
 public:
  AsnType* Clone() const override {
    std::this_thread::sleep_for(std::chrono::milliseconds(900));
    return new AsnSlowToClone;
  }
  void Print(std::ostream& /*out*/, int, int) const override {}
};

TEST_F(ChannelLockFailureTest, TheSecondOfWaitingBeginsAfterTheValueWasCloned) {
  using std::chrono::milliseconds;
  auto channel = MakeChannel(ChannelSetup(dir_.Path()));
  OutputQueueOf(*channel).high_water_mark(sizeof(OutDataUnit));
  OutputQueueOf(*channel).low_water_mark(sizeof(OutDataUnit));
  Gate gate;
  StallAt(gate, *channel);
  ASSERT_TRUE(channel->Trace("m", kLevel3, "fills it", nullptr, false, true));
  AsnSlowToClone const value;
  std::vector<TimedWait> waits;
  {
    TimedWaitsEndAtOnce const record(waits);
    EXPECT_FALSE(channel->Trace("m", kLevel3, "one too many", &value, false, true));
  }
  gate.Open();

  ASSERT_EQ(waits.size(), 1U);
  EXPECT_GE(waits[0].remaining, milliseconds(900)) << "on a busy machine a little less may be left";
  EXPECT_LE(waits[0].remaining, milliseconds(1000));
}

TEST_F(ChannelLockFailureTest, AChannelThatCouldNotLockItsStartIsStartedByInit) {
  std::unique_ptr<VeltDebugInfo> channel;
  {
    Failing const failing(Lock::kMutexLock);
    channel = MakeChannel(ChannelSetup(dir_.Path()));
  }
  bool const before = channel->Trace("m", kLevel3, "before", nullptr, false, true);

  bool const started = channel->Init();
  bool const again = channel->Init();
  bool const after = channel->Trace("m", kLevel3, "after", nullptr, false, true);

  EXPECT_FALSE(before);
  EXPECT_TRUE(started);
  EXPECT_TRUE(again) << "it has its thread already";
  EXPECT_TRUE(after);
  channel.reset();
  EXPECT_EQ(CountOf(Text(), " m I: after\n"), 1U);
  EXPECT_EQ(CountOf(Text(), "Thread handle output string is "), 1U) << "one thread";
}

// Its Print, which runs on the output thread, makes one lock of that thread fail.
class AsnThatSpoilsALock : public AsnType {
 public:
  explicit AsnThatSpoilsALock(int first_failing) : first_failing_(first_failing) {}
  AsnType* Clone() const override { return new AsnThatSpoilsALock(first_failing_); }
  void Print(std::ostream& /*out*/, int, int) const override { FailOnce(Lock::kMutexLock, first_failing_); }

 private:
  int first_failing_;
};

TEST_F(ChannelLockFailureTest, AnOutputThreadThatCannotTakeItsRecordsSaysSoAndTriesAgain) {
  auto channel = MakeChannel(ChannelSetup(dir_.Path()));
  AsnThatSpoilsALock const value(1);

  // Traced and written first, so that a lock which the thread takes once, or once for several records, is not
  // the one to fail.
  ASSERT_TRUE(channel->Trace("m", kLevel3, "before", nullptr, false, true));
  ASSERT_TRUE(WaitUntil([this] { return CountOf(Text(), " m I: before\n") == 1; }));
  ASSERT_TRUE(channel->Trace("m", kLevel3, "spoiling", &value, false, true));
  ASSERT_TRUE(WaitUntil([this] { return CountOf(Text(), "can't get message block\n") == 1; }));
  ASSERT_TRUE(channel->Trace("m", kLevel3, "after", nullptr, false, true));
  channel.reset();

  EXPECT_EQ(CountOf(Text(), "can't get message block\n"), 1U);
  EXPECT_EQ(CountOf(Text(), " m I: after\n"), 1U);
}

TEST_F(ChannelLockFailureTest, ARingThatCannotBeTakenStaysForTheNextRecordOfLevelZero) {
  ChannelSetup setup(dir_.Path());
  setup.ring = 10;
  auto channel = MakeChannel(setup);
  Gate gate;
  StallAt(gate, *channel);
  AsnThatSpoilsALock const value(2);  // the first lock is for the number of records

  // All are queued while the thread waits at the gate, so that it takes them with one lock.
  ASSERT_TRUE(channel->Trace("m", kLevel3, "filtered", nullptr, false, false));
  ASSERT_TRUE(channel->Trace("m", kLevel3, "spoiling", &value, false, true));
  ASSERT_TRUE(channel->Trace("m", VeltLogLevel{0}, "first alarm", nullptr, false, true));
  ASSERT_TRUE(channel->Trace("m", VeltLogLevel{0}, "second alarm", nullptr, false, true));
  gate.Open();
  CaptureStdout ring;  // records of the ring are printed as well
  channel.reset();

  std::string const text = Text();
  std::size_t const filtered = text.find(" m I: filtered\n");
  ASSERT_NE(filtered, std::string::npos);
  EXPECT_LT(text.find(" m A: first alarm\n"), filtered);
  EXPECT_GT(text.find(" m A: second alarm\n"), filtered);
}

TEST_F(ChannelLockFailureTest, ARingThatCannotBeClearedIsReportedAndFreedLater) {
  ChannelSetup setup(dir_.Path());
  setup.ring = 10;
  auto channel = MakeIdleChannel(setup);
  ASSERT_TRUE(channel->OpenNewFile());
  OutDataUnit* rec = NewRecord("filtered", 3, false, false);
  ASSERT_TRUE(channel->TraceInner(rec));
  {
    Failing const failing(Lock::kMutexLock, 2);  // the first lock is for the number of records
    channel->DequeueMsg();
  }

  EXPECT_EQ(CountOf(Text(), "dequeue from m_DiscardQueue fail.\n"), 1U);
}

TEST_F(ChannelLockFailureTest, WhicheverLockFailsOnceTheDestructorEndsItsFile) {
  constexpr int kLocks = 9;  // more than the end of a channel takes
  std::size_t discard_failures = 0;
  std::size_t output_failures = 0;
  for (int nth = 1; nth <= kLocks; ++nth) {
    ScratchDir const dir;
    ChannelSetup setup(dir.Path());
    setup.ring = 10;
    auto channel = MakeChannel(setup);
    auto const text = [&dir] {
      std::string all;
      for (auto const& name : ListDir(dir.Path())) all += ReadFile(dir / name);
      return all;
    };
    // The thread ends first, so that records are left in both queues.
    OutDataUnit* marker = NewStopMarker();
    ASSERT_TRUE(channel->TraceInner(marker));
    ASSERT_TRUE(WaitUntil([&] { return CountOf(text(), "thread handle output string exit\n") == 1; }));
    ASSERT_TRUE(channel->Trace("m", kLevel3, "filtered", nullptr, false, false));
    ASSERT_TRUE(channel->Trace("m", kLevel3, "left over", nullptr, false, true));
    {
      Failing const failing(Lock::kMutexLock, nth, 1);
      channel.reset();
    }

    EXPECT_EQ(CountOf(text(), "File close at "), 1U) << nth;
    discard_failures += CountOf(text(), "dequeue from m_DiscardQueue fail.\n");
    output_failures += CountOf(text(), "dequeue from m_OutputQueue fail.\n");
  }

  EXPECT_EQ(discard_failures, 1U);
  EXPECT_EQ(output_failures, 1U);
}

}  // namespace
}  // namespace velt::test
