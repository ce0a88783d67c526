// The end of a channel: the stop marker, the wait for the output thread, and what is said and deleted
// afterwards.
#include <array>
#include <cerrno>
#include <exception>
#include <memory>
#include <new>

#include <ace/OS_NS_sys_time.h>
#include <ace/OS_NS_unistd.h>

#include "velt/channel.h"

#include "debug/channel/record.h"
#include "platform/bounded.h"
#include "platform/time_stamp.h"

namespace {

constexpr suseconds_t kPollMicroseconds = 100'000;

void SleepOnePoll() { ACE_OS::sleep(ACE_Time_Value(0, kPollMicroseconds)); }

}  // namespace

VeltDebugInfo::~VeltDebugInfo() {
  if (InheritedByFork()) {
    // Nobody is left to stop here, and the files are the parent's: the stream holds nothing back that closing
    // it could write.
    m_OutputQueue.Abandon();
    m_DiscardQueue.Abandon();
    return;
  }
  m_bExit.store(true, std::memory_order_release);
  try {
    if (m_bThreadStarted.load(std::memory_order_relaxed)) StopOutputThread();
    CloseFile();
  } catch (std::exception const&) {
    m_pFile.reset();  // a destructor has nobody to tell; closing is all that is left to do
  }
  // Empty after an orderly stop; a thread that never started leaves what was handed in.
  while (ACE_Message_Block* const block = m_DiscardQueue.TryDequeue()) velt::DeleteChain(block);
  while (ACE_Message_Block* const block = m_OutputQueue.TryDequeue()) velt::DeleteChain(block);
}

void VeltDebugInfo::StopOutputThread() {
  // Without the marker the thread could sleep for ever, so neither a full queue nor a want of memory ends the
  // attempt; only the thread's own end does. Acquire: whatever the thread did to the file is seen before this
  // thread touches it.
  while (!EnqueueStopMarker() && !m_bThreadExited.load(std::memory_order_acquire)) {
  }
  while (!m_bThreadExited.load(std::memory_order_acquire)) SleepOnePoll();

  WriteShutdownLine("%s about to clear m_DiscardQueue(%d)\n",
                    static_cast<int>(m_DiscardQueue.message_count()));
  DequeueMsg();
  WriteShutdownLine("%s about to clear m_OutputQueue(%d)\n", static_cast<int>(m_OutputQueue.message_count()));
  ClearOutputQueue();
  WriteShutdownLine("%s after m_OutputQueue cleared\n", 0);
}

bool VeltDebugInfo::EnqueueStopMarker() {
  try {
    auto marker = std::make_unique<OutDataUnit>();
    velt::BlockPtr block = velt::WrapRecord(marker.get());
    ACE_Time_Value deadline = ACE_OS::gettimeofday() + ACE_Time_Value(0, kPollMicroseconds);
    if (!m_OutputQueue.EnqueueRecord(block.get(), deadline)) {
      if (errno != EWOULDBLOCK) SleepOnePoll();  // it has not waited for room
      return false;
    }
    (void)block.release();  // the queue's now, like the marker
    (void)marker.release();
    return true;
  } catch (std::bad_alloc const&) {
    SleepOnePoll();
    return false;
  }
}

void VeltDebugInfo::WriteShutdownLine(char const* format, int count) {
  std::array<char, velt::kTimeStampCapacity> stamp{};
  velt::WriteTimeStamp(ACE_OS::gettimeofday(), stamp.data());
  std::array<char, 512> line{};
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // three literals of this file
  velt::snprintf_s(line.data(), line.size(), line.size() - 1, format, stamp.data(), count);
#pragma GCC diagnostic pop
  WriteFile(line.data());
}

void VeltDebugInfo::DequeueMsg() {
  while (m_DiscardQueue.message_count() != 0) {
    ACE_Message_Block* const block = m_DiscardQueue.TryDequeue();
    if (block == nullptr) {
      WriteFile("dequeue from m_DiscardQueue fail.\n");
      return;
    }
    velt::DeleteChain(block);
  }
}

void VeltDebugInfo::ClearOutputQueue() {
  while (m_OutputQueue.message_count() != 0) {
    ACE_Message_Block* const block = m_OutputQueue.TryDequeue();
    if (block == nullptr) {
      WriteFile("dequeue from m_OutputQueue fail.\n");
      return;
    }
    velt::DeleteChain(block);
  }
}
