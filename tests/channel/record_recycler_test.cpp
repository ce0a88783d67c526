// The recycling of record memory, and what a record frees.
#include "debug/channel/record_recycler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <future>
#include <iterator>
#include <memory>
#include <new>
#include <set>
#include <thread>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#define VELT_LEAKS_ARE_LOOKED_FOR 1
#else
#define VELT_LEAKS_ARE_LOOKED_FOR 0
#endif

#include "velt/channel.h"

#include "debug/channel/record_node.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

constexpr std::size_t kChain = 128;
constexpr std::size_t kAtHand = 16;  // nodes that a thread keeps beside its chain
constexpr std::size_t kBunch = 8;    // nodes are moved between these two in such numbers

void TakeAndGiveBack(std::size_t count) {
  std::vector<std::unique_ptr<OutDataUnit>> records;
  for (std::size_t i = 0; i < count; ++i) records.push_back(std::make_unique<OutDataUnit>());
}

TEST(RecordRecyclerTest, ARecordThatIsFreedIsTheNextOneGivenOut) {
  auto first = std::make_unique<OutDataUnit>();
  OutDataUnit const* const memory = first.get();
  first.reset();

  auto const second = std::make_unique<OutDataUnit>();

  EXPECT_EQ(second.get(), memory);
}

TEST(RecordRecyclerTest, RecordsInUseAreDistinctMemory) {
  std::vector<std::unique_ptr<OutDataUnit>> records;
  std::set<OutDataUnit*> memory;
  for (std::size_t round = 0; round < 2; ++round) {
    for (std::size_t i = 0; i < 1000; ++i) {
      records.push_back(std::make_unique<OutDataUnit>());
      memory.insert(records.back().get());
    }
    if (round == 0) {
      records.clear();
      memory.clear();
    }
  }

  EXPECT_EQ(memory.size(), 1000U);
}

TEST(RecordRecyclerTest, AThreadKeepsLessThanAChainBesideWhatIsAtHand) {
  TakeAndGiveBack(kAtHand + kChain - kBunch);
  EXPECT_EQ(IdleNodesInDepot(), 0U);

  TakeAndGiveBack(kAtHand + kChain);

  EXPECT_EQ(IdleNodesInDepot(), kChain);
}

TEST(RecordRecyclerTest, AnotherThreadTakesWhatThisOneGave) {
  TakeAndGiveBack(5 * kChain);
  ASSERT_EQ(IdleNodesInDepot(), 4 * kChain);

  std::thread([] {
    auto const record = std::make_unique<OutDataUnit>();
    EXPECT_EQ(IdleNodesInDepot(), 3 * kChain);
  }).join();
}

TEST(RecordRecyclerTest, AThreadThatEndsHandsOnItsFullBunches) {
  std::thread([] { TakeAndGiveBack(2 * kChain + kBunch - 1); }).join();

  EXPECT_EQ(IdleNodesInDepot(), 2 * kChain);
}

TEST(RecordRecyclerTest, TheDepotIsBounded) {
  TakeAndGiveBack(140'000);

  EXPECT_EQ(IdleNodesInDepot(), 131'072U);
}

TEST(RecordRecyclerTest, TrimmingEndsAtWhatAnIdleProcessKeeps) {
  TakeAndGiveBack(40 * kChain);
  ASSERT_TRUE(IdleNodesToTrim());

  int trimmed = 0;
  for (; IdleNodesToTrim(); ++trimmed) TrimIdleNodes();
  TrimIdleNodes();

  EXPECT_EQ(trimmed, 1 + 39 - 16) << "all of this thread's chain goes to the depot";
  EXPECT_EQ(IdleNodesInDepot(), 2048U);
}

TEST(RecordRecyclerTest, TrimmingTakesTheChainsOfAllThreadsAndLeavesWhatIsAtHand) {
  // One chain goes to the depot; of the other, 14 bunches and the nodes at hand stay.
  TakeAndGiveBack(2 * kChain);
  std::promise<void> made;
  std::promise<void> trimmed;
  std::thread other([&] {
    TakeAndGiveBack(1);  // takes the depot's chain, one bunch of it at hand
    made.set_value();
    trimmed.get_future().wait();
    TakeAndGiveBack(kBunch);
    EXPECT_EQ(IdleNodesInDepot(), kChain - kBunch + 2 * kChain - kChain - kAtHand)
        << "from the nodes at hand";
  });
  made.get_future().wait();
  ASSERT_EQ(IdleNodesInDepot(), 0U);
  ASSERT_TRUE(IdleNodesToTrim());

  TrimIdleNodes();

  EXPECT_FALSE(IdleNodesToTrim());
  EXPECT_EQ(IdleNodesInDepot(), kChain - kBunch + 2 * kChain - kChain - kAtHand);
  trimmed.set_value();
  other.join();
}

TEST(RecordRecyclerTest, AThreadGoesOnAfterItsChainWasTaken) {
  std::vector<std::unique_ptr<OutDataUnit>> records;
  for (std::size_t i = 0; i < 40; ++i) records.push_back(std::make_unique<OutDataUnit>());
  records.resize(0);  // three bunches in its chain
  TrimIdleNodes();
  ASSERT_EQ(IdleNodesInDepot(), 3 * kBunch);

  TakeAndGiveBack(kAtHand + kChain - kBunch);  // as many as a thread with an empty chain can keep

  EXPECT_EQ(IdleNodesInDepot(), 0U);
}

TEST(RecordRecyclerTest, ThreadsMayTraceWhileTheirChainsAreTaken) {
  std::atomic<int> running{4};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&running] {
      for (std::size_t i = 0; i < 300; ++i) TakeAndGiveBack(i);
      --running;
    });
  }

  while (running > 0) TrimIdleNodes();
  for (auto& thread : threads) thread.join();

  std::set<OutDataUnit*> memory;
  std::vector<std::unique_ptr<OutDataUnit>> records;
  for (std::size_t i = 0; i < 2000; ++i) memory.insert(records.emplace_back(new OutDataUnit).get());
  EXPECT_EQ(memory.size(), 2000U);
}

TEST(RecordRecyclerTest, AnIdleOutputThreadGivesABurstsMemoryBack) {
  char pattern[] = "/tmp/velt_recycler_XXXXXX";
  ASSERT_NE(mkdtemp(pattern), nullptr);
  {
    VeltDebugInfo channel(pattern, "t_", "", false, false, 0, 1'000'000'000, 30, 10, false);
    TakeAndGiveBack(40 * kChain);
    ASSERT_TRUE(channel.Trace("m", VeltLogLevel{3}, "wakes the thread", nullptr, false, true));

    EXPECT_TRUE(WaitUntil([] { return IdleNodesInDepot() <= 2048U; }));
  }
  EXPECT_EQ(std::system((std::string("rm -r ") + pattern).c_str()), 0);
}

template <typename Step>
void InFourThreads(std::size_t count, Step step) {
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (std::size_t t = 0; t < 4; ++t) {
    threads.emplace_back([count, step, t] {
      for (std::size_t i = t; i < count; i += 4) step(i);
    });
  }
  for (auto& thread : threads) thread.join();
}

TEST(RecordRecyclerTest, ManyThreadsMayGiveWhatOthersTook) {
  constexpr std::size_t kRecords = 20'000;
  std::vector<OutDataUnit*> records(kRecords);

  for (int round = 0; round < 3; ++round) {
    InFourThreads(kRecords, [&records](std::size_t i) { records[i] = new OutDataUnit; });
    EXPECT_EQ(std::set<OutDataUnit*>(records.begin(), records.end()).size(), kRecords);
    InFourThreads(kRecords, [&records](std::size_t i) { delete records[(i + 1) % kRecords]; });
  }
}

TEST(RecordRecyclerTest, AForkedChildGoesOnWithWhatItsThreadHad) {
  TakeAndGiveBack(10 * kChain);

  Outcome const child = RunInChild([] {
    TakeAndGiveBack(20 * kChain);
    return IdleNodesInDepot() == 19 * kChain ? 0 : 1;
  });

  EXPECT_EQ(child.exit_code, 0);
  EXPECT_EQ(IdleNodesInDepot(), 9 * kChain);
}

#if VELT_LEAKS_ARE_LOOKED_FOR

// The nodes of the parent's other threads stay allocated in a child. The child must keep pointers to them: a
// leak checker would report them otherwise. The thread is started first, so that it is behind the forking one
// in the list of all threads.
TEST(RecordRecyclerTest, AForkedChildStillReachesTheNodesOfThreadsThatItDoesNotHave) {
  std::promise<void> traced;
  std::promise<void> done;
  std::thread other([&] {
    TakeAndGiveBack(10);
    traced.set_value();
    done.get_future().wait();
  });
  traced.get_future().wait();
  TakeAndGiveBack(10);

  Outcome const child = RunInChild([] { return __lsan_do_recoverable_leak_check() == 0 ? 0 : 1; });
  done.set_value();
  other.join();

  EXPECT_EQ(child.exit_code, 0) << child.err;
}

#endif

TEST(RecordMemoryTest, ARecordFreesArraysOfAHost) {  // checked by the leak checker
  auto record = std::make_unique<OutDataUnit>();
  record->m_pTimeStamp = new char[512];
  record->m_pText = new char[10];

  record.reset();
}

TEST(RecordMemoryTest, ARecordOnTheStackFreesItsArrays) {
  OutDataUnit record;
  record.m_pTimeStamp = new char[512];
  record.m_pText = new char[10];
}

TEST(RecordMemoryTest, RecordsOfAnArrayFreeTheirArrays) {
  auto many = std::make_unique<OutDataUnit[]>(3);
  for (std::size_t i = 0; i < 3; ++i) {
    many[i].m_pTimeStamp = new char[512];
    many[i].m_pText = new char[200];
  }

  many.reset();

  EXPECT_EQ(IdleNodesInDepot(), 0U);
}

TEST(RecordMemoryTest, ARecordTakes512BytesWithItsArraysAndItsBlock) { EXPECT_EQ(sizeof(RecordNode), 512U); }

TEST(RecordMemoryTest, WritingEachLineTouchesTheEndOfFourLinesAndNoLink) {
  RecordNode node;
  RecordNode other;
  node.next = &other;
  node.next_bunch = &other;
  std::fill(std::begin(node.stamp), std::end(node.stamp), 'x');
  std::fill(std::begin(node.text), std::end(node.text), 'x');
  std::fill(std::begin(node.record), std::end(node.record), std::byte{1});

  WriteEachLine(node);

  EXPECT_EQ(node.record[47], std::byte{0});
  EXPECT_EQ(std::count(std::begin(node.record), std::end(node.record), std::byte{0}), 1);
  EXPECT_EQ(node.stamp[15], '\0');
  EXPECT_EQ(std::count(std::begin(node.stamp), std::end(node.stamp), '\0'), 1);
  EXPECT_EQ(node.text[47], '\0');
  EXPECT_EQ(node.text[111], '\0');
  EXPECT_EQ(std::count(std::begin(node.text), std::end(node.text), '\0'), 2);
  EXPECT_EQ(node.next, &other);
  EXPECT_EQ(node.next_bunch, &other);
  EXPECT_EQ(node.block.data_block(), &node.data);
}

TEST(RecordMemoryTest, TheOtherFormsOfNewWork) {
  std::unique_ptr<OutDataUnit> const quiet(new (std::nothrow) OutDataUnit);
  alignas(OutDataUnit) std::byte memory[sizeof(OutDataUnit)];
  auto* const placed = new (memory) OutDataUnit;

  EXPECT_NE(quiet, nullptr);
  EXPECT_EQ(static_cast<void*>(placed), memory);
  placed->~OutDataUnit();
}

TEST(RecordMemoryTest, ANodeWrapsItsRecordInItsBlock) {
  auto const record = std::make_unique<OutDataUnit>();
  RecordNode* const node = NodeOf(record.get());

  EXPECT_EQ(reinterpret_cast<OutDataUnit*>(node->block.base()), record.get());
  EXPECT_EQ(node->block.size(), sizeof(OutDataUnit));
  EXPECT_EQ(node->block.msg_priority(), 0U);
  EXPECT_EQ(RecordOfNodeBlock(&node->block), record.get());
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(node) % 64, 0U) << "a node begins where a cache line begins";
}

TEST(RecordMemoryTest, AnotherBlockIsNoNodesOwn) {
  auto* const block = new ACE_Message_Block(10);

  EXPECT_EQ(RecordOfNodeBlock(block), nullptr);

  block->release();
}

}  // namespace
}  // namespace velt::test
