// The queue of a channel as the output thread uses it: all blocks at once, counted until they are dealt with.
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <future>
#include <numeric>
#include <thread>
#include <vector>

#include <ace/Message_Block.h>
#include <ace/OS_NS_sys_time.h>

#include "velt/channel.h"

#include "debug/channel/record_queue.h"

#include "tests/support/process.h"

namespace velt::test {
namespace {

ACE_Message_Block* NewBlock() { return new ACE_Message_Block(sizeof(OutDataUnit)); }

std::vector<ACE_Message_Block*> Fill(RecordQueue& queue, int count) {
  std::vector<ACE_Message_Block*> blocks;
  for (int i = 0; i < count; ++i) {
    blocks.push_back(NewBlock());
    EXPECT_TRUE(queue.EnqueueRecord(blocks.back()));
  }
  return blocks;
}

std::vector<ACE_Message_Block*> BlocksOf(ACE_Message_Block* chain) {
  std::vector<ACE_Message_Block*> blocks;
  for (; chain != nullptr; chain = chain->next()) blocks.push_back(chain);
  return blocks;
}

void Release(std::vector<ACE_Message_Block*> const& blocks) {
  for (ACE_Message_Block* const block : blocks) block->release();
}

TEST(RecordQueueListTest, TakingAllGivesEveryBlockInTheOrderTheyCame) {
  RecordQueue queue;
  std::vector<ACE_Message_Block*> const blocks = Fill(queue, 3);

  ACE_Message_Block* const list = queue.TakeAll(nullptr);

  EXPECT_EQ(BlocksOf(list), blocks);
  EXPECT_EQ(queue.TryDequeue(), nullptr);
  Release(blocks);
}

TEST(RecordQueueListTest, WhatIsInHandIsCountedButForTheFirst) {
  RecordQueue queue;
  std::vector<ACE_Message_Block*> const blocks = Fill(queue, 5);

  queue.TakeAll(nullptr);
  EXPECT_EQ(queue.message_count(), 4U);
  EXPECT_EQ(queue.message_bytes(), 4 * sizeof(OutDataUnit));
  queue.GiveBack(3);
  EXPECT_EQ(queue.message_count(), 1U);
  queue.GiveBack(1);

  EXPECT_EQ(queue.message_count(), 0U);
  EXPECT_EQ(queue.message_bytes(), 0U);
  Release(blocks);
}

TEST(RecordQueueListTest, WhatIsPutBackComesBeforeWhatCameMeanwhile) {
  RecordQueue queue;
  std::vector<ACE_Message_Block*> blocks = Fill(queue, 3);
  ACE_Message_Block* const list = queue.TakeAll(nullptr);
  std::vector<ACE_Message_Block*> const later = Fill(queue, 1);

  queue.PutBack(list->next());

  EXPECT_EQ(queue.message_count(), 3U);
  EXPECT_EQ(queue.TryDequeue(), blocks[1]);
  EXPECT_EQ(queue.TryDequeue(), blocks[2]);
  EXPECT_EQ(queue.TryDequeue(), later[0]);
  EXPECT_EQ(queue.TryDequeue(), nullptr);
  EXPECT_EQ(queue.message_count(), 0U);
  Release(blocks);
  Release(later);
}

TEST(RecordQueueListTest, PuttingBackIntoAnEmptyQueueLeavesItsEndRight) {
  RecordQueue queue;
  std::vector<ACE_Message_Block*> const blocks = Fill(queue, 2);
  ACE_Message_Block* const list = queue.TakeAll(nullptr);

  queue.PutBack(list->next());
  queue.PutBack(nullptr);
  std::vector<ACE_Message_Block*> const later = Fill(queue, 1);

  EXPECT_EQ(queue.TryDequeue(), blocks[1]);
  EXPECT_EQ(queue.TryDequeue(), later[0]);
  Release(blocks);
  Release(later);
}

TEST(RecordQueueListTest, TakingFromAnEmptyQueueEndsAtTheDeadline) {
  RecordQueue queue;
  ACE_Time_Value deadline = ACE_OS::gettimeofday() + ACE_Time_Value(0, 20'000);

  errno = 0;
  ACE_Message_Block* const list = queue.TakeAll(&deadline);
  int const reason = errno;

  EXPECT_EQ(list, nullptr);
  EXPECT_EQ(reason, EWOULDBLOCK);
  EXPECT_GE(ACE_OS::gettimeofday(), deadline);
}

TEST(RecordQueueListTest, ADeactivatedQueueGivesNothingAndTakesNothing) {
  RecordQueue queue;
  queue.deactivate();
  ACE_Message_Block* const block = NewBlock();

  EXPECT_EQ(queue.TakeAll(nullptr), nullptr);
  EXPECT_FALSE(queue.EnqueueRecord(block));
  EXPECT_EQ(errno, ESHUTDOWN);

  block->release();
}

TEST(RecordQueueListTest, ABlockWakesTheThreadThatWaits) {
  RecordQueue queue;
  auto taken = std::async(std::launch::async, [&queue] { return queue.TakeAll(nullptr); });

  std::vector<ACE_Message_Block*> const blocks = Fill(queue, 1);

  EXPECT_EQ(taken.get(), blocks[0]);
  Release(blocks);
}

TEST(RecordQueueListTest, AFullQueueRefusesAfterTheWaitAndLeavesTheBlockToTheCaller) {
  RecordQueue queue;
  queue.high_water_mark(2 * sizeof(OutDataUnit));
  std::vector<ACE_Message_Block*> const blocks = Fill(queue, 2);
  ACE_Message_Block* const third = NewBlock();
  queue.SetWait(std::chrono::milliseconds(20));

  bool const queued = queue.EnqueueRecord(third);
  int const reason = errno;

  EXPECT_FALSE(queued);
  EXPECT_EQ(reason, EWOULDBLOCK);
  EXPECT_EQ(queue.message_count(), 2U);
  EXPECT_FALSE(queue.CallersWait());
  third->release();
  EXPECT_EQ(BlocksOf(queue.TakeAll(nullptr)), blocks);
  Release(blocks);
}

TEST(RecordQueueListTest, GivingBackLetsAsManyWaitingCallersInAsThereIsRoomFor) {
  RecordQueue queue;
  queue.high_water_mark(4 * sizeof(OutDataUnit));
  queue.low_water_mark(4 * sizeof(OutDataUnit));
  std::vector<ACE_Message_Block*> const blocks = Fill(queue, 4);
  std::vector<std::future<bool>> waiting;
  std::vector<ACE_Message_Block*> late = {NewBlock(), NewBlock(), NewBlock()};
  EXPECT_EQ(BlocksOf(queue.TakeAll(nullptr)), blocks);
  std::vector<ACE_Message_Block*> const first = Fill(queue, 1);  // the first block of the list was there
  waiting.reserve(late.size());
  for (ACE_Message_Block* const block : late) {
    waiting.push_back(std::async(std::launch::async, [&queue, block] { return queue.EnqueueRecord(block); }));
  }
  ASSERT_TRUE(WaitUntil([&queue] { return queue.CallersWait(); }));

  queue.GiveBack(3);

  for (auto& caller : waiting) EXPECT_TRUE(caller.get());
  EXPECT_EQ(queue.message_count(), 4U);
  EXPECT_EQ(BlocksOf(queue.TakeAll(nullptr)).size(), 4U);
  Release(blocks);
  Release(first);
  Release(late);
}

constexpr unsigned long kThreads = 4;
constexpr unsigned long kEach = 5000;

// Queues blocks whose priority is made of the thread's number and a running number.
void Produce(RecordQueue& queue, unsigned long thread) {
  for (unsigned long i = 0; i < kEach; ++i) {
    ACE_Message_Block* const block = NewBlock();
    block->msg_priority(i * kThreads + thread);
    EXPECT_TRUE(queue.EnqueueRecord(block));
  }
}

// Takes one list, and counts in `next` what came of each thread. Returns the number of blocks, 0 when one of
// them was out of order.
unsigned long Consume(RecordQueue& queue, std::vector<unsigned long>& next) {
  std::vector<ACE_Message_Block*> const list = BlocksOf(queue.TakeAll(nullptr));
  bool in_order = true;
  for (ACE_Message_Block* const block : list) {
    unsigned long const place = next[block->msg_priority() % kThreads]++;
    in_order = in_order && block->msg_priority() / kThreads == place;
    block->release();
  }
  if (list.size() > 1) queue.GiveBack(list.size() - 1);
  return in_order ? list.size() : 0;
}

TEST(RecordQueueListTest, BlocksOfManyThreadsAllComeOutEachThreadsInOrder) {
  RecordQueue queue;
  queue.high_water_mark(100 * sizeof(OutDataUnit));
  queue.low_water_mark(100 * sizeof(OutDataUnit));
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (unsigned long t = 0; t < kThreads; ++t) threads.emplace_back([&queue, t] { Produce(queue, t); });

  std::vector<unsigned long> next(kThreads, 0);
  unsigned long seen = 0;
  unsigned long taken = 1;
  while (taken > 0 && seen < kThreads * kEach) seen += taken = Consume(queue, next);
  EXPECT_GT(taken, 0U) << "a block was out of order";
  while (taken == 0 && std::accumulate(next.begin(), next.end(), 0UL) < kThreads * kEach)
    (void)Consume(queue, next);
  for (auto& thread : threads) thread.join();

  EXPECT_EQ(next, std::vector<unsigned long>(kThreads, kEach));
  EXPECT_EQ(queue.message_count(), 0U);
}

}  // namespace
}  // namespace velt::test
