#include "debug/channel/list_in_hand.h"

#include <ctime>

namespace velt {
namespace {

constexpr std::size_t kMostCounted = 512;
constexpr std::chrono::milliseconds kLongestCounted(10);

// To some milliseconds, which is near enough, in a third of the time of the exact clock.
std::chrono::nanoseconds CoarseNow() {
  timespec now{};
  (void)clock_gettime(CLOCK_MONOTONIC_COARSE, &now);  // fails only for a clock that does not exist
  return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

}  // namespace

void ListInHand::Begin() { given_back_at_ = CoarseNow(); }

void ListInHand::NextRecord() {
  ++counted_;
  bool const many = counted_ >= kMostCounted;
  // The clock is read only while a caller waits for room.
  if (many || (queue_.CallersWait() && CoarseNow() > given_back_at_ + kLongestCounted)) GiveBack();
}

void ListInHand::GiveBack() {
  if (counted_ == 0) return;
  queue_.GiveBack(counted_);
  counted_ = 0;
  given_back_at_ = CoarseNow();
}

}  // namespace velt
