// Where a trace call goes: to the engine, or to a channel with the flags that its module's sets give it.
#include <array>
#include <cerrno>
#include <cstdarg>
#include <exception>
#include <iostream>
#include <memory>
#include <string>

#include "velt/config.h"
#include "velt/manager.h"

#include "debug/manager/module_name.h"
#include "debug/manager/sets_cache.h"
#include "platform/locks.h"
#include "platform/message_format.h"

namespace {

constexpr int kLargestLevel = 32;
constexpr std::size_t kSubNameLimit = 129;  // the first length that is refused
constexpr std::size_t kLongestKey = 511;
constexpr std::size_t kMessageCapacity = 2047;
constexpr std::size_t kStandardOutput = 0;  // bits of an output set
constexpr std::size_t kLogFile = 1;

using Buffer = std::array<char, kMessageCapacity>;

velt::Message Format(Buffer& buffer, char const* fmt, std::va_list args) VELT_PRINTF_FORMAT(2, 0);
velt::Message Format(Buffer& buffer, char const* fmt, std::va_list args) {
  return velt::ExpandMessage(buffer.data(), buffer.size(), fmt, args);
}

// Standard output belongs to the host: it may throw, when the host has asked it to.
void SayThatPrintfFailed(int error) try {
  std::cout << "Printf failed. errno:" << error << std::endl;
} catch (std::exception const&) {
  return;
}

}  // namespace

VeltDebugMgr::Flags VeltDebugMgr::ResolveFlags(std::string const& module, VeltLogLevel level, Flags asked) {
  if (asked.print && asked.log) return asked;
  velt::KnownSets sets;
  if (!velt::FindSets(module, sets)) {
    velt::ReadLock const lock(m_tableLock);
    if (!lock.locked()) return asked;
    sets.known = GetSubModuleInfo_i(module, sets.levels, sets.outputs) ||
                 GetSubModuleInfo_i(velt::kDebugModule, sets.levels, sets.outputs);
    velt::StoreSets(module, velt::SetsGeneration(), sets);
  }
  // A level that is no bit of the set is the caller's error; it learns by the set's own exception.
  if (!sets.known || !sets.levels.test(static_cast<std::size_t>(level))) return asked;
  return {asked.print || sets.outputs.test(kStandardOutput), asked.log || sets.outputs.test(kLogFile)};
}

bool VeltDebugMgr::Trace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn,
                         bool bPrint, bool bLog) {
  return TraceText(module, level, text, std::string::npos, asn, {bPrint, bLog});
}

// A length that the caller knows need not be counted again; npos is none.
bool VeltDebugMgr::TraceText(std::string const& module, VeltLogLevel level, char const* text,
                             std::size_t length, AsnType const* asn, Flags asked) {
  if (!IsInit()) return false;
  // Acquire: the engine's construction is seen with the pointer.
  VeltDebugEngine* const engine = m_pEngine.load(std::memory_order_acquire);
  if (engine != nullptr) return engine->Trace(module, level, text, asn, asked.print, asked.log);
  if (m_bSilent.load(std::memory_order_relaxed)) return false;  // ordered by the acquire of IsInit
  if (m_pChannel == nullptr || level > kLargestLevel || text == nullptr || InheritedByFork()) return false;
  Flags const flags = ResolveFlags(module, level, asked);
  return m_pChannel->TraceText(module, level, text, length, asn, flags.print, flags.log);
}

bool VeltDebugMgr::AppTrace(std::string const& module, VeltLogLevel level, char const* text,
                            AsnType const* asn, bool bPrint, bool bLog, std::string const& subName) {
  if (!IsInit()) return false;
  VeltDebugEngine* const engine = m_pEngine.load(std::memory_order_acquire);
  if (engine != nullptr) return engine->AppTrace(module, level, text, asn, bPrint, bLog, subName);
  if (m_bSilent.load(std::memory_order_relaxed)) return true;  // not what Trace says; hosts rely on both
  if (level > kLargestLevel || text == nullptr || InheritedByFork()) return false;
  if (subName.size() >= kSubNameLimit) return false;

  std::string const key = ChannelKey(subName);
  VeltDebugInfo* channel = nullptr;
  Lookup found = FindChannel(key, channel);
  if (found == Lookup::kAbsent) found = FindOrCreateChannel(key, module, channel);
  if (found != Lookup::kFound || channel == nullptr) return false;
  Flags const flags = ResolveFlags(module, level, {bPrint, bLog});
  return channel->Trace(module, level, text, asn, flags.print, flags.log);
}

std::string VeltDebugMgr::ChannelKey(std::string const& subName) const {
  auto const append = [](std::string& key, std::string const& name) {
    key.append(name, 0, name.find('\0'));  // as far as a file name takes it
  };
  std::string key;
  append(key, m_strName);
  if (!subName.empty()) {
    append(key, subName);
    key += '_';
  }
  if (key.size() > kLongestKey) key.resize(kLongestKey);
  return key;
}

VeltDebugMgr::Lookup VeltDebugMgr::FindChannel(std::string const& key, VeltDebugInfo*& channel) {
  velt::ReadLock const lock(m_channelLock);
  if (!lock.locked()) return Lookup::kRefused;
  // Before the look-up: one channel above the cap, and the known channels answer false as well.
  if (m_channels.size() > static_cast<std::size_t>(m_nMaxFileNum)) return Lookup::kRefused;
  auto const found = m_channels.find(key);
  if (found == m_channels.end()) return Lookup::kAbsent;
  channel = found->second;
  return Lookup::kFound;
}

VeltDebugMgr::Lookup VeltDebugMgr::FindOrCreateChannel(std::string const& key, std::string const& fileHeader,
                                                       VeltDebugInfo*& channel) {
  // One creation at a time: two channels of one key would write into the same file.
  velt::MutexLock const creation(m_channelCreation);
  if (!creation.locked()) return Lookup::kRefused;
  Lookup const found = FindChannel(key, channel);  // another thread may have been faster
  if (found != Lookup::kAbsent) return found;

  auto made = std::make_unique<VeltDebugInfo>(
      m_pChannel != nullptr ? m_pChannel->LogPath() : VeltGetDefaultLogPath(), key, fileHeader, false, false,
      static_cast<unsigned>(m_nFiltLogBufSize), static_cast<unsigned>(m_nEachFileMaxSize),
      static_cast<unsigned>(m_nEachProcessMaxZipNum), static_cast<unsigned>(m_nZipFileIncludeFileNum), true);
  velt::WriteLock const lock(m_channelLock);
  if (!lock.locked()) return Lookup::kRefused;
  m_channels.emplace(key, made.get());
  channel = made.release();  // the table's now
  return Lookup::kFound;
}

void VeltDebugMgr::Printf(VeltLogLevel level, char const* fmt, ...) {
  if (!IsInit()) return;
  Buffer buffer;
  std::va_list args;
  va_start(args, fmt);
  velt::Message const message = Format(buffer, fmt, args);
  int const error = errno;  // before anything else can change it
  va_end(args);
  if (message.kept <= 0) {
    SayThatPrintfFailed(error);
    return;
  }
  TraceText(m_strDefaultModule, level, buffer.data(), message.length, nullptr, {});
}

void VeltDebugMgr::Printf(VeltLogLevel level, VeltInterString const& module, char const* fmt, ...) {
  if (!IsInit()) return;
  Buffer buffer;
  std::va_list args;
  va_start(args, fmt);
  velt::Message const message = Format(buffer, fmt, args);
  va_end(args);
  if (message.kept > 0) TraceText(module, level, buffer.data(), message.length, nullptr, {});
}

void VeltDebugMgr::Printf(char const* fmt, ...) {
  if (!IsInit()) return;
  Buffer buffer;
  std::va_list args;
  va_start(args, fmt);
  velt::Message const message = Format(buffer, fmt, args);
  va_end(args);
  if (message.kept > 0)
    TraceText(m_strDefaultModule, m_defaultLevel, buffer.data(), message.length, nullptr, {});
}
