#include "debug/channel/shutdown.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <exception>
#include <memory>
#include <new>

#include <ace/OS_NS_sys_time.h>
#include <ace/OS_NS_unistd.h>

#include "velt/channel.h"

#include "debug/channel/channel_state.h"
#include "debug/channel/clear_queue.h"
#include "debug/channel/current_file.h"
#include "debug/channel/record.h"
#include "debug/channel/ring.h"
#include "platform/bounded.h"
#include "platform/signal_withheld.h"
#include "platform/time_stamp.h"

namespace velt {
namespace {

constexpr std::chrono::milliseconds kPoll(100);

void Sleep(std::chrono::milliseconds length) {
  if (length.count() > 0) ACE_OS::sleep(ACE_Time_Value(length));
}

// Returns whether the marker was queued. If not, `wait` has passed.
bool EnqueueStopMarker(ChannelState& state, std::chrono::milliseconds wait) {
  try {
    auto marker = std::make_unique<OutDataUnit>();
    BlockPtr block = WrapRecord(marker.get());
    // Counted before it is queued: the output thread may then end at any moment.
    state.m_counts.markers.fetch_add(1, std::memory_order_relaxed);
    if (!state.m_OutputQueue.EnqueueWithin(block.get(), wait)) {
      state.m_counts.markers.fetch_sub(1, std::memory_order_relaxed);
      if (errno != EWOULDBLOCK) Sleep(wait);  // the call has failed without waiting for room
      return false;
    }
    (void)block.release();  // the queue owns it now, and the marker
    (void)marker.release();
    return true;
  } catch (std::bad_alloc const&) {
    // Wakes the thread, which ends without a marker once its queue is empty: memory may never return.
    (void)state.m_OutputQueue.pulse();
    Sleep(wait);
    return false;
  }
}

void WriteShutdownLine(ChannelState& state, char const* format, std::size_t count) {
  std::array<char, kTimeStampCapacity> stamp{};
  WriteTimeStamp(ACE_OS::gettimeofday(), stamp.data());
  std::array<char, 512> line{};
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // three literals of this file
  snprintf_s(line.data(), line.size(), line.size() - 1, format, stamp.data(), static_cast<int>(count));
#pragma GCC diagnostic pop
  WriteFile(state, line.data());
}

void ClearQueues(ChannelState& state) {
  WriteShutdownLine(state, "%s about to clear m_DiscardQueue(%d)\n", RecordsInRing(state));
  ClearRing(state);
  WriteShutdownLine(state, "%s about to clear m_OutputQueue(%d)\n", state.m_OutputQueue.message_count());
  ClearQueue(state, state.m_OutputQueue, "dequeue from m_OutputQueue fail.\n");
  WriteShutdownLine(state, "%s after m_OutputQueue cleared\n", 0);
}

bool HasOutputThread(ChannelState const& state) {
  return state.m_bThreadStarted.load(std::memory_order_relaxed) && !state.InheritedByFork();
}

}  // namespace

void AskOutputThreadToEnd(ChannelState& state) noexcept {
  // Release: an output thread that sees it also sees what was queued before. The exchange makes sure that a
  // channel is asked once.
  if (state.m_bExit.exchange(true, std::memory_order_acq_rel) || !HasOutputThread(state)) return;
  state.m_bStopMarkerQueued = EnqueueStopMarker(state, std::chrono::milliseconds(0));
}

bool IsAskedToEnd(ChannelState const& state) noexcept {
  return state.m_bExit.load(std::memory_order_relaxed);  // called by the thread that ends the channels
}

void EndOutputThread(ChannelState& state) noexcept {
  AskOutputThreadToEnd(state);
  // Without the marker the thread could sleep for ever, so it is tried again when the queue is full or memory
  // has run out, until the thread has ended. Each time also wakes a thread that has begun to sleep meanwhile.
  while (!state.m_bStopMarkerQueued && !HasEnded(state)) {
    state.m_bStopMarkerQueued = EnqueueStopMarker(state, kPoll);
  }
  while (!HasEnded(state)) Sleep(kPoll);
}

bool HasEnded(ChannelState const& state) noexcept {
  // Acquire: what the thread wrote is seen before this thread uses the file.
  return IsAskedToEnd(state) &&
         (!HasOutputThread(state) || state.m_bThreadExited.load(std::memory_order_acquire));
}

void EndChannel(ChannelState& state) noexcept {
  try {
    EndOutputThread(state);
    // As on the output thread: a file size limit must not end the host.
    SignalWithheld const sigxfsz(SIGXFSZ);
    if (state.m_bThreadStarted.load(std::memory_order_relaxed)) ClearQueues(state);
    CloseFile(state);
  } catch (std::exception const&) {
    state.m_pFile.reset();  // a destructor cannot report an error; it only closes the file
  }
  // Usually empty; if the thread never started, the records that were queued are still here.
  while (ACE_Message_Block* const block = state.m_DiscardQueue.TryDequeue()) DeleteChain(block);
  while (ACE_Message_Block* const block = state.m_OutputQueue.TryDequeue()) DeleteChain(block);
}

}  // namespace velt
