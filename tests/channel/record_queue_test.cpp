// The queue of a channel: the bounded ring, taking without waiting, and giving up in a forked child.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include <ace/Message_Block.h>
#include <ace/OS_NS_sys_time.h>

#include "velt/channel.h"

#include "tests/support/channel.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

constexpr std::size_t kBlockBytes = sizeof(OutDataUnit);  // what each block counts

ACE_Message_Block* NewBlock(int priority = 0) {
  auto* const block = new ACE_Message_Block(kBlockBytes);
  block->msg_priority(static_cast<unsigned long>(priority));
  return block;
}

ACE_Time_Value Deadline(int seconds) { return ACE_OS::gettimeofday() + ACE_Time_Value(seconds); }

std::size_t ReleaseChain(ACE_Message_Block* chain) {
  std::size_t count = 0;
  for (; chain != nullptr; ++count) {
    ACE_Message_Block* const next = chain->next();
    chain->next(nullptr);
    chain->release();
    chain = next;
  }
  return count;
}

// Puts a new block into a ring of `capacity`; returns how many it pushed out.
std::size_t Push(VeltRecordQueue& queue, std::size_t capacity, ACE_Message_Block* block) {
  ACE_Time_Value deadline = Deadline(60);
  ACE_Message_Block* evicted = nullptr;
  EXPECT_TRUE(queue.EnqueueEvicting(block, capacity, deadline, evicted));
  return ReleaseChain(evicted);
}

TEST(RecordQueueTest, TakingFromAnEmptyQueueGivesNothingAtOnce) {
  VeltRecordQueue queue;

  EXPECT_EQ(queue.TryDequeue(), nullptr);
}

TEST(RecordQueueTest, TakingGivesTheBlocksInTheOrderTheyCame) {
  VeltRecordQueue queue;
  ACE_Message_Block* const first = NewBlock();
  ACE_Message_Block* const second = NewBlock();
  queue.enqueue(first);
  queue.enqueue(second);

  EXPECT_EQ(queue.TryDequeue(), first);
  EXPECT_EQ(queue.TryDequeue(), second);
  EXPECT_EQ(queue.TryDequeue(), nullptr);
  EXPECT_EQ(queue.message_bytes(), 0U);
  first->release();
  second->release();
}

TEST(RecordQueueTest, ATakenBlockIsLinkedToNoOther) {
  VeltRecordQueue queue;
  queue.enqueue(NewBlock());
  queue.enqueue(NewBlock());

  ACE_Message_Block* const block = queue.TryDequeue();

  ASSERT_NE(block, nullptr);
  EXPECT_EQ(block->next(), nullptr);
  EXPECT_EQ(block->prev(), nullptr);
  block->release();
}

TEST(RecordQueueTest, ARingBelowItsCapacityPushesNothingOut) {
  VeltRecordQueue queue;

  EXPECT_EQ(Push(queue, 3, NewBlock()), 0U);
  EXPECT_EQ(Push(queue, 3, NewBlock()), 0U);
  EXPECT_EQ(Push(queue, 3, NewBlock()), 0U);
  EXPECT_EQ(queue.message_count(), 3U);
}

TEST(RecordQueueTest, ARingAtItsCapacityPushesOutTheOldest) {
  VeltRecordQueue queue;
  ACE_Message_Block* const oldest = NewBlock();
  ACE_Message_Block* const newest = NewBlock();
  Push(queue, 2, oldest);
  Push(queue, 2, NewBlock());
  ACE_Time_Value deadline = Deadline(60);
  ACE_Message_Block* evicted = nullptr;

  bool const queued = queue.EnqueueEvicting(newest, 2, deadline, evicted);

  EXPECT_TRUE(queued);
  EXPECT_EQ(evicted, oldest);
  EXPECT_EQ(ReleaseChain(evicted), 1U);
  EXPECT_EQ(queue.message_count(), 2U);
  EXPECT_EQ(queue.message_bytes(), 2 * kBlockBytes);
}

TEST(RecordQueueTest, ARingOfOneKeepsTheNewest) {
  VeltRecordQueue queue;
  ACE_Message_Block* const newest = NewBlock();
  Push(queue, 1, NewBlock());

  EXPECT_EQ(Push(queue, 1, newest), 1U);
  ACE_Message_Block* const kept = queue.TryDequeue();
  EXPECT_EQ(kept, newest);
  EXPECT_EQ(queue.TryDequeue(), nullptr);
  if (kept != nullptr) kept->release();
}

TEST(RecordQueueTest, ARingThatHoldsTooManyPushesOutAllOfTheSurplus) {
  VeltRecordQueue queue;
  for (int i = 0; i < 5; ++i) Push(queue, 5, NewBlock());

  EXPECT_EQ(Push(queue, 2, NewBlock()), 4U);
  EXPECT_EQ(queue.message_count(), 2U);
}

TEST(RecordQueueTest, ADeactivatedRingRefusesAndLeavesTheBlockToTheCaller) {
  VeltRecordQueue queue;
  queue.deactivate();
  ACE_Time_Value deadline = Deadline(60);
  ACE_Message_Block* evicted = nullptr;
  ACE_Message_Block* const block = NewBlock();

  bool const queued = queue.EnqueueEvicting(block, 3, deadline, evicted);
  int const reason = errno;

  EXPECT_FALSE(queued);
  EXPECT_EQ(reason, ESHUTDOWN);
  EXPECT_EQ(evicted, nullptr);
  EXPECT_EQ(queue.message_count(), 0U);
  block->release();
}

TEST(RecordQueueTest, ARingAboveItsWaterMarkRefusesWhenTheDeadlinePasses) {
  VeltRecordQueue queue;
  queue.high_water_mark(2 * kBlockBytes);
  queue.low_water_mark(2 * kBlockBytes);
  Push(queue, 100, NewBlock());
  Push(queue, 100, NewBlock());
  ACE_Time_Value deadline = ACE_OS::gettimeofday() + ACE_Time_Value(0, 50'000);
  ACE_Message_Block* evicted = nullptr;
  ACE_Message_Block* const block = NewBlock();

  bool const queued = queue.EnqueueEvicting(block, 100, deadline, evicted);

  EXPECT_FALSE(queued);
  EXPECT_EQ(evicted, nullptr);
  EXPECT_GE(ACE_OS::gettimeofday(), deadline);
  EXPECT_EQ(queue.message_count(), 2U);
  block->release();
}

TEST(RecordQueueTest, ABlockOfARingWakesAWaitingReader) {
  VeltRecordQueue queue;
  std::atomic<bool> got{false};
  std::thread reader([&queue, &got] {
    ACE_Message_Block* block = nullptr;
    if (queue.dequeue_head(block) != -1) got = true;
    if (block != nullptr) block->release();
  });

  Push(queue, 3, NewBlock());
  reader.join();

  EXPECT_TRUE(got);
}

TEST(RecordQueueTest, ManyWritersNeverLeaveMoreThanTheCapacityInTheRing) {
  constexpr std::size_t kCapacity = 7;
  constexpr int kPerThread = 2000;
  VeltRecordQueue queue;
  std::atomic<std::size_t> pushed_out{0};
  std::vector<std::thread> writers;
  writers.reserve(8);
  for (int t = 0; t < 4; ++t) {
    writers.emplace_back([&queue, &pushed_out] {
      for (int i = 0; i < kPerThread; ++i) pushed_out += Push(queue, kCapacity, NewBlock());
    });
  }
  for (auto& writer : writers) writer.join();

  EXPECT_EQ(queue.message_count(), kCapacity);
  EXPECT_EQ(pushed_out, 8000 - kCapacity);
}

TEST(RecordQueueTest, AnAbandonedQueueIsEmptyAndItsBlocksStayAllocated) {
  VeltRecordQueue queue;
  ACE_Message_Block* const first = NewBlock();
  ACE_Message_Block* const second = NewBlock();
  queue.enqueue(first);
  queue.enqueue(second);

  queue.Abandon();

  EXPECT_EQ(queue.message_count(), 0U);
  EXPECT_EQ(queue.message_bytes(), 0U);
  EXPECT_TRUE(queue.is_empty());
  EXPECT_EQ(first->size(), kBlockBytes);
  EXPECT_EQ(second->size(), kBlockBytes);
}

TEST(RecordQueueTest, AnAbandonedEmptyQueueWorksOn) {
  VeltRecordQueue queue;

  queue.Abandon();
  queue.enqueue(NewBlock());
  ACE_Message_Block* const block = queue.TryDequeue();

  ASSERT_NE(block, nullptr);
  block->release();
  EXPECT_EQ(queue.TryDequeue(), nullptr);
}

TEST(RecordQueueTest, AbandoningTwoQueuesKeepsTheBlocksOfBoth) {
  VeltRecordQueue one;
  VeltRecordQueue two;
  ACE_Message_Block* const of_one = NewBlock();
  ACE_Message_Block* const of_two = NewBlock();
  one.enqueue(of_one);
  two.enqueue(of_two);

  one.Abandon();
  two.Abandon();

  EXPECT_EQ(of_one->size(), kBlockBytes);
  EXPECT_EQ(of_two->size(), kBlockBytes);
}

TEST(RecordQueueTest, AChildCanDestroyAQueueWhoseLockAThreadOfTheParentHolds) {
  auto* const inherited = new VeltRecordQueue;
  inherited->enqueue(NewBlock());
  std::promise<void> held;
  std::promise<void> forked;
  std::thread holder([&] {
    inherited->lock().acquire();
    held.set_value();
    forked.get_future().wait();
    inherited->lock().release();
  });
  held.get_future().wait();

  int const code = InFork([inherited] {
    inherited->Abandon();
    bool const empty = inherited->message_count() == 0;
    delete inherited;
    return empty ? 0 : 1;
  });

  forked.set_value();
  holder.join();
  delete inherited;
  EXPECT_EQ(code, 0);
}

TEST(RecordQueueTest, AChildCanDestroyAQueueOnWhichAThreadOfTheParentWaits) {
  auto* const inherited = new VeltRecordQueue;
  std::atomic<int> thread{0};
  std::thread reader([inherited, &thread] {
    thread = gettid();
    ACE_Message_Block* block = nullptr;
    inherited->dequeue_head(block);
    if (block != nullptr) block->release();
  });
  ASSERT_TRUE(WaitUntil([&thread] { return thread != 0 && StateOf(thread) == 'S'; }));

  int const code = InFork([inherited] {
    inherited->Abandon();
    delete inherited;
    return 0;
  });

  inherited->enqueue(NewBlock());
  reader.join();
  delete inherited;
  EXPECT_EQ(code, 0);
}

}  // namespace
}  // namespace velt::test
