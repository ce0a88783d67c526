#include "debug/channel/trace.h"

#include <sys/time.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include <ace/Time_Value.h>

#include "velt/channel.h"

#include "debug/channel/channel_problems.h"
#include "debug/channel/channel_state.h"
#include "debug/channel/counts.h"
#include "debug/channel/record.h"
#include "debug/channel/record_node.h"
#include "debug/channel/ring.h"
#include "platform/message_format.h"
#include "platform/thread_id.h"
#include "platform/time_stamp.h"

namespace velt {
namespace {

constexpr std::size_t kLongestMessage = 2048;
constexpr std::size_t kLongestPrinted = 2046;  // of an expanded format
constexpr std::size_t kTextOverhead = 18;      // spaces, tag and NUL, with room to spare
constexpr std::size_t kLongestModule =
    INT32_MAX - kLongestMessage - kTextOverhead;  // a text's size is an int
constexpr std::size_t kTagLength = 3;
constexpr int kCheckedOutLevel = 32;  // kept in a record as levels 0 to 3 are; others become kDefaultLevel

std::string_view TagOf(int level) {
  constexpr std::array<std::string_view, 4> kTags = {"A: ", "E: ", "W: ", "I: "};
  return level >= 0 && level < 4 ? kTags[static_cast<std::size_t>(level)] : std::string_view();
}

// The time that ACE_OS::gettimeofday returns, but without normalising, which would cost 2 ns.
ACE_Time_Value TimeOfDay() {
  timeval time{};
  (void)gettimeofday(&time, nullptr);
  ACE_Time_Value now;
  now.sec(time.tv_sec);
  now.usec(time.tv_usec);
  return now;
}

char* AppendText(char* at, char const* text, std::size_t length) {
  std::memcpy(at, text, length);
  return at + length;
}

// Makes a record without its stamp and text, for which it has the arrays of its node.
std::unique_ptr<OutDataUnit> MakeRecord(std::string const& module, VeltLogLevel level, bool print, bool log) {
  auto rec = std::make_unique<OutDataUnit>();
  NodeOf(rec.get())->LendArrays(*rec);
  rec->m_nThreadId = ThreadId();
  rec->m_nLevel = level < 4 || level == kCheckedOutLevel ? static_cast<int32_t>(level) : kDefaultLevel;
  if (module.size() == 1 && module.front() == ' ') {
    rec->m_strModule = "default";
  } else {
    rec->m_strModule = module;
  }
  rec->m_bPrint = print;
  rec->m_bLog = log;
  return rec;
}

// Writes what comes before the message; returns its end.
char* WriteTextHead(char* at, std::string const& module, VeltLogLevel level) {
  *at++ = ' ';
  at = AppendText(at, module.data(), module.size());
  *at++ = ' ';
  std::string_view const tag = TagOf(level);
  return tag.empty() ? at : AppendText(at, tag.data(), kTagLength);
}

void WriteText(OutDataUnit& rec, std::string const& module, VeltLogLevel level, char const* text,
               std::size_t length) {
  std::size_t const text_size = length + module.size() + kTextOverhead;
  if (text_size > kNodeTextBytes) rec.m_pText = new char[text_size];
  char* const at = AppendText(WriteTextHead(rec.m_pText, module, level), text, length);
  *at = '\0';
}

// Queues `rec`, whose block is `block`; the queue then owns it. Returns false, and the caller still owns it,
// when there is no room for as long as a call waits.
bool QueueForOutput(ChannelState& state, std::unique_ptr<OutDataUnit>& rec, ACE_Message_Block* block) {
  // Released before it is queued: from then on the output thread may delete it at any moment.
  OutDataUnit* const given = rec.release();
  if (state.m_OutputQueue.EnqueueRecord(block)) return true;
  bool const full = errno == EWOULDBLOCK;
  rec.reset(given);
  if (full) RecordRefused(state);
  return false;
}

// Queues `rec` for output, or puts it into the ring. Returns true with `rec` released when a queue has it;
// true with `rec` still the caller's when it is filtered and there is no ring; false otherwise.
bool Enqueue(ChannelState& state, std::unique_ptr<OutDataUnit>& rec, ACE_Message_Block* block) {
  if (state.InheritedByFork()) return false;
  bool const filtered = !rec->m_bPrint && !rec->m_bLog;
  return filtered ? KeepInRing(state, rec, block) : QueueForOutput(state, rec, block);
}

}  // namespace

bool TakesRecords(ChannelState const& state) {
  // Relaxed: the queue's lock orders everything in a record.
  return state.m_bThreadStarted.load(std::memory_order_relaxed) && !state.InheritedByFork();
}

bool KeepsFiltered(ChannelState const& state) {
  return state.m_nFiltLogBufSize != 0 || state.m_bPrint || state.m_bLog;
}

namespace {

// TraceText, without counting what it refuses.
bool TraceTextUncounted(ChannelState& state, std::string const& module, VeltLogLevel level, char const* text,
                        std::size_t length, AsnType const* asn, bool print, bool log) {
  if (text == nullptr || !TakesRecords(state)) return false;
  if (module.size() > kLongestModule) return false;
  if (!print && !log && !KeepsFiltered(state)) return true;  // no output and no ring: no record is made

  ACE_Time_Value const now = TimeOfDay();  // first, as in TraceFormat
  if (length == std::string::npos) length = strnlen(text, kLongestMessage);
  std::unique_ptr<OutDataUnit> made = MakeRecord(module, level, print || state.m_bPrint, log || state.m_bLog);
  WriteTimeStamp(now, made->m_pTimeStamp);
  WriteText(*made, module, level, text, length);
  if (asn != nullptr) made->m_pAsn = asn->Clone();
  return Enqueue(state, made, &NodeOf(made.get())->block);
}

VELT_PRINTF_FORMAT(4, 0)
Printed TraceFormatUncounted(ChannelState& state, std::string const& module, VeltLogLevel level,
                             char const* fmt, std::va_list args, bool print, bool log) {
  if (module.size() > kLongestModule) return Printed::kRefused;
  // First: the reading waits for all that the processor has begun, and what was begun last is to fetch the
  // record's lines from another core.
  ACE_Time_Value const now = TimeOfDay();
  std::unique_ptr<OutDataUnit> made = MakeRecord(module, level, print || state.m_bPrint, log || state.m_bLog);
  std::array<char, kLongestPrinted + 1> elsewhere;
  PlacedMessage placed{};
  if (module.size() + kTextOverhead < kNodeTextBytes) {
    char* const at = WriteTextHead(made->m_pText, module, level);
    auto const room = static_cast<std::size_t>(made->m_pText + kNodeTextBytes - at);
    placed = ExpandMessageInto(at, room, elsewhere.data(), elsewhere.size(), fmt, args);
  } else {
    placed.message = ExpandMessage(elsewhere.data(), elsewhere.size(), fmt, args);
  }
  if (placed.message.kept <= 0) {
    int const error = errno;
    made.reset();
    errno = error;
    return Printed::kNotExpanded;
  }
  WriteTimeStamp(now, made->m_pTimeStamp);
  if (!placed.near) WriteText(*made, module, level, elsewhere.data(), placed.message.length);
  return Enqueue(state, made, &NodeOf(made.get())->block) ? Printed::kTraced : Printed::kRefused;
}

bool TraceRecordUncounted(ChannelState& state, OutDataUnit*& rec) {
  RecordPtr owned(rec);
  rec = nullptr;  // every result but success, also an exception, leaves null
  if (owned == nullptr) return false;
  OutDataUnit* const queued = owned.get();
  // A new block: the host may have made the record without a node.
  BlockPtr block = WrapRecord(queued);
  // Counted before it is queued: the output thread may then end at any moment.
  // A filtered one goes where filtered records go, and is none for the output thread.
  bool const marker = IsStopMarker(*queued) && (queued->m_bPrint || queued->m_bLog);
  if (marker) state.m_counts.markers.fetch_add(1, std::memory_order_relaxed);
  if (!Enqueue(state, owned, block.get())) {
    if (marker) state.m_counts.markers.fetch_sub(1, std::memory_order_relaxed);
    return false;
  }
  if (owned != nullptr) return true;  // filtered, and there is no ring
  (void)block.release();              // the queue owns it now, and the record
  rec = queued;
  return true;
}

// Calls `trace`, and counts a record that is refused or lost to an exception.
template <typename Trace>
bool Counted(ChannelState& state, Trace const& trace) try {
  bool const taken = trace();
  if (!taken) CountRefused(state);
  return taken;
} catch (...) {
  CountRefused(state);
  throw;
}

}  // namespace

bool TraceText(ChannelState& state, std::string const& module, VeltLogLevel level, char const* text,
               std::size_t length, AsnType const* asn, bool print, bool log) {
  return Counted(state,
                 [&] { return TraceTextUncounted(state, module, level, text, length, asn, print, log); });
}

Printed TraceFormat(ChannelState& state, std::string const& module, VeltLogLevel level, char const* fmt,
                    std::va_list args, bool print, bool log) try {
  Printed const printed = TraceFormatUncounted(state, module, level, fmt, args, print, log);
  if (printed != Printed::kTraced) {
    int const error = errno;  // why a format was not expanded
    CountRefused(state);
    errno = error;
  }
  return printed;
} catch (...) {
  CountRefused(state);
  throw;
}

bool TraceRecord(ChannelState& state, OutDataUnit*& rec) {
  return Counted(state, [&] { return TraceRecordUncounted(state, rec); });
}

}  // namespace velt
