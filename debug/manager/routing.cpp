// Routes a trace call: to the engine, or to a channel with the flags that its module's sets give it.
#include "debug/manager/routing.h"

#include <array>
#include <cerrno>
#include <cstdarg>
#include <exception>
#include <iostream>
#include <string>

#include "velt/manager.h"

#include "debug/channel/channel_state.h"
#include "debug/channel/counts.h"
#include "debug/channel/trace.h"
#include "debug/manager/manager_state.h"
#include "debug/manager/sets_cache.h"
#include "platform/message_format.h"

namespace {

constexpr int kLargestLevel = 32;
constexpr int kLevels = 32;                 // that a set has
constexpr std::size_t kSubNameLimit = 129;  // the first length that is refused
constexpr std::size_t kLongestKey = 511;
constexpr std::size_t kMessageCapacity = 2047;
constexpr std::size_t kStandardOutput = 0;  // bits of an output set
constexpr std::size_t kLogFile = 1;

using velt::ManagerState;

// Counts a call that reaches no channel with the main one. Returns false.
bool Refused(ManagerState& state) {
  if (state.m_pChannel != nullptr) velt::CountRefused(velt::ChannelState::Of(*state.m_pChannel));
  return false;
}

// ResolveFlags, which counts the record as refused when it throws.
velt::OutputFlags FlagsOrRefused(ManagerState& state, std::string const& module, VeltLogLevel level,
                                 velt::OutputFlags asked) try {
  return velt::ResolveFlags(state, module, level, asked);
} catch (...) {
  Refused(state);
  throw;
}

// Traces to the main channel. `length` is strlen(text) if known, else npos.
bool TraceToMain(ManagerState& state, std::string const& module, VeltLogLevel level, char const* text,
                 std::size_t length, AsnType const* asn, velt::OutputFlags asked);

// std::cout throws if the host has enabled its exceptions.
void SayThatPrintfFailed(int error) try {
  std::cout << "Printf failed. errno:" << error << std::endl;
} catch (std::exception const&) {
  return;
}

// What becomes of a Printf call.
enum class Way {
  kUsual,    // into the main channel, with known flags
  kNowhere,  // no output and no ring wants it
  kOther,    // decided when the text is there
};

Way WayOf(ManagerState& state, VeltLogLevel level, std::string const& module, velt::OutputFlags& flags) {
  // Relaxed: only whether there is an engine counts here.
  bool const usual = state.m_pEngine.load(std::memory_order_relaxed) == nullptr &&
                     state.m_pChannel != nullptr && level >= 0 && level < kLevels &&
                     velt::TakesRecords(velt::ChannelState::Of(*state.m_pChannel));
  if (!usual) return Way::kOther;
  flags = velt::ResolveFlags(state, module, level, {});
  bool const wanted =
      flags.print || flags.log || velt::KeepsFiltered(velt::ChannelState::Of(*state.m_pChannel));
  return wanted ? Way::kUsual : Way::kNowhere;
}

// Returns false, with errno as the expansion left it, when there is no message.
bool ExpandAndTrace(ManagerState& state, std::string const& module, VeltLogLevel level, char const* fmt,
                    std::va_list args) VELT_PRINTF_FORMAT(4, 0);
bool ExpandAndTrace(ManagerState& state, std::string const& module, VeltLogLevel level, char const* fmt,
                    std::va_list args) {
  std::array<char, kMessageCapacity> buffer;
  velt::Message const message = velt::ExpandMessage(buffer.data(), buffer.size(), fmt, args);
  if (message.kept <= 0) return Refused(state);  // which leaves errno alone
  TraceToMain(state, module, level, buffer.data(), message.length, nullptr, {});
  return true;
}

// Returns false as ExpandAndTrace does; a message that is not wanted is expanded only if `mustExpand`.
bool Print(ManagerState& state, std::string const& module, VeltLogLevel level, bool mustExpand,
           char const* fmt, std::va_list args) VELT_PRINTF_FORMAT(5, 0);
bool Print(ManagerState& state, std::string const& module, VeltLogLevel level, bool mustExpand,
           char const* fmt, std::va_list args) {
  velt::OutputFlags flags{};
  Way const way = WayOf(state, level, module, flags);
  if (way == Way::kUsual) {
    return velt::TraceFormat(velt::ChannelState::Of(*state.m_pChannel), module, level, fmt, args, flags.print,
                             flags.log) != velt::Printed::kNotExpanded;
  }
  if (way == Way::kNowhere && !mustExpand) return true;
  return ExpandAndTrace(state, module, level, fmt, args);
}

}  // namespace

void VeltDebugMgr::Printf(VeltLogLevel level, char const* fmt, ...) {
  if (!IsInit()) return;
  std::va_list args;
  va_start(args, fmt);
  bool const expanded = Print(*m_pState, m_pState->m_strDefaultModule, level, true, fmt, args);
  int const error = errno;  // before anything else can change it
  va_end(args);
  if (!expanded) SayThatPrintfFailed(error);
}

void VeltDebugMgr::Printf(VeltLogLevel level, VeltInterString const& module, char const* fmt, ...) {
  if (!IsInit()) return;
  std::va_list args;
  va_start(args, fmt);
  (void)Print(*m_pState, module, level, false, fmt, args);  // this form says nothing of a failure
  va_end(args);
}

void VeltDebugMgr::Printf(char const* fmt, ...) {
  if (!IsInit()) return;
  std::va_list args;
  va_start(args, fmt);
  (void)Print(*m_pState, m_pState->m_strDefaultModule, m_pState->m_defaultLevel, false, fmt, args);
  va_end(args);
}

bool VeltDebugMgr::Trace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn,
                         bool bPrint, bool bLog) {
  return TraceToMain(*m_pState, module, level, text, std::string::npos, asn, {bPrint, bLog});
}

namespace {

bool TraceToMain(ManagerState& state, std::string const& module, VeltLogLevel level, char const* text,
                 std::size_t length, AsnType const* asn, velt::OutputFlags asked) {
  if (!state.IsInit()) return false;
  // Acquire: what the engine's constructor wrote is seen with the pointer.
  VeltDebugEngine* const engine = state.m_pEngine.load(std::memory_order_acquire);
  if (engine != nullptr) return engine->Trace(module, level, text, asn, asked.print, asked.log);
  if (state.m_bSilent.load(std::memory_order_relaxed)) return false;  // ordered by the acquire of IsInit
  if (state.m_pChannel == nullptr || level > kLargestLevel || text == nullptr || state.InheritedByFork()) {
    return Refused(state);
  }
  velt::OutputFlags const flags = FlagsOrRefused(state, module, level, asked);
  return velt::TraceText(velt::ChannelState::Of(*state.m_pChannel), module, level, text, length, asn,
                         flags.print, flags.log);
}

}  // namespace

velt::OutputFlags velt::ResolveFlags(ManagerState& state, std::string const& module, VeltLogLevel level,
                                     OutputFlags asked) {
  if (asked.print && asked.log) return asked;
  KnownSets sets;
  if (!FindSets(module, sets)) {
    ReadLock const lock(state.m_modules.m_tableLock);
    if (!lock.locked()) return asked;
    sets.known = state.m_modules.SetsOrDefault_i(module, sets.levels, sets.outputs);
    StoreSets(module, SetsGeneration(), sets);
  }
  // test() throws std::out_of_range for a level that is no bit of the set: the caller's error.
  if (!sets.known || !sets.levels.test(static_cast<std::size_t>(level))) return asked;
  return {asked.print || sets.outputs.test(kStandardOutput), asked.log || sets.outputs.test(kLogFile)};
}

namespace {

std::string ChannelKey(std::string const& name, std::string const& subName) {
  std::string key(name, 0, name.find('\0'));  // a NUL would end the file name
  if (!subName.empty()) {
    key.append(subName, 0, subName.find('\0'));
    key += '_';
  }
  if (key.size() > kLongestKey) key.resize(kLongestKey);
  return key;
}

// The channel of `subName`, made when there is none. Counts the record as refused when it returns null, and
// when it throws because memory has run out.
VeltDebugInfo* ChannelOrRefused(ManagerState& state, std::string const& module,
                                std::string const& subName) try {
  VeltDebugInfo* channel = nullptr;
  velt::Lookup const found = state.m_channels.FindOrMake(ChannelKey(state.m_strName, subName), module,
                                                         state.m_limits, state.m_pChannel, channel);
  if (found == velt::Lookup::kFound && channel != nullptr) return channel;
  Refused(state);
  return nullptr;
} catch (...) {
  Refused(state);
  throw;
}

}  // namespace

bool VeltDebugMgr::AppTrace(std::string const& module, VeltLogLevel level, char const* text,
                            AsnType const* asn, bool bPrint, bool bLog, std::string const& subName) {
  ManagerState& state = *m_pState;
  if (!state.IsInit()) return false;
  VeltDebugEngine* const engine = state.m_pEngine.load(std::memory_order_acquire);
  if (engine != nullptr) return engine->AppTrace(module, level, text, asn, bPrint, bLog, subName);
  if (state.m_bSilent.load(std::memory_order_relaxed)) return true;  // the opposite of what Trace returns
  if (level > kLargestLevel || text == nullptr || state.InheritedByFork()) return Refused(state);
  if (subName.size() >= kSubNameLimit) return Refused(state);

  VeltDebugInfo* const channel = ChannelOrRefused(state, module, subName);
  if (channel == nullptr) return false;
  velt::OutputFlags const flags = FlagsOrRefused(state, module, level, {bPrint, bLog});
  return channel->Trace(module, level, text, asn, flags.print, flags.log);
}
