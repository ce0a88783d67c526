// Counts of what happened to a channel's records and files.
#ifndef VELT_DEBUG_CHANNEL_COUNTS_H
#define VELT_DEBUG_CHANNEL_COUNTS_H

#include <atomic>
#include <cstdint>

#include "velt/channel.h"

namespace velt {

struct ChannelState;

// A count that only the output thread changes and any thread may read.
class OutputCount {
 public:
  void Add(std::uint64_t more = 1) noexcept {
    // Release: a thread that sees that a record was dealt with also sees what happened to it.
    value_.store(value_.load(std::memory_order_relaxed) + more, std::memory_order_release);
  }
  std::uint64_t Get() const noexcept { return value_.load(std::memory_order_acquire); }

 private:
  std::atomic<std::uint64_t> value_{0};
};

struct ChannelCounts {
  std::atomic<std::uint64_t> refused{0};  // any thread; relaxed
  std::atomic<std::uint64_t> markers{0};  // stop markers among what the queue accepted; any thread; relaxed
  std::atomic<std::uint64_t> clearedRing{0};  // deleted with the ring, unwritten; any thread; relaxed
  OutputCount fromRing;                       // records that left the ring for the file
  OutputCount written;
  OutputCount printedOnly;
  OutputCount lost;
  OutputCount dealtWith;  // after the three above
  OutputCount filesOpened;
  OutputCount archivesMade;
  OutputCount archivesFailed;
  OutputCount archivesRemoved;
  OutputCount bytesWritten;
  std::atomic<std::uint64_t> archiveBlocks{0};  // compressed until now; shows that a compression goes on
};

// How many records were accepted for the output thread until now: those that were queued, and those that were
// taken out of the ring to be written.
std::uint64_t Accepted(ChannelState const& state) noexcept;

// How many of them were queued. A flush waits for these: the ring's records are dealt with before the queued
// record that makes the output thread write the ring, and must not count in its place.
std::uint64_t AcceptedByQueue(ChannelState const& state) noexcept;

// Whether so many of the queued records have been dealt with.
bool QueueDealtWith(ChannelState const& state, std::uint64_t records) noexcept;

// VeltDebugInfo::Counts.
VeltTraceCounts CountsOf(ChannelState const& state) noexcept;

// Counts a record that a caller could not queue.
void CountRefused(ChannelState& state) noexcept;

}  // namespace velt

#endif
