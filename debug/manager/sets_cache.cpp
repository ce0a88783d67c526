#include "debug/manager/sets_cache.h"

#include <array>
#include <atomic>
#include <cstring>
#include <new>

#include "platform/thread_object.h"

namespace velt {
namespace {

constexpr std::size_t kLongestName = 46;
constexpr std::size_t kGroups = 32;    // each name belongs to one group, by its hash
constexpr std::size_t kGroupSize = 4;  // a fifth name in a group evicts the oldest

template <typename Number>
std::uint64_t Load(char const* at) {
  Number number = 0;
  std::memcpy(&number, at, sizeof number);
  return number;
}

// One cache line.
struct alignas(64) Entry {
  std::uint64_t generation = 0;  // 0: never filled
  std::uint32_t levels = 0;
  std::uint32_t outputs = 0;
  bool known = false;
  unsigned char length = 0;
  std::array<char, kLongestName> name{};
};
static_assert(sizeof(Entry) == 64);

// A call of memcmp costs as much as the rest of a search.
bool IsName(Entry const& entry, std::string const& module) {
  std::size_t const length = module.size();
  if (entry.length != length) return false;
  char const* const kept = entry.name.data();
  char const* const asked = module.data();
  constexpr std::size_t kWord = sizeof(std::uint64_t);
  if (length < kWord) {
    for (std::size_t i = 0; i < length; ++i) {
      if (kept[i] != asked[i]) return false;
    }
    return true;
  }
  for (std::size_t at = 0; at + kWord < length; at += kWord) {
    if (Load<std::uint64_t>(kept + at) != Load<std::uint64_t>(asked + at)) return false;
  }
  return Load<std::uint64_t>(kept + length - kWord) == Load<std::uint64_t>(asked + length - kWord);
}

using Group = std::array<Entry, kGroupSize>;

class ThreadSets final : public ThreadObject {
 public:
  void AtThreadEnd() noexcept override;
  void Shrink() noexcept override {}  // its size is fixed

  std::array<Group, kGroups> groups;
};

// What this thread remembers; null until it stores something, and at its end. Allocated, since 8 KB are too
// much for the thread_local variables of a library that dlopen loads.
[[gnu::tls_model("initial-exec")]] thread_local ThreadSets* mine = nullptr;

void ThreadSets::AtThreadEnd() noexcept {
  mine = nullptr;
  delete this;
}

// Makes `mine`. Null when the thread is ending or memory has run out: it then remembers nothing.
ThreadSets* OpenThread() noexcept {
  if (ThreadEnds()) return nullptr;
  auto* const sets = new (std::nothrow) ThreadSets;
  if (sets == nullptr) return nullptr;
  if (!KeepUntilThreadEnd(*sets)) {
    delete sets;
    return nullptr;
  }
  mine = sets;
  return sets;
}

// Only grows, even when the manager is destroyed and made again. Incremented with release, loaded with
// acquire: a thread that sees the new number looks into the table, whose lock orders the rest.
std::atomic<std::uint64_t> generation_now{1};

// Hashes the first bytes, the last bytes and the length of the name: a few loads, whatever its length.
Group& GroupOf(ThreadSets& sets, std::string const& module) {
  char const* const name = module.data();
  std::size_t const length = module.size();
  std::uint64_t head = 0;
  std::uint64_t tail = 0;
  if (length >= sizeof(std::uint64_t)) {
    head = Load<std::uint64_t>(name);
    tail = Load<std::uint64_t>(name + length - sizeof(std::uint64_t));
  } else if (length >= sizeof(std::uint32_t)) {
    head = Load<std::uint32_t>(name);
    tail = Load<std::uint32_t>(name + length - sizeof(std::uint32_t));
  } else if (length > 0) {
    head = Load<unsigned char>(name) << 16U | Load<unsigned char>(name + length / 2);
    tail = Load<unsigned char>(name + length - 1);
  }
  std::uint64_t const mixed = (head ^ (tail << 7U) ^ length) * 0x9E3779B97F4A7C15U;
  return sets.groups[mixed >> 59U];
}
static_assert(kGroups == 1U << 5U, "the mixed value is shifted down to 5 bits");

}  // namespace

std::uint64_t SetsGeneration() { return generation_now.load(std::memory_order_acquire); }

void ForgetSets() { generation_now.fetch_add(1, std::memory_order_release); }

bool FindSets(std::string const& module, KnownSets& sets) {
  if (mine == nullptr || module.size() > kLongestName) return false;
  std::uint64_t const generation = SetsGeneration();
  for (Entry const& entry : GroupOf(*mine, module)) {
    bool const found = entry.generation == generation && IsName(entry, module);
    if (!found) continue;
    sets = {entry.known, entry.levels, entry.outputs};
    return true;
  }
  return false;
}

void StoreSets(std::string const& module, std::uint64_t generation, KnownSets const& sets) {
  if (module.size() > kLongestName) return;
  ThreadSets* const remembered = mine != nullptr ? mine : OpenThread();
  if (remembered == nullptr) return;
  Group& group = GroupOf(*remembered, module);
  // Replace an entry that is out of date, else the oldest. The newest entry is first; the others move down.
  std::size_t place = 0;
  while (place + 1 < kGroupSize && group[place].generation == generation) ++place;
  for (; place > 0; --place) group[place] = group[place - 1];
  Entry& entry = group[0];
  entry.generation = generation;
  entry.levels = static_cast<std::uint32_t>(sets.levels.to_ulong());
  entry.outputs = static_cast<std::uint32_t>(sets.outputs.to_ulong());
  entry.known = sets.known;
  entry.length = static_cast<unsigned char>(module.size());
  std::memcpy(entry.name.data(), module.data(), module.size());
}

}  // namespace velt
