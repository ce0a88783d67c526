#include "debug/channel/record_recycler.h"

#include <pthread.h>

#include <atomic>
#include <climits>
#include <mutex>
#include <new>
#include <utility>

#include "debug/channel/record_node.h"

#if defined(__SANITIZE_ADDRESS__)
#define VELT_ADDRESS_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VELT_ADDRESS_SANITIZER
#endif
#endif
#ifdef VELT_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace velt {
namespace {

constexpr std::size_t kChainLength = 128;
constexpr std::size_t kMostChains = 1024;
constexpr std::size_t kIdleChains = 16;
constexpr std::size_t kMadeForOneChain = 16 * kChainLength;  // by callers, for one in reserve
constexpr std::size_t kGrowthNodes = 64;
constexpr std::size_t kCacheLine = 64;
constexpr std::size_t kHotBytes = 384;  // of a node, as far as a usual record reaches

// The allocator does not see that an idle node is nobody's, so the address sanitizer is told: it then reports
// who touches a record, or its arrays, after its deletion. The links of chains stay in use.
void ForbidUse([[maybe_unused]] RecordNode* node) noexcept {
#ifdef VELT_ADDRESS_SANITIZER
  ASAN_POISON_MEMORY_REGION(node, sizeof *node);
  ASAN_UNPOISON_MEMORY_REGION(&node->next, sizeof node->next);
  ASAN_UNPOISON_MEMORY_REGION(&node->next_chain, sizeof node->next_chain);
#endif
}

void AllowUse([[maybe_unused]] RecordNode* node) noexcept {
#ifdef VELT_ADDRESS_SANITIZER
  ASAN_UNPOISON_MEMORY_REGION(node, sizeof *node);
#endif
}

struct Chain {
  RecordNode* head = nullptr;
  std::size_t length = 0;

  void Push(RecordNode* node) noexcept {
    node->next = head;
    head = node;
    ++length;
    ForbidUse(node);
  }
  RecordNode* Pop() noexcept {
    RecordNode* const node = head;
    head = node->next;
    --length;
    AllowUse(node);
    return node;
  }
};

void FreeAll(RecordNode* head) noexcept {
  while (head != nullptr) {
    RecordNode* const node = std::exchange(head, head->next);
    AllowUse(node);
    delete node;
  }
}

// One thread's idle nodes: two chains, so that a thread at the edge of one does not go to the depot for every
// record.
struct ThreadNodes {
  Chain current;
  Chain spare;
  std::size_t made = 0;           // nodes that the depot did not have
  ThreadNodes* before = nullptr;  // in the list of all threads' nodes, under the depot's lock
  ThreadNodes* after = nullptr;
};

struct Depot {
  std::mutex lock;
  RecordNode* chains = nullptr;             // under the lock; whole chains, linked by next_chain
  std::atomic<std::size_t> chain_count{0};  // under the lock; relaxed readers only decide whether to look
  ThreadNodes* threads = nullptr;           // under the lock; lets leak checkers find every thread's nodes
};

// Never destroyed: threads trace while the process exits.
Depot depot;
static_assert(std::is_trivially_destructible_v<std::mutex>);

// Relaxed: a hint to the output threads.
std::atomic<std::size_t> made_by_callers{0};

// Nodes of threads that a forked child does not have; for leak checkers. Under the depot's lock.
ThreadNodes* gone_threads = nullptr;

enum class ThreadState : unsigned char { kNew, kOpen, kEnded };

// Small and of the initial-exec kind: reaching them is one instruction, and there is room for them even when
// the library is loaded by dlopen.
[[gnu::tls_model("initial-exec")]] thread_local ThreadNodes* mine = nullptr;
[[gnu::tls_model("initial-exec")]] thread_local ThreadState state = ThreadState::kNew;

void Link(ThreadNodes* nodes) noexcept {
  nodes->before = nullptr;
  nodes->after = depot.threads;
  if (nodes->after != nullptr) nodes->after->before = nodes;
  depot.threads = nodes;
}

void Unlink(ThreadNodes* nodes) noexcept {
  (nodes->before != nullptr ? nodes->before->after : depot.threads) = nodes->after;
  if (nodes->after != nullptr) nodes->after->before = nodes->before;
}

void GiveChain(RecordNode* head) noexcept {
  {
    std::lock_guard<std::mutex> const guard(depot.lock);
    std::size_t const count = depot.chain_count.load(std::memory_order_relaxed);
    if (count < kMostChains) {
      head->next_chain = depot.chains;
      depot.chains = head;
      depot.chain_count.store(count + 1, std::memory_order_relaxed);
      return;
    }
  }
  FreeAll(head);
}

// A whole chain, or an empty one.
Chain TakeChain() noexcept {
  if (depot.chain_count.load(std::memory_order_relaxed) == 0) return {};
  std::lock_guard<std::mutex> const guard(depot.lock);
  RecordNode* const head = depot.chains;
  if (head == nullptr) return {};
  depot.chains = head->next_chain;
  depot.chain_count.fetch_sub(1, std::memory_order_relaxed);
  return {head, kChainLength};
}

// Callers come here when a burst needs more nodes than any before it. `nodes` may be null.
RecordNode* NewNode(ThreadNodes* nodes) {
  if (nodes != nullptr && nodes->made++ % kGrowthNodes == 0) {
    // Has the C library extend this thread's heap once for many nodes: page by page, the system calls of that
    // are most of what a new node costs.
    ::operator delete(::operator new(kGrowthNodes * sizeof(RecordNode), std::nothrow));
  }
  auto* const node = new RecordNode;
  made_by_callers.fetch_add(1, std::memory_order_relaxed);
  return node;
}

// Runs when a thread ends, after the destructors of its thread_local objects.
void CloseThread(void* thread_nodes) noexcept {
  state = ThreadState::kEnded;  // what runs later may still trace
  mine = nullptr;
  auto* const nodes = static_cast<ThreadNodes*>(thread_nodes);
  {
    std::lock_guard<std::mutex> const guard(depot.lock);
    Unlink(nodes);
  }
  // Full chains are worth handing on; a rest is not worth counting.
  for (Chain const& chain : {nodes->current, nodes->spare}) {
    chain.length == kChainLength ? GiveChain(chain.head) : FreeAll(chain.head);
  }
  delete nodes;
}

// A key and not a thread_local object with a destructor: registering that allocates, once per thread, what a
// forked child can neither free nor reach. Made under the depot's lock, which is held over a fork: a child
// would wait for ever for a function's own static that another thread was making.
bool CloseAtThreadEnd(ThreadNodes* nodes) noexcept {
  static bool tried = false;
  static pthread_key_t key = PTHREAD_KEYS_MAX;  // which is none
  std::lock_guard<std::mutex> const guard(depot.lock);
  if (!tried && pthread_key_create(&key, &CloseThread) != 0) key = PTHREAD_KEYS_MAX;
  tried = true;
  return pthread_setspecific(key, nodes) == 0;
}

// Null when the thread is at its end, or when there is no memory: its nodes then come and go one by one.
ThreadNodes* OpenThread() noexcept {
  if (state == ThreadState::kEnded) return nullptr;
  auto* const nodes = new (std::nothrow) ThreadNodes;
  if (nodes == nullptr) return nullptr;
  if (!CloseAtThreadEnd(nodes)) {
    delete nodes;
    return nullptr;
  }
  {
    std::lock_guard<std::mutex> const guard(depot.lock);
    Link(nodes);
  }
  state = ThreadState::kOpen;
  mine = nodes;
  return nodes;
}

// Brings the lines that the next trace call of this thread will write into this core's cache, while this call
// formats: they were last written by the output thread.
void Prefetch(RecordNode* node) noexcept {
  if (node == nullptr) return;
  auto* const from = reinterpret_cast<char*>(node);
  for (std::size_t at = 0; at < kHotBytes; at += kCacheLine) __builtin_prefetch(from + at, 1);
}

}  // namespace

RecordNode* TakeNode() {
  ThreadNodes* const nodes = mine != nullptr ? mine : OpenThread();
  if (nodes == nullptr) return NewNode(nodes);
  if (nodes->current.head == nullptr) std::swap(nodes->current, nodes->spare);
  if (nodes->current.head == nullptr) nodes->current = TakeChain();
  if (nodes->current.head == nullptr) return NewNode(nodes);
  RecordNode* const node = nodes->current.Pop();
  Prefetch(nodes->current.head);
  return node;
}

void GiveNode(RecordNode* node) noexcept {
  ThreadNodes* const nodes = mine != nullptr ? mine : OpenThread();
  if (nodes == nullptr) {
    delete node;
    return;
  }
  if (nodes->current.length == kChainLength) {
    if (nodes->spare.length == kChainLength) {
      GiveChain(nodes->spare.head);
      nodes->spare = {};
    }
    std::swap(nodes->current, nodes->spare);
  }
  nodes->current.Push(node);
}

bool IdleNodesToTrim() noexcept { return depot.chain_count.load(std::memory_order_relaxed) > kIdleChains; }

void TrimIdleNodes() noexcept {
  if (IdleNodesToTrim()) FreeAll(TakeChain().head);
}

void StockIdleNodes() noexcept {
  // In one step: of two output threads that see the same nodes only one makes a chain for them.
  std::size_t made = made_by_callers.load(std::memory_order_relaxed);
  do {
    if (made < kMadeForOneChain) return;
  } while (!made_by_callers.compare_exchange_weak(made, made - kMadeForOneChain, std::memory_order_relaxed));
  Chain chain;
  while (chain.length < kChainLength) {
    auto* const node = new (std::nothrow) RecordNode;
    if (node == nullptr) {
      FreeAll(chain.head);
      return;
    }
    chain.Push(node);
  }
  GiveChain(chain.head);
}

bool IdleNodesToStock() noexcept {
  return made_by_callers.load(std::memory_order_relaxed) >= kMadeForOneChain;
}

std::size_t IdleNodesInDepot() noexcept {
  return depot.chain_count.load(std::memory_order_relaxed) * kChainLength;
}

void LockIdleNodes() noexcept { depot.lock.lock(); }

void UnlockIdleNodes() noexcept { depot.lock.unlock(); }

void KeepOwnIdleNodesInChild() noexcept {
  if (mine != nullptr) Unlink(mine);
  // What an earlier fork left comes after what this one leaves.
  ThreadNodes** end = &depot.threads;
  while (*end != nullptr) end = &(*end)->after;
  *end = gone_threads;
  gone_threads = std::exchange(depot.threads, nullptr);
  if (mine != nullptr) Link(mine);
  depot.lock.unlock();
}

}  // namespace velt
