// The rules of the shim: which calls they match, and what happens to these.
#include <fnmatch.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "tests/faults/shim/shim.h"

namespace velt::shim {

std::atomic<unsigned> watched_calls{0};

namespace {

constexpr std::size_t kMostRules = 16;
constexpr std::size_t kLongestPath = 512;
constexpr long kAnyThread = 0;

// A slot is filled before `used` is stored, so that readers need no lock: a call inside an allocation could
// not take one. After ClearRules a slot may be filled again while a call still reads it.
struct Slot {
  std::atomic<bool> used{false};
  std::atomic<Call> call{Call::kCalls};
  std::atomic<Action> action{Action::kFail};
  std::atomic<unsigned> first{1};
  std::atomic<unsigned> count{1};
  std::atomic<int> error{0};
  std::atomic<unsigned> delay_ms{0};
  std::atomic<bool> has_path{false};
  std::array<char, kLongestPath> path{};
  std::atomic<long> thread{kAnyThread};
  std::atomic<unsigned> matched{0};
  std::atomic<unsigned> applied{0};
};
std::array<Slot, kMostRules> slots;
std::atomic<char const*> opens_pattern{nullptr};
std::atomic<unsigned> opens_seen{0};
std::atomic<unsigned> opens_inheritable{0};
std::atomic<std::size_t> next_slot{0};

bool Meets(Slot const& slot, Call call, char const* path) {
  if (slot.call != call) return false;
  long const thread = slot.thread;
  if (thread != kAnyThread && thread != syscall(SYS_gettid)) return false;
  if (!slot.has_path) return true;
  return path != nullptr && fnmatch(slot.path.data(), path, 0) == 0;
}

void Wait(unsigned milliseconds) {
  timespec left{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1'000'000};
  while (nanosleep(&left, &left) == -1 && errno == EINTR) {
  }
}

}  // namespace

int AddRule(Rule const& rule) {
  std::size_t const number = next_slot.fetch_add(1);
  if (number >= kMostRules) std::abort();
  Slot& slot = slots[number];
  slot.call = rule.call;
  slot.action = rule.action;
  slot.first = rule.first;
  slot.count = rule.count;
  slot.error = rule.error;
  slot.delay_ms = rule.delay_ms;
  slot.has_path = false;
  if (rule.path != nullptr && *rule.path != '\0') {
    slot.has_path = true;
    slot.path.fill('\0');
    std::strncpy(slot.path.data(), rule.path, slot.path.size() - 1);
  }
  slot.thread = rule.own_thread ? syscall(SYS_gettid) : kAnyThread;
  slot.matched.store(0);
  slot.applied.store(0);
  slot.used.store(true, std::memory_order_release);
  watched_calls.fetch_or(1U << static_cast<unsigned>(rule.call));
  return static_cast<int>(number);
}

void ClearRules() {
  watched_calls.store(0);
  for (Slot& slot : slots) slot.used.store(false);
  next_slot.store(0);
}

unsigned MatchedCalls(int rule) { return slots[static_cast<std::size_t>(rule)].matched.load(); }
unsigned AppliedCalls(int rule) { return slots[static_cast<std::size_t>(rule)].applied.load(); }

void WatchOpens(char const* pattern) {
  opens_seen.store(0);
  opens_inheritable.store(0);
  opens_pattern.store(pattern);
}

Opens WatchedOpens() { return {opens_seen.load(), opens_inheritable.load()}; }

void NoteOpen(char const* path, bool close_on_exec) {
  char const* const pattern = opens_pattern.load();
  if (pattern == nullptr || fnmatch(pattern, path, 0) != 0) return;
  ++opens_seen;
  if (!close_on_exec) ++opens_inheritable;
}

Verdict Ask(Call call, char const* path) {
  Verdict verdict;
  int const before = errno;
  for (Slot& slot : slots) {
    if (!slot.used.load(std::memory_order_acquire) || !Meets(slot, call, path)) continue;
    unsigned const number = slot.matched.fetch_add(1) + 1;
    unsigned const first = slot.first;
    unsigned const count = slot.count;
    if (number < first || (count != 0 && number - first >= count)) continue;
    slot.applied.fetch_add(1);
    switch (slot.action) {
      case Action::kFail:
        verdict.fail = true;
        verdict.error = slot.error;
        break;
      case Action::kShort:
        verdict.half = true;
        break;
      case Action::kDelay:
        Wait(slot.delay_ms);
        break;
      case Action::kStall:
        while (slot.used.load(std::memory_order_acquire)) Wait(1);
        break;
      case Action::kStop:
        // Sent to this thread, which then stops before it returns from the call.
        (void)syscall(SYS_tgkill, getpid(), syscall(SYS_gettid), SIGSTOP);
        break;
    }
  }
  errno = before;
  return verdict;
}

Verdict AskDescriptor(Call call, int descriptor) {
  std::array<char, 40> link{};
  std::array<char, kLongestPath> path{};
  int const before = errno;
  std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", descriptor);
  ssize_t const length = readlink(link.data(), path.data(), path.size() - 1);
  errno = before;
  return Ask(call, length < 0 ? nullptr : path.data());
}

}  // namespace velt::shim
