#include "debug/channel/list_in_hand.h"

namespace velt {
namespace {

constexpr std::size_t kMostCounted = 512;
constexpr std::chrono::milliseconds kLongestCounted(10);

}  // namespace

void ListInHand::Begin() { given_back_at_ = Clock::now(); }

void ListInHand::NextRecord() {
  ++counted_;
  bool const many = counted_ >= kMostCounted;
  // The clock is read only while a caller waits for room.
  if (many || (queue_.CallersWait() && Clock::now() > given_back_at_ + kLongestCounted)) GiveBack();
}

void ListInHand::GiveBack() {
  if (counted_ == 0) return;
  queue_.GiveBack(counted_);
  counted_ = 0;
  given_back_at_ = Clock::now();
}

}  // namespace velt
