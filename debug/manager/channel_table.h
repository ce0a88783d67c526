// The channels of the manager, by their file name prefix.
#ifndef VELT_DEBUG_MANAGER_CHANNEL_TABLE_H
#define VELT_DEBUG_MANAGER_CHANNEL_TABLE_H

#include <chrono>
#include <map>
#include <string>

#include "velt/channel.h"

#include "debug/manager/limits.h"
#include "platform/locks.h"

namespace velt {

struct ChannelState;

enum class Lookup { kFound, kAbsent, kRefused };

// Owns the channels. Every operation may be called from any thread, except where its comment says otherwise.
class ChannelTable {
 public:
  ChannelTable();
  ~ChannelTable() = default;
  ChannelTable(ChannelTable const&) = delete;
  ChannelTable& operator=(ChannelTable const&) = delete;

  // Makes the main channel and adds it under `key`. For Init, before other threads use the table. The channel
  // is added even if the lock fails, which leaves its code in errno.
  VeltDebugInfo* MakeMain(std::string const& key, std::string const& directory, std::string const& header,
                          FileLimits const& limits, bool channelFlag);

  // Looks `key` up. Refused when the lock fails, and when there are more channels than the limits allow.
  Lookup Find(std::string const& key, FileLimits const& limits, VeltDebugInfo*& channel);

  // The same, but makes an absent channel, in the directory of `main`, or in the default one if that is null.
  Lookup FindOrMake(std::string const& key, std::string const& header, FileLimits const& limits,
                    VeltDebugInfo const* main, VeltDebugInfo*& channel);

  // Adds the counts of all channels by their keys. Returns false when the lock fails.
  bool GetCounts(std::map<std::string, VeltTraceCounts>& out);

  // Flushes all channels. Returns false when one was not done in time, or when the lock fails.
  bool Flush(std::chrono::milliseconds wait);

  // Sets how long a call waits for room, for channels present and to come.
  void SetQueueWait(unsigned milliseconds);

  // Ends all output threads together, then deletes all channels: an output thread that traces meanwhile never
  // uses a deleted channel. No lock is held while a thread ends. Call it once the host has stopped tracing.
  void EndAll() noexcept;

 private:
  // The first channel that is not `done`; null when all are.
  VeltDebugInfo* FindUnless(bool (*done)(ChannelState const&));
  void Enter_i(std::string const& key, VeltDebugInfo* channel);

  std::map<std::string, VeltDebugInfo*> m_channels;  // under m_channelLock
  RwMutex m_channelLock;         // never held while a channel is made, a record queued or a thread waited for
  unsigned m_nQueueWait = 1000;  // milliseconds; under m_channelLock
  Mutex m_channelCreation;       // makes channels on demand one at a time; taken before m_channelLock
};

}  // namespace velt

#endif
