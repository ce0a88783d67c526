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
constexpr std::size_t kMostIdle = 131'072;  // as many as a full queue holds
constexpr std::size_t kIdleKept = 2'048;
constexpr std::chrono::seconds kBetweenShrinks(5);
// For so many nodes that callers have allocated, one chain is made in reserve.
constexpr std::size_t kMadeForOneChain = 16 * kBunchesOfChain * kBunchLength;
constexpr std::size_t kGrowthNodes = 64;
constexpr std::size_t kCacheLine = 64;
constexpr std::size_t kHotBytes = 320;  // the part of a node that a usual record uses

// Tells the address sanitizer that an idle node is not in use, which the allocator cannot know: it then
// reports uses of a deleted record and its arrays. The links of chains stay in use.
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
  // Whether some thread has kept a bunch since the last shrinking. Relaxed: a hint.
  std::atomic<bool> threads_keep{false};
};

// Never destroyed: threads may still trace while the process exits.
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

// Prefetches the cache lines that this thread's next trace call will write, while this call formats; the
// output thread wrote them last. It does no harm if another thread takes the node meanwhile.
void Prefetch(RecordNode* node) noexcept {
  if (node == nullptr) return;
  auto* const from = reinterpret_cast<char*>(node);
  for (std::size_t at = 0; at < kHotBytes; at += kCacheLine) __builtin_prefetch(from + at, 1);
}

// One thread's idle nodes: up to two bunches that only it uses, and a chain that other threads may take.
class ThreadNodes final : public ThreadObject {
 public:
  RecordNode* Take() noexcept;  // null when neither the thread nor the depot has one
  void Give(RecordNode* node) noexcept;
  bool MadeOne() noexcept { return made_++ % kGrowthNodes == 0; }  // true when the heap is to grow

  void AtThreadEnd() noexcept override;
  // Acquire: the chain's links are seen as the thread wrote them.
  void Shrink() noexcept override { GiveChain(chain_.exchange(nullptr, std::memory_order_acquire)); }

 private:
  bool TakeBunch() noexcept;
  void GiveBunch(RecordNode* head) noexcept;
  void Keep(RecordNode* chain, std::size_t bunches) noexcept;

  // Only this thread uses these. With one bunch, a thread that takes and gives nodes in turn could move a
  // bunch for every record.
  Bunch current_;
  Bunch spare_;
  std::atomic<RecordNode*> chain_{nullptr};  // filled by this thread, emptied by any
  std::size_t bunches_ = 0;                  // in the chain when this thread stored it
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
  // Acquire: another thread may have linked the chain. While this thread has taken it, Shrink finds none. The
  // load comes first, since an exchange costs ten times as much and a burst of new nodes comes here each
  // time.
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
  WriteEachLine(*node);
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

// For processes that always trace: some of their threads may be idle all the same.
void ShrinkWhenDue() noexcept {
  using Clock = std::chrono::steady_clock;
  static std::atomic<Clock::rep> due{0};  // relaxed: it only keeps two threads from doing the same work
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
  // Full bunches go to the depot; the depot counts full bunches only, so the rest is freed.
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

// Makes `mine`. Null when the thread is ending or memory has run out: its nodes are then allocated and freed
// one by one.
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

// Allocates a node, when there are more records at a time than ever before. `nodes` may be null.
RecordNode* NewNode(ThreadNodes* nodes) {
  if (nodes != nullptr && nodes->MadeOne()) {
    // Makes the C library extend this thread's heap once for many nodes. Extending it page by page takes
    // system calls, which are most of the cost of a new node.
    ::operator delete(::operator new(kGrowthNodes * sizeof(RecordNode), std::nothrow));
  }
  auto* const node = new RecordNode;
  made_by_callers.fetch_add(1, std::memory_order_relaxed);
  return node;
}

// A full bunch; null when memory runs out.
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
  // The mark is cleared first: bunches that threads keep after this set it again for the next call.
  if (depot.threads_keep.exchange(false, std::memory_order_relaxed)) ShrinkThreadObjects();
  if (depot.nodes.load(std::memory_order_relaxed) > kIdleKept) FreeChain(TakeChain());
}

void StockIdleNodes() noexcept {
  // One atomic step, so that only one of two output threads that see the same count makes a chain for it.
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
