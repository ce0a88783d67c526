// The state of one channel.
#ifndef VELT_DEBUG_CHANNEL_CHANNEL_STATE_H
#define VELT_DEBUG_CHANNEL_CHANNEL_STATE_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "velt/channel.h"

#include "debug/channel/channel_problems.h"
#include "debug/channel/counts.h"
#include "debug/channel/list_in_hand.h"
#include "debug/channel/log_file.h"
#include "debug/channel/next_name.h"
#include "debug/channel/record_queue.h"
#include "platform/fork_generation.h"
#include "platform/inherited.h"
#include "platform/locks.h"

namespace velt {

// "Output thread" below means: only for that thread, and for the thread that destroys the channel after it
// has ended.
struct ChannelState {
  ChannelState(std::string const& logPath, std::string const& filePrefix, std::string const& fileHeader,
               bool bPrint, bool bLog, unsigned int nFiltLogBufSize, unsigned int nEachFileMaxSize,
               unsigned int nEachProcessMaxZipNum, unsigned int nZipFileIncludeFileNum);

  static ChannelState& Of(VeltDebugInfo const& channel) { return *channel.m_pState; }

  // Whether this process was forked from the process that made the channel: it has no output thread.
  bool InheritedByFork() const noexcept { return m_nForkGeneration != ForkGeneration(); }

  // The output thread's last store (release); the destructor polls it.
  std::atomic<bool> m_bThreadExited{false};
  std::atomic<bool> m_bExit{false};  // written by the destructor, polled by the output thread
  std::string m_strFirstFileName;    // output thread
  std::string const m_strFilePrefix;
  std::string const m_strLogPath;
  std::string const m_strFileHeader;
  std::unique_ptr<LogFile> m_pFile;  // output thread; null while no file is open
  std::string m_strCurFileName;      // output thread
  bool const m_bPrint;
  bool const m_bLog;
  std::uint32_t const m_nFiltLogBufSize;
  std::uint32_t const m_nEachFileMaxSize;
  std::atomic<bool> m_bThreadStarted{false};  // written under m_mutex, read by every tracing thread
  std::uint32_t const m_nEachProcessMaxZipNum;
  std::uint32_t const m_nZipFileIncludeFileNum;
  RecordQueue m_OutputQueue;   // locked by itself
  RecordQueue m_DiscardQueue;  // locked by itself
  Mutex m_mutex;               // guards the start of the output thread

  // The fields above keep their given order; these are additions.
  ListInHand m_inHand{m_OutputQueue};  // output thread
  NameHistory m_names;                 // output thread
  bool m_bStopMarkerQueued = false;    // the thread that ends the channel
  std::atomic<bool> m_bHousekeeping{
      false};  // set by the output thread while files are compressed and deleted
  ChannelCounts m_counts;
  ChannelProblems m_problems;
  ChannelState* m_pNextLive = nullptr;    // under live_lock of flush.cpp
  std::uint64_t m_nFlushTarget = 0;       // under live_lock: how many records the flush at exit waits for
  std::uint32_t const m_nForkGeneration;  // of the process that made the channel
  Inherited m_inherited;                  // for a forked child that sets the channel aside
};

}  // namespace velt

#endif
