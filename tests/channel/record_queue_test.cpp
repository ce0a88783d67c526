// The queue of a channel: the bounded ring, taking without waiting, and what a forked child may do with it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <ace/Message_Block.h>
#include <ace/OS_NS_sys_time.h>

#include "velt/channel.h"

#include "debug/channel/record_queue.h"

#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

constexpr std::size_t kBlockBytes = sizeof(OutDataUnit);  // what each block counts

ACE_Message_Block* NewBlock(int priority = 0) {
  auto* const block = new ACE_Message_Block(kBlockBytes);
  block->msg_priority(static_cast<unsigned long>(priority));
  return block;
}

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
std::size_t Push(RecordQueue& queue, std::size_t capacity, ACE_Message_Block* block) {
  ACE_Message_Block* evicted = nullptr;
  EXPECT_TRUE(queue.EnqueueEvicting(block, capacity, evicted));
  return ReleaseChain(evicted);
}

TEST(RecordQueueTest, TakingFromAnEmptyQueueGivesNothingAtOnce) {
  RecordQueue queue;

  EXPECT_EQ(queue.TryDequeue(), nullptr);
}

TEST(RecordQueueTest, TakingGivesTheBlocksInTheOrderTheyCame) {
  RecordQueue queue;
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
  RecordQueue queue;
  queue.enqueue(NewBlock());
  queue.enqueue(NewBlock());

  ACE_Message_Block* const block = queue.TryDequeue();

  ASSERT_NE(block, nullptr);
  EXPECT_EQ(block->next(), nullptr);
  EXPECT_EQ(block->prev(), nullptr);
  block->release();
}

TEST(RecordQueueTest, ARingBelowItsCapacityPushesNothingOut) {
  RecordQueue queue;

  EXPECT_EQ(Push(queue, 3, NewBlock()), 0U);
  EXPECT_EQ(Push(queue, 3, NewBlock()), 0U);
  EXPECT_EQ(Push(queue, 3, NewBlock()), 0U);
  EXPECT_EQ(queue.message_count(), 3U);
}

TEST(RecordQueueTest, ARingAtItsCapacityPushesOutTheOldest) {
  RecordQueue queue;
  ACE_Message_Block* const oldest = NewBlock();
  ACE_Message_Block* const newest = NewBlock();
  Push(queue, 2, oldest);
  Push(queue, 2, NewBlock());
  ACE_Message_Block* evicted = nullptr;

  bool const queued = queue.EnqueueEvicting(newest, 2, evicted);

  EXPECT_TRUE(queued);
  EXPECT_EQ(evicted, oldest);
  EXPECT_EQ(ReleaseChain(evicted), 1U);
  EXPECT_EQ(queue.message_count(), 2U);
  EXPECT_EQ(queue.message_bytes(), 2 * kBlockBytes);
}

TEST(RecordQueueTest, ARingOfOneKeepsTheNewest) {
  RecordQueue queue;
  ACE_Message_Block* const newest = NewBlock();
  Push(queue, 1, NewBlock());

  EXPECT_EQ(Push(queue, 1, newest), 1U);
  ACE_Message_Block* const kept = queue.TryDequeue();
  EXPECT_EQ(kept, newest);
  EXPECT_EQ(queue.TryDequeue(), nullptr);
  if (kept != nullptr) kept->release();
}

TEST(RecordQueueTest, ARingThatHoldsTooManyPushesOutAllOfTheSurplus) {
  RecordQueue queue;
  for (int i = 0; i < 5; ++i) Push(queue, 5, NewBlock());

  EXPECT_EQ(Push(queue, 2, NewBlock()), 4U);
  EXPECT_EQ(queue.message_count(), 2U);
}

TEST(RecordQueueTest, ADeactivatedRingRefusesAndLeavesTheBlockToTheCaller) {
  RecordQueue queue;
  queue.deactivate();
  ACE_Message_Block* evicted = nullptr;
  ACE_Message_Block* const block = NewBlock();

  bool const queued = queue.EnqueueEvicting(block, 3, evicted);
  int const reason = errno;

  EXPECT_FALSE(queued);
  EXPECT_EQ(reason, ESHUTDOWN);
  EXPECT_EQ(evicted, nullptr);
  EXPECT_EQ(queue.message_count(), 0U);
  block->release();
}

TEST(RecordQueueTest, ARingAboveItsWaterMarkRefusesWhenTheDeadlinePasses) {
  RecordQueue queue;
  queue.high_water_mark(2 * kBlockBytes);
  queue.low_water_mark(2 * kBlockBytes);
  Push(queue, 100, NewBlock());
  Push(queue, 100, NewBlock());
  queue.SetWait(std::chrono::milliseconds(50));
  ACE_Time_Value const deadline = ACE_OS::gettimeofday() + ACE_Time_Value(0, 50'000);
  ACE_Message_Block* evicted = nullptr;
  ACE_Message_Block* const block = NewBlock();

  bool const queued = queue.EnqueueEvicting(block, 100, evicted);

  EXPECT_FALSE(queued);
  EXPECT_EQ(evicted, nullptr);
  EXPECT_GE(ACE_OS::gettimeofday(), deadline);
  EXPECT_EQ(queue.message_count(), 2U);
  block->release();
}

TEST(RecordQueueTest, ABlockOfARingWakesAWaitingReader) {
  RecordQueue queue;
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
  RecordQueue queue;
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

// A channel without a thread, whose queue belongs to the test, destroyed in a forked child.
int DestroyInChild(VeltDebugInfo* channel) {
  return InFork([channel] {
    delete channel;
    return 0;
  });
}

TEST(RecordQueueTest, AChildCanDestroyAChannelWhoseQueueAThreadOfTheParentHasLocked) {
  ScratchDir const directory;
  std::unique_ptr<VeltDebugInfo> inherited = MakeIdleChannel(ChannelSetup(directory.Path()));
  OutDataUnit* rec = NewRecord(" kept\n");
  ASSERT_TRUE(inherited->TraceInner(rec));
  std::promise<void> held;
  std::promise<void> forked;
  std::thread holder([&] {
    OutputQueueOf(*inherited).lock().acquire();
    held.set_value();
    forked.get_future().wait();
    OutputQueueOf(*inherited).lock().release();
  });
  held.get_future().wait();

  int const code = DestroyInChild(inherited.get());

  forked.set_value();
  holder.join();
  EXPECT_EQ(code, 0);
}

TEST(RecordQueueTest, AChildCanDestroyAChannelOnWhoseQueueAThreadOfTheParentWaits) {
  ScratchDir const directory;
  std::unique_ptr<VeltDebugInfo> inherited = MakeIdleChannel(ChannelSetup(directory.Path()));
  std::atomic<int> thread{0};
  std::thread reader([&inherited, &thread] {
    thread = gettid();
    ACE_Message_Block* block = nullptr;
    OutputQueueOf(*inherited).dequeue_head(block);
    if (block != nullptr) block->release();
  });
  ASSERT_TRUE(WaitUntil([&thread] { return thread != 0 && StateOf(thread) == 'S'; }));

  int const code = DestroyInChild(inherited.get());

  OutputQueueOf(*inherited).enqueue(NewBlock());
  reader.join();
  EXPECT_EQ(code, 0);
}

TEST(RecordQueueTest, TheThreadThatEmptiesTheQueueIsRefusedAtOnceWhenItIsFull) {
  RecordQueue queue;
  queue.high_water_mark(2 * kBlockBytes);
  queue.low_water_mark(2 * kBlockBytes);
  ASSERT_TRUE(queue.EnqueueRecord(NewBlock()));
  ReleaseChain(queue.TakeAll(nullptr));
  ASSERT_TRUE(queue.EnqueueRecord(NewBlock()));
  ASSERT_TRUE(queue.EnqueueRecord(NewBlock()));
  queue.SetWait(std::chrono::hours(1));  // a wait would outlast the test
  ACE_Message_Block* const block = NewBlock();

  bool const queued = queue.EnqueueRecord(block);
  int const reason = errno;

  EXPECT_FALSE(queued);
  EXPECT_EQ(reason, EWOULDBLOCK);
  block->release();
}

TEST(RecordQueueTest, AWaitOfZeroRefusesAtOnce) {
  RecordQueue queue;
  queue.high_water_mark(kBlockBytes);
  queue.low_water_mark(kBlockBytes);
  ASSERT_TRUE(queue.EnqueueRecord(NewBlock()));
  queue.SetWait(std::chrono::milliseconds(0));
  ACE_Message_Block* const block = NewBlock();

  EXPECT_FALSE(queue.EnqueueRecord(block));

  EXPECT_EQ(errno, EWOULDBLOCK);
  EXPECT_FALSE(queue.CallersWait());
  block->release();
}

}  // namespace
}  // namespace velt::test
