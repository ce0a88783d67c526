// No memory for records, and threads whose idle records cannot be kept: records are then allocated and freed
// one by one, and nothing is lost or freed twice.
#include <gtest/gtest.h>
#include <pthread.h>

#include <dlfcn.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "velt/channel.h"

#include "debug/channel/record_node.h"
#include "debug/channel/record_recycler.h"
#include "tests/support/channel.h"
#include "tests/support/failing_allocations.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace {

// Calls of this thread that fail.
thread_local bool key_create_fails = false;
thread_local bool setspecific_fails = false;

}  // namespace

// These functions may run before a sanitizer is ready: they are not instrumented, and use nothing that needs
// initialisation.
#define VELT_REPLACED \
  extern "C" __attribute__((visibility("default"), no_sanitize("thread", "address", "undefined")))

VELT_REPLACED int pthread_key_create(pthread_key_t* key, void (*destructor)(void*)) noexcept {
  if (key_create_fails) return EAGAIN;
  return reinterpret_cast<int (*)(pthread_key_t*, void (*)(void*))>(dlsym(RTLD_NEXT, "pthread_key_create"))(
      key, destructor);
}

VELT_REPLACED int pthread_setspecific(pthread_key_t key, void const* value) noexcept {
  if (setspecific_fails) return ENOMEM;
  return reinterpret_cast<int (*)(pthread_key_t, void const*)>(dlsym(RTLD_NEXT, "pthread_setspecific"))(
      key, value);
}

namespace velt::test {
namespace {

using Records = std::vector<std::unique_ptr<OutDataUnit>>;

void MakeAndFree(std::size_t count) {
  Records records;
  for (std::size_t i = 0; i < count; ++i) records.push_back(std::make_unique<OutDataUnit>());
}

std::string TextIn(ScratchDir const& dir) {
  std::string text;
  for (auto const& name : ListDir(dir.Path())) text += ReadFile(dir / name);
  return text;
}

TEST(RecordFaultTest, WithoutMemoryARecordThrowsOrIsNullAndTheNextOneIsMade) {
  auto const in_use = std::make_unique<OutDataUnit>();  // the thread's own list is allocated now
  bool threw = false;
  {
    FailingAllocation const failing(1);
    try {
      delete new OutDataUnit;
    } catch (std::bad_alloc const&) {
      threw = true;
    }
  }
  FailingAllocation const failing(1);
  std::unique_ptr<OutDataUnit> const quiet(new (std::nothrow) OutDataUnit);
  auto const next = std::make_unique<OutDataUnit>();

  EXPECT_TRUE(threw);
  EXPECT_EQ(quiet, nullptr);
  EXPECT_NE(next, nullptr);
}

TEST(RecordFaultTest, AThreadThatCannotKeepRecordsGivesEachBackToTheAllocator) {
  long live_in_use = 0;
  long live_afterwards = -1;
  {
    FailingAllocation const failing(1);  // the thread's own list
    auto record = std::make_unique<OutDataUnit>();
    ASSERT_TRUE(failing.Failed());
    live_in_use = LiveAlignedAllocations();
    FailingAllocation const again(1);
    record.reset();
    live_afterwards = LiveAlignedAllocations();
  }

  EXPECT_EQ(live_in_use, 1);
  EXPECT_EQ(live_afterwards, 0);
}

TEST(RecordFaultTest, AThreadThatCannotBeWatchedKeepsNoRecords) {
  setspecific_fails = true;
  MakeAndFree(300);
  setspecific_fails = false;
  long const kept_unwatched = LiveAlignedAllocations();

  MakeAndFree(1);

  EXPECT_EQ(kept_unwatched, 0);
  EXPECT_EQ(LiveAlignedAllocations(), 1) << "the next one is kept";
}

TEST(RecordFaultTest, WithoutAKeyNoThreadEverKeepsRecords) {
  key_create_fails = true;
  MakeAndFree(300);
  key_create_fails = false;

  MakeAndFree(300);
  std::thread([] { MakeAndFree(300); }).join();

  EXPECT_EQ(LiveAlignedAllocations(), 0);
  EXPECT_EQ(IdleNodesInDepot(), 0U);
}

TEST(RecordFaultTest, AChannelWritesItsRecordsInAProcessWithoutAKey) {
  key_create_fails = true;
  MakeAndFree(1);
  key_create_fails = false;
  ScratchDir const dir;
  ChannelSetup setup(dir.Path());
  setup.ring = 1;
  auto channel = MakeChannel(setup);

  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(channel->Trace("m", VeltLogLevel{3}, "filtered", nullptr, false, false));
    ASSERT_TRUE(channel->Trace("m", VeltLogLevel{3}, "written", nullptr, false, true));
  }
  channel.reset();

  EXPECT_EQ(CountOf(TextIn(dir), " m I: written\n"), 3U);
  EXPECT_EQ(LiveAlignedAllocations(), 0);
}

// Aligned allocations at the end of a thread, after its list was closed.
long live_at_the_end = -1;
long kept_at_the_end = -1;

void MakeRecordsAtTheEnd(void* /*value*/) {
  long const before = LiveAlignedAllocations();
  {
    auto const record = std::make_unique<OutDataUnit>();
    live_at_the_end = LiveAlignedAllocations() - before;
  }
  kept_at_the_end = LiveAlignedAllocations() - before;
}

TEST(RecordFaultTest, AThreadAtItsEndMayStillMakeRecords) {
  MakeAndFree(1);  // the library's key is made before ours, and is cleaned up before it
  pthread_key_t key = 0;
  ASSERT_EQ(pthread_key_create(&key, &MakeRecordsAtTheEnd), 0);

  std::thread([key] {
    MakeAndFree(7);
    pthread_setspecific(key, &live_at_the_end);
  }).join();

  EXPECT_EQ(live_at_the_end, 1);
  EXPECT_EQ(kept_at_the_end, 0);
  EXPECT_EQ(LiveAlignedAllocations(), 1) << "this thread's own; the seven of the other went with it";
  pthread_key_delete(key);
}

TEST(RecordFaultTest, AReserveThatFindsNoMemoryIsGivenUpWhole) {
  Records records;
  for (int i = 0; i < 2048; ++i) records.push_back(std::make_unique<OutDataUnit>());
  ASSERT_TRUE(IdleNodesToStock());
  long const before = LiveAlignedAllocations();
  {
    FailingAllocation const failing(50);
    StockIdleNodes();
    EXPECT_TRUE(failing.Failed());
  }

  EXPECT_EQ(LiveAlignedAllocations(), before);
  EXPECT_EQ(IdleNodesInDepot(), 0U);
  EXPECT_FALSE(IdleNodesToStock()) << "it is not tried again and again";
}

TEST(RecordFaultTest, NoReserveIsMadeBeforeCallersHaveMadeSixteenChains) {
  Records records;
  for (int i = 0; i < 2047; ++i) records.push_back(std::make_unique<OutDataUnit>());
  StockIdleNodes();
  EXPECT_EQ(IdleNodesInDepot(), 0U);

  records.push_back(std::make_unique<OutDataUnit>());
  StockIdleNodes();

  EXPECT_EQ(IdleNodesInDepot(), 128U);
}

TEST(RecordFaultTest, ThreadsThatMakeAReserveAtOnceCountEachNodeOnce) {
  for (int round = 0; round < 300; ++round) {
    Records records;
    while (!IdleNodesToStock()) records.push_back(std::make_unique<OutDataUnit>());
    std::size_t const before = IdleNodesInDepot();
    std::atomic<int> waiting{2};
    auto const stock = [&waiting] {
      for (--waiting; waiting > 0;) {  // no yield: both must go on at the same moment
      }
      StockIdleNodes();
    };
    std::thread other(stock);
    stock();
    other.join();

    ASSERT_FALSE(IdleNodesToStock()) << round;
    ASSERT_EQ(IdleNodesInDepot(), before + 128U) << round;
    records.clear();
    while (IdleNodesToTrim()) TrimIdleNodes();
  }
}

// The address of an array does not tell whether it belongs to the record's own memory.
TEST(RecordFaultTest, ARecordFreesAnArrayWhereverThatLies) {
  alignas(64) static char arena[1024];
  std::string not_freed;
  for (std::size_t record_at = 0; record_at < 64; record_at += 8) {
    for (std::size_t array_at = record_at + sizeof(OutDataUnit); array_at < record_at + 512; array_at += 8) {
      WatchedArray const text(&arena[array_at]);
      auto* record = new (&arena[record_at]) OutDataUnit;
      record->m_pText = &arena[array_at];
      record->~OutDataUnit();
      if (text.Deletions() != 1) not_freed += " text at " + std::to_string(array_at - record_at);

      WatchedArray const stamp(&arena[array_at]);
      record = new (&arena[record_at]) OutDataUnit;
      record->m_pTimeStamp = &arena[array_at];
      record->~OutDataUnit();
      if (stamp.Deletions() != 1) not_freed += " stamp at " + std::to_string(array_at - record_at);
    }
  }

  EXPECT_EQ(not_freed, "");
}

// A host, for example to print a record itself, may replace the arrays of a record that a trace call
// made.
TEST(RecordFaultTest, ARecordFreesTheArraysThatReplaceTheOnesItWasMadeWith) {
  char text[8] = "text";
  char stamp[8] = "stamp";
  auto replaced = std::make_unique<OutDataUnit>();
  RecordNode* const node = NodeOf(replaced.get());
  node->LendArrays(*replaced);
  replaced->m_pText = text;
  auto untouched = std::make_unique<OutDataUnit>();
  NodeOf(untouched.get())->LendArrays(*untouched);
  int deletions = 0;
  {
    WatchedArray const watched(text);
    replaced.reset();
    deletions = watched.Deletions();
  }
  {
    WatchedArray const watched(untouched->m_pText);
    untouched.reset();
    EXPECT_EQ(watched.Deletions(), 0);
  }
  auto again = std::make_unique<OutDataUnit>();
  NodeOf(again.get())->LendArrays(*again);
  again->m_pTimeStamp = stamp;
  {
    WatchedArray const watched(stamp);
    again.reset();
    EXPECT_EQ(watched.Deletions(), 1);
  }

  EXPECT_EQ(deletions, 1);
}

TEST(RecordFaultTest, AnIdleThreadKeepsAHandfulOfRecordsAfterABurst) {
  constexpr long kThreads = 100;
  ScratchDir const dir;
  auto channel = MakeChannel(ChannelSetup(dir.Path()));
  MakeAndFree(20'000);
  std::promise<void> checked;
  std::shared_future<void> const end = checked.get_future().share();
  std::atomic<long> traced{0};
  std::vector<std::thread> threads;
  for (long i = 0; i < kThreads; ++i) {
    threads.emplace_back([&channel, &traced, end] {
      channel->Trace("m", VeltLogLevel{3}, "once", nullptr, false, true);
      ++traced;
      end.wait();
    });
  }
  ASSERT_TRUE(WaitUntil([&traced] { return traced == kThreads; }));

  // 16 for each thread, this one and the output thread included, and what the depot keeps while the process
  // is idle.
  bool const given_back = WaitUntil([] { return LiveAlignedAllocations() <= (kThreads + 2) * 16 + 2048; });

  EXPECT_TRUE(given_back) << LiveAlignedAllocations() << " nodes";
  checked.set_value();
  for (auto& thread : threads) thread.join();
}

TEST(RecordFaultTest, AnIdleThreadKeepsAHandfulWhileOthersAreBusy) {
  MakeAndFree(1000);
  std::promise<void> made;
  std::promise<void> checked;
  std::thread idle([&] {
    MakeAndFree(1);
    made.set_value();
    checked.get_future().wait();
  });
  made.get_future().wait();

  bool const given_back = WaitUntil([] {
    MakeAndFree(1000);
    auto const in_depot = static_cast<long>(IdleNodesInDepot());
    // 16 at hand for each thread, and a chain of the busy one.
    return LiveAlignedAllocations() - in_depot <= 16 + 16 + 120;
  });

  EXPECT_TRUE(given_back);
  checked.set_value();
  idle.join();
}

TEST(RecordFaultTest, AHostsRecordThatCannotBeWrappedIsFreedAndTheChannelGoesOn) {
  ScratchDir const dir;
  auto channel = MakeChannel(ChannelSetup(dir.Path()));
  int threw = 0;
  int nth = 1;
  for (bool needed = true; needed; ++nth) {
    OutDataUnit* rec = NewRecord("wrapped");
    FailingAllocation const failing(nth);
    try {
      channel->TraceInner(rec);
    } catch (std::bad_alloc const&) {
      ++threw;
      EXPECT_EQ(rec, nullptr) << nth;
    }
    needed = failing.Failed();
    ASSERT_LT(nth, 100);
  }
  channel.reset();

  EXPECT_GE(threw, 2) << "the block, and its data block";
  EXPECT_EQ(CountOf(TextIn(dir), "wrapped"), static_cast<std::size_t>(nth - 1 - threw));
}

}  // namespace
}  // namespace velt::test
