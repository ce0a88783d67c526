#include "debug/manager/channel_table.h"

#include <cerrno>
#include <memory>
#include <vector>

#include "velt/config.h"

#include "debug/channel/channel_state.h"
#include "debug/channel/flush.h"
#include "debug/channel/shutdown.h"

namespace velt {
namespace {

std::unique_ptr<VeltDebugInfo> MakeChannel(std::string const& key, std::string const& directory,
                                           std::string const& header, FileLimits const& limits, bool flag) {
  return std::make_unique<VeltDebugInfo>(
      directory, key, header, false, false, static_cast<unsigned>(limits.m_nFiltLogBufSize),
      static_cast<unsigned>(limits.m_nEachFileMaxSize), static_cast<unsigned>(limits.m_nEachProcessMaxZipNum),
      static_cast<unsigned>(limits.m_nZipFileIncludeFileNum), flag);
}

}  // namespace

ChannelTable::ChannelTable() { PreferWriters(m_channelLock); }

VeltDebugInfo* ChannelTable::MakeMain(std::string const& key, std::string const& directory,
                                      std::string const& header, FileLimits const& limits, bool channelFlag) {
  std::unique_ptr<VeltDebugInfo> made = MakeChannel(key, directory, header, limits, channelFlag);
  WriteLock const lock(m_channelLock);
  Enter_i(key, made.get());
  return made.release();
}

Lookup ChannelTable::Find(std::string const& key, FileLimits const& limits, VeltDebugInfo*& channel) {
  ReadLock const lock(m_channelLock);
  if (!lock.locked()) return Lookup::kRefused;
  // Comes before the look-up: once there are more channels than the limit, known channels are refused too.
  if (m_channels.size() > static_cast<std::size_t>(limits.m_nMaxFileNum)) return Lookup::kRefused;
  auto const found = m_channels.find(key);
  if (found == m_channels.end()) return Lookup::kAbsent;
  channel = found->second;
  return Lookup::kFound;
}

Lookup ChannelTable::FindOrMake(std::string const& key, std::string const& header, FileLimits const& limits,
                                VeltDebugInfo const* main, VeltDebugInfo*& channel) {
  Lookup found = Find(key, limits, channel);
  if (found != Lookup::kAbsent) return found;
  // One thread at a time: two channels with one key would write into the same file.
  MutexLock const creation(m_channelCreation);
  if (!creation.locked()) return Lookup::kRefused;
  found = Find(key, limits, channel);  // another thread may have been faster
  if (found != Lookup::kAbsent) return found;

  std::string const directory = main != nullptr ? main->LogPath() : VeltGetDefaultLogPath();
  std::unique_ptr<VeltDebugInfo> made = MakeChannel(key, directory, header, limits, true);
  WriteLock const lock(m_channelLock);
  if (!lock.locked()) {
    int const reason = errno;  // ending the channel may change it
    made.reset();
    errno = reason;
    return Lookup::kRefused;
  }
  Enter_i(key, made.get());
  channel = made.release();  // the table owns it now
  return Lookup::kFound;
}

void ChannelTable::Enter_i(std::string const& key, VeltDebugInfo* channel) {
  m_channels.emplace(key, channel);
  channel->SetQueueWait(m_nQueueWait);
}

bool ChannelTable::GetCounts(std::map<std::string, VeltTraceCounts>& out) {
  ReadLock const lock(m_channelLock);
  if (!lock.locked()) return false;
  for (auto const& [key, channel] : m_channels) out[key] = channel->Counts();
  return true;
}

bool ChannelTable::Flush(std::chrono::milliseconds wait) {
  std::vector<ChannelState*> channels;
  {
    ReadLock const lock(m_channelLock);
    if (!lock.locked()) return false;
    for (auto const& channel : m_channels) channels.push_back(&ChannelState::Of(*channel.second));
  }
  return velt::Flush(channels, wait);  // no lock is held while it waits
}

void ChannelTable::SetQueueWait(unsigned milliseconds) {
  WriteLock const lock(m_channelLock);
  if (!lock.locked()) return;
  m_nQueueWait = milliseconds;
  for (auto const& channel : m_channels) channel.second->SetQueueWait(milliseconds);
}

VeltDebugInfo* ChannelTable::FindUnless(bool (*done)(ChannelState const&)) {
  // Goes on even without the lock: the host has stopped tracing, so only output threads may use the table.
  WriteLock const lock(m_channelLock);
  for (auto const& [key, channel] : m_channels) {
    if (!done(ChannelState::Of(*channel))) return channel;
  }
  return nullptr;
}

void ChannelTable::EndAll() noexcept {
  // All threads are asked before the first is waited for, so that they end side by side. Repeated until no
  // channel is left: an ASN value's print may trace on an output thread that is ending, and so open another
  // channel.
  while (true) {
    if (VeltDebugInfo* const channel = FindUnless(&IsAskedToEnd)) {
      AskOutputThreadToEnd(ChannelState::Of(*channel));
    } else if (VeltDebugInfo* const asked = FindUnless(&HasEnded)) {
      EndOutputThread(ChannelState::Of(*asked));
    } else {
      break;
    }
  }
  std::map<std::string, VeltDebugInfo*> ended;
  {
    WriteLock const lock(m_channelLock);
    ended.swap(m_channels);
  }
  for (auto const& channel : ended) delete channel.second;
}

}  // namespace velt
