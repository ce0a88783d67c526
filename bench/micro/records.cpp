// Memory of records and the queue between callers and the output thread, each compared with what it replaces.
#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <thread>
#include <vector>

#include <ace/Message_Block.h>
#include <ace/Message_Queue.h>
#include <ace/Synch_Traits.h>
#include <benchmark/benchmark.h>

#include "debug/channel/record.h"
#include "debug/channel/record_node.h"
#include "debug/channel/record_queue.h"
#include "velt/channel.h"

namespace velt::bench {
namespace {

constexpr std::size_t kBurst = 20'000;
constexpr std::size_t kTextBytes = 120;
using Clock = std::chrono::steady_clock;

// A record with all that a trace call makes for it, as the library makes it: one recycled node.
struct Recycled {
  static ACE_Message_Block* Make() {
    auto* const record = new OutDataUnit;
    RecordNode* const node = NodeOf(record);
    node->LendArrays(*record);
    record->m_pTimeStamp[0] = record->m_pText[0] = '\0';
    return &node->block;
  }
  static void Delete(ACE_Message_Block* block) { DeleteChain(block); }
};

// The same by the allocator: five pieces.
struct Allocated {
  static ACE_Message_Block* Make() {
    auto* const record = ::new (::operator new(sizeof(OutDataUnit))) OutDataUnit;
    record->m_pTimeStamp = new char[kTimeStampCapacity];
    record->m_pText = new char[kTextBytes];
    record->m_pTimeStamp[0] = record->m_pText[0] = '\0';
    return WrapRecord(record).release();
  }
  static void Delete(ACE_Message_Block* block) {
    auto* const record = reinterpret_cast<OutDataUnit*>(block->base());
    block->release();
    record->~OutDataUnit();
    ::operator delete(record);
  }
};

template <typename Memory>
void DeleteInAnotherThread(std::vector<ACE_Message_Block*> const& blocks) {
  std::thread([&blocks] {
    for (auto* const block : blocks) {
      block->next(nullptr);
      Memory::Delete(block);
    }
  }).join();
}

// One thread makes a burst, another deletes it; the time of the making counts.
template <typename Memory>
void MakeRecord(benchmark::State& state) {
  std::vector<ACE_Message_Block*> blocks(kBurst);
  while (state.KeepRunning()) {
    auto const begin = Clock::now();
    for (auto& block : blocks) block = Memory::Make();
    auto const end = Clock::now();
    DeleteInAnotherThread<Memory>(blocks);
    state.SetIterationTime(std::chrono::duration<double>(end - begin).count());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kBurst));
}
BENCHMARK_TEMPLATE(MakeRecord, Recycled)->UseManualTime();
BENCHMARK_TEMPLATE(MakeRecord, Allocated)->UseManualTime();

using Blocks = std::vector<std::unique_ptr<ACE_Message_Block>>;

Blocks MakeBlocks() {
  Blocks blocks(kBurst);
  for (auto& block : blocks) block = std::make_unique<ACE_Message_Block>(sizeof(OutDataUnit));
  return blocks;
}

struct OurQueue {
  velt::RecordQueue queue;

  void Put(ACE_Message_Block* block, ACE_Time_Value& /*deadline*/) { (void)queue.EnqueueRecord(block); }
  std::size_t Take() {
    std::size_t taken = 0;
    for (auto* block = queue.TakeAll(nullptr); block != nullptr; block = block->next()) ++taken;
    if (taken > 1) queue.GiveBack(taken - 1);
    return taken;
  }
};

struct AceQueue {
  ACE_Message_Queue<ACE_MT_SYNCH> queue;

  void Put(ACE_Message_Block* block, ACE_Time_Value& deadline) { (void)queue.enqueue_tail(block, &deadline); }
  std::size_t Take() {
    ACE_Message_Block* block = nullptr;
    return queue.dequeue_head(block) == -1 ? 0 : 1;
  }
};

// A caller queues a burst while the output thread takes it away; until the last one is taken.
template <typename Queue>
void HandOver(benchmark::State& state) {
  Queue queue;
  queue.queue.high_water_mark(100'000'000);
  Blocks const blocks = MakeBlocks();
  ACE_Time_Value deadline = ACE_Time_Value::max_time;
  while (state.KeepRunning()) {
    auto const begin = Clock::now();
    std::thread taker([&queue] {
      for (std::size_t taken = 0; taken < kBurst;) taken += queue.Take();
    });
    for (auto const& block : blocks) queue.Put(block.get(), deadline);
    taker.join();
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - begin).count());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kBurst));
}
BENCHMARK_TEMPLATE(HandOver, OurQueue)->UseManualTime();
BENCHMARK_TEMPLATE(HandOver, AceQueue)->UseManualTime();

}  // namespace
}  // namespace velt::bench
