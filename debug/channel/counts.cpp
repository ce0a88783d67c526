#include "debug/channel/counts.h"

#include "debug/channel/channel_state.h"

namespace velt {

std::uint64_t Accepted(ChannelState const& state) noexcept {
  std::uint64_t const from_ring = state.m_counts.fromRing.Get();
  return AcceptedByQueue(state) + from_ring;
}

std::uint64_t AcceptedByQueue(ChannelState const& state) noexcept {
  std::uint64_t const markers = state.m_counts.markers.load(std::memory_order_relaxed);
  return state.m_OutputQueue.Accepted() - markers;
}

bool QueueDealtWith(ChannelState const& state, std::uint64_t records) noexcept {
  // In this order: a record of the ring counts in fromRing before it counts in dealtWith.
  std::uint64_t const dealt_with = state.m_counts.dealtWith.Get();
  return dealt_with >= records + state.m_counts.fromRing.Get();
}

// The counts are read in the reverse of the order in which a record changes them, or a difference could be
// negative.
VeltTraceCounts CountsOf(ChannelState const& state) noexcept {
  ChannelCounts const& counts = state.m_counts;
  VeltTraceCounts now{};
  std::uint64_t const dealt_with = counts.dealtWith.Get();
  now.written = counts.written.Get();
  now.printedOnly = counts.printedOnly.Get();
  now.lost = counts.lost.Get();
  now.accepted = Accepted(state);
  now.queued = now.accepted - dealt_with;
  now.refused = counts.refused.load(std::memory_order_relaxed);
  now.displaced = state.m_DiscardQueue.Evicted() + counts.clearedRing.load(std::memory_order_relaxed);
  std::uint64_t const left_ring = now.displaced + counts.fromRing.Get();
  now.inRing = state.m_DiscardQueue.Accepted() - left_ring;
  now.filesOpened = counts.filesOpened.Get();
  now.archivesMade = counts.archivesMade.Get();
  now.archivesFailed = counts.archivesFailed.Get();
  now.archivesRemoved = counts.archivesRemoved.Get();
  now.bytesWritten = counts.bytesWritten.Get();
  return now;
}

void CountRefused(ChannelState& state) noexcept {
  state.m_counts.refused.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace velt
