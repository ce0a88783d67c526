// The channels of the manager by their file name prefix.
#ifndef VELT_DEBUG_MANAGER_CHANNEL_TABLE_H
#define VELT_DEBUG_MANAGER_CHANNEL_TABLE_H

#include <map>
#include <string>

#include "velt/channel.h"

#include "debug/manager/limits.h"
#include "platform/locks.h"

namespace velt {

enum class Lookup { kFound, kAbsent, kRefused };

// Any thread, except where said. Owns the channels.
class ChannelTable {
 public:
  ChannelTable();
  ~ChannelTable() = default;
  ChannelTable(ChannelTable const&) = delete;
  ChannelTable& operator=(ChannelTable const&) = delete;

  // Makes a channel and enters it under `key`. For Init, before another thread may look; a lock that fails
  // leaves its code in errno and does not keep the channel out.
  VeltDebugInfo* MakeMain(std::string const& key, std::string const& directory, std::string const& header,
                          FileLimits const& limits, bool channelFlag);

  // Looks `key` up. Refused when the lock fails and when there are more channels than the limits admit.
  Lookup Find(std::string const& key, FileLimits const& limits, VeltDebugInfo*& channel);

  // The same; an absent channel is made, in the directory of `main`, or in the default one when it is null.
  Lookup FindOrMake(std::string const& key, std::string const& header, FileLimits const& limits,
                    VeltDebugInfo const* main, VeltDebugInfo*& channel);

  // Ends all channels: first every output thread, so that what these trace meanwhile meets no deleted
  // channel, then the channels. No lock is held during that. Once the host has stopped tracing.
  void EndAll() noexcept;

 private:
  VeltDebugInfo* FindRunning();

  std::map<std::string, VeltDebugInfo*> m_channels;  // under m_channelLock
  RwMutex m_channelLock;    // never held while a channel is made, a record queued or a thread waited for
  Mutex m_channelCreation;  // makes channels on demand one at a time; taken before m_channelLock
};

}  // namespace velt

#endif
