#include "debug/channel/record_recycler.h"

#include <atomic>
#include <chrono>
#include <mutex>
#include <new>
#include <type_traits>
#include <utility>

#include "debug/channel/record_node.h"
#include "platform/thread_object.h"

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

constexpr std::size_t kBunchLength = 8;
constexpr std::size_t kBunchesOfChain = 16;
constexpr std::size_t kMostIdle = 131'072;  // a full queue's worth
constexpr std::size_t kIdleKept = 2'048;
constexpr std::chrono::seconds kBetweenShrinks(5);
constexpr std::size_t kMadeForOneChain =
    16 * kBunchesOfChain * kBunchLength;  // by callers, for one in reserve
constexpr std::size_t kGrowthNodes = 64;
constexpr std::size_t kCacheLine = 64;
constexpr std::size_t kHotBytes = 320;  // of a node, as far as a usual record reaches

// The allocator does not see that an idle node is not in use, so the address sanitizer is told: it then
// reports who touches a record, or its arrays, after its deletion. The links of chains stay in use.
void ForbidUse([[maybe_unused]] RecordNode* node) noexcept {
#ifdef VELT_ADDRESS_SANITIZER
  ASAN_POISON_MEMORY_REGION(node, sizeof *node);
  ASAN_UNPOISON_MEMORY_REGION(&node->next, sizeof node->next);
  ASAN_UNPOISON_MEMORY_REGION(&node->next_bunch, sizeof node->next_bunch);
  ASAN_UNPOISON_MEMORY_REGION(&node->next_chain, sizeof node->next_chain);
  ASAN_UNPOISON_MEMORY_REGION(&node->bunches, sizeof node->bunches);
#endif
}

void AllowUse([[maybe_unused]] RecordNode* node) noexcept {
#ifdef VELT_ADDRESS_SANITIZER
  ASAN_UNPOISON_MEMORY_REGION(node, sizeof *node);
#endif
}

// Nodes linked by `next`.
struct Bunch {
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

void FreeBunch(RecordNode* head) noexcept {
  while (head != nullptr) {
    RecordNode* const node = std::exchange(head, head->next);
    AllowUse(node);
    delete node;
  }
}

void FreeChain(RecordNode* head) noexcept {
  while (head != nullptr) FreeBunch(std::exchange(head, head->next_bunch));
}

// Whole bunches, as one chain that is linked by `next_bunch`.
struct Depot {
  std::mutex lock;
  RecordNode* chains = nullptr;       // under the lock; linked by `next_chain`
  std::atomic<std::size_t> nodes{0};  // written under the lock; relaxed readers only decide whether to look
  std::atomic<bool> threads_keep{
      false};  // relaxed, a hint: some thread has kept a bunch since the last shrinking
};

// Never destroyed: threads trace while the process exits.
Depot depot;
static_assert(std::is_trivially_destructible_v<Depot>);

// Relaxed: a hint to the output threads.
std::atomic<std::size_t> made_by_callers{0};

// `head` may be null.
void GiveChain(RecordNode* head) noexcept {
  std::size_t bunches = 0;
  for (RecordNode const* bunch = head; bunch != nullptr; bunch = bunch->next_bunch) ++bunches;
  if (bunches == 0) return;
  {
    std::lock_guard<std::mutex> const guard(depot.lock);
    std::size_t const nodes = depot.nodes.load(std::memory_order_relaxed) + bunches * kBunchLength;
    if (nodes <= kMostIdle) {
      head->bunches = bunches;
      head->next_chain = depot.chains;
      depot.chains = head;
      depot.nodes.store(nodes, std::memory_order_relaxed);
      return;
    }
  }
  FreeChain(head);
}

// Null when there is none.
RecordNode* TakeChain() noexcept {
  if (depot.nodes.load(std::memory_order_relaxed) == 0) return nullptr;
  std::lock_guard<std::mutex> const guard(depot.lock);
  RecordNode* const head = depot.chains;
  if (head == nullptr) return nullptr;
  depot.chains = head->next_chain;
  depot.nodes.fetch_sub(head->bunches * kBunchLength, std::memory_order_relaxed);
  return head;
}

// Brings the lines that the next trace call of this thread will write into this core's cache, while this call
// formats: they were last written by the output thread. A node that another thread takes meanwhile does no
// harm.
void Prefetch(RecordNode* node) noexcept {
  if (node == nullptr) return;
  auto* const from = reinterpret_cast<char*>(node);
  for (std::size_t at = 0; at < kHotBytes; at += kCacheLine) __builtin_prefetch(from + at, 1);
}

// One thread's idle nodes: less than two bunches at hand, and a chain that other threads may empty.
class ThreadNodes final : public ThreadObject {
 public:
  RecordNode* Take() noexcept;  // null when neither the thread nor the depot has one
  void Give(RecordNode* node) noexcept;
  bool MadeOne() noexcept { return made_++ % kGrowthNodes == 0; }  // true when the heap is to grow

  void AtThreadEnd() noexcept override;
  // Acquire: the chain's links, as the thread wrote them.
  void Shrink() noexcept override { GiveChain(chain_.exchange(nullptr, std::memory_order_acquire)); }

 private:
  bool TakeBunch() noexcept;
  void GiveBunch(RecordNode* head) noexcept;
  void Keep(RecordNode* chain, std::size_t bunches) noexcept;

  Bunch current_;  // this thread's, like `spare_`: two, so that a thread at the edge of one does not move
                   // bunches
  Bunch spare_;    // for every record
  std::atomic<RecordNode*> chain_{nullptr};  // filled by this thread, emptied by any
  std::size_t bunches_ = 0;                  // in the chain, as this thread left it
  std::size_t made_ = 0;                     // nodes that the depot did not have
};

[[gnu::tls_model("initial-exec")]] thread_local ThreadNodes* mine = nullptr;

RecordNode* ThreadNodes::Take() noexcept {
  if (current_.head == nullptr) std::swap(current_, spare_);
  if (current_.head == nullptr && !TakeBunch()) return nullptr;
  RecordNode* const node = current_.Pop();
  RecordNode* following = current_.head;
  if (following == nullptr) following = spare_.head;
  // Relaxed: only its address is used.
  if (following == nullptr) following = chain_.load(std::memory_order_relaxed);
  Prefetch(following);
  return node;
}

bool ThreadNodes::TakeBunch() noexcept {
  // Acquire: another thread may have linked the chain. While this one has it in hand, who shrinks finds
  // nothing. Asked first: an exchange costs ten times a load, and a burst of new nodes comes here for each.
  RecordNode* head = nullptr;
  if (chain_.load(std::memory_order_relaxed) != nullptr) {
    head = chain_.exchange(nullptr, std::memory_order_acquire);
  }
  if (head == nullptr) {
    head = TakeChain();
    if (head == nullptr) return false;
    bunches_ = head->bunches;
  }
  current_ = {head, kBunchLength};
  Keep(head->next_bunch, bunches_ - 1);
  return true;
}

void ThreadNodes::Give(RecordNode* node) noexcept {
  if (current_.length == kBunchLength) {
    if (spare_.length == kBunchLength) {
      GiveBunch(spare_.head);
      spare_ = {};
    }
    std::swap(current_, spare_);
  }
  current_.Push(node);
}

void ThreadNodes::Keep(RecordNode* chain, std::size_t bunches) noexcept {
  bunches_ = bunches;
  chain_.store(chain, std::memory_order_release);
  if (chain != nullptr && !depot.threads_keep.load(std::memory_order_relaxed)) {
    depot.threads_keep.store(true, std::memory_order_relaxed);
  }
}

// A process that is never quiet has idle threads as well.
void ShrinkWhenDue() noexcept {
  using Clock = std::chrono::steady_clock;
  static std::atomic<Clock::rep> due{0};  // relaxed: it keeps two threads from doing the same, no more
  Clock::rep const now = Clock::now().time_since_epoch().count();
  Clock::rep expected = due.load(std::memory_order_relaxed);
  Clock::rep const next = now + Clock::duration(kBetweenShrinks).count();
  if (now < expected || !due.compare_exchange_strong(expected, next, std::memory_order_relaxed)) return;
  ShrinkThreadObjects();
}

void ThreadNodes::GiveBunch(RecordNode* head) noexcept {
  head->next_bunch = chain_.exchange(nullptr, std::memory_order_acquire);
  std::size_t const bunches = head->next_bunch == nullptr ? 1 : bunches_ + 1;
  if (bunches < kBunchesOfChain) {
    Keep(head, bunches);
    return;
  }
  GiveChain(head);
  ShrinkWhenDue();
}

void ThreadNodes::AtThreadEnd() noexcept {
  mine = nullptr;
  Shrink();
  // Whole bunches are worth handing on; a rest is not worth counting.
  for (Bunch const& bunch : {current_, spare_}) {
    if (bunch.length == kBunchLength) {
      bunch.head->next_bunch = nullptr;
      GiveChain(bunch.head);
    } else {
      FreeBunch(bunch.head);
    }
  }
  delete this;
}

// Null when the thread is at its end, or when there is no memory: its nodes then come and go one by one.
ThreadNodes* OpenThread() noexcept {
  if (ThreadEnds()) return nullptr;
  auto* const nodes = new (std::nothrow) ThreadNodes;
  if (nodes == nullptr) return nullptr;
  if (!KeepUntilThreadEnd(*nodes)) {
    delete nodes;
    return nullptr;
  }
  mine = nodes;
  return nodes;
}

// Callers come here when a burst needs more nodes than any before it. `nodes` may be null.
RecordNode* NewNode(ThreadNodes* nodes) {
  if (nodes != nullptr && nodes->MadeOne()) {
    // Has the C library extend this thread's heap once for many nodes: page by page, the system calls of that
    // are most of what a new node costs.
    ::operator delete(::operator new(kGrowthNodes * sizeof(RecordNode), std::nothrow));
  }
  auto* const node = new RecordNode;
  made_by_callers.fetch_add(1, std::memory_order_relaxed);
  return node;
}

// A full one; null without memory.
RecordNode* NewBunch() noexcept {
  Bunch bunch;
  while (bunch.length < kBunchLength) {
    auto* const node = new (std::nothrow) RecordNode;
    if (node == nullptr) {
      FreeBunch(bunch.head);
      return nullptr;
    }
    bunch.Push(node);
  }
  return bunch.head;
}

}  // namespace

RecordNode* TakeNode() {
  ThreadNodes* const nodes = mine != nullptr ? mine : OpenThread();
  RecordNode* const node = nodes == nullptr ? nullptr : nodes->Take();
  return node != nullptr ? node : NewNode(nodes);
}

void GiveNode(RecordNode* node) noexcept {
  ThreadNodes* const nodes = mine != nullptr ? mine : OpenThread();
  if (nodes == nullptr) {
    delete node;
  } else {
    nodes->Give(node);
  }
}

bool IdleNodesToTrim() noexcept {
  return depot.nodes.load(std::memory_order_relaxed) > kIdleKept ||
         depot.threads_keep.load(std::memory_order_relaxed);
}

void TrimIdleNodes() noexcept {
  // First: what threads keep after this is seen by the next trimming.
  if (depot.threads_keep.exchange(false, std::memory_order_relaxed)) ShrinkThreadObjects();
  if (depot.nodes.load(std::memory_order_relaxed) > kIdleKept) FreeChain(TakeChain());
}

void StockIdleNodes() noexcept {
  // In one step: of two output threads that see the same nodes only one makes a chain for them.
  std::size_t made = made_by_callers.load(std::memory_order_relaxed);
  do {
    if (made < kMadeForOneChain) return;
  } while (!made_by_callers.compare_exchange_weak(made, made - kMadeForOneChain, std::memory_order_relaxed));
  RecordNode* chain = nullptr;
  for (std::size_t i = 0; i < kBunchesOfChain; ++i) {
    RecordNode* const bunch = NewBunch();
    if (bunch == nullptr) {
      FreeChain(chain);
      return;
    }
    bunch->next_bunch = std::exchange(chain, bunch);
  }
  GiveChain(chain);
}

bool IdleNodesToStock() noexcept {
  return made_by_callers.load(std::memory_order_relaxed) >= kMadeForOneChain;
}

std::size_t IdleNodesInDepot() noexcept { return depot.nodes.load(std::memory_order_relaxed); }

void LockIdleNodes() noexcept { depot.lock.lock(); }

void UnlockIdleNodes() noexcept { depot.lock.unlock(); }

}  // namespace velt
