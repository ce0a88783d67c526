// The caller's side of a channel: makes a record and queues it.
#include <sys/time.h>

#include <array>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>

#include <ace/Time_Value.h>

#include "velt/channel.h"

#include "debug/channel/record.h"
#include "debug/channel/record_node.h"
#include "platform/message_format.h"
#include "platform/thread_id.h"
#include "platform/time_stamp.h"

namespace {

constexpr std::size_t kLongestMessage = 2048;
constexpr std::size_t kFormatCapacity = 2047;
constexpr std::size_t kTextOverhead = 18;  // spaces, tag and NUL, with room to spare
constexpr std::size_t kLongestModule =
    INT32_MAX - kLongestMessage - kTextOverhead;  // a text's size is an int
constexpr std::size_t kTagLength = 3;
constexpr int kDefaultLevel = 3;
constexpr int kCheckedOutLevel = 32;  // the one level above the tagged ones that a record keeps
constexpr time_t kQueueWaitSeconds = 1;
constexpr char const* kUnnamedModule = " ";

std::string_view TagOf(int level) {
  constexpr std::array<std::string_view, 4> kTags = {"A: ", "E: ", "W: ", "I: "};
  return level >= 0 && level < 4 ? kTags[static_cast<std::size_t>(level)] : std::string_view();
}

// What ACE_OS::gettimeofday gives, without the normalising of what is in range: 2 ns.
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

}  // namespace

bool VeltDebugInfo::Trace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn,
                          bool bPrint, bool bLog) {
  return TraceText(module, level, text, std::string::npos, asn, bPrint, bLog);
}

// A length that the caller knows need not be counted again; npos is none.
bool VeltDebugInfo::TraceText(std::string const& module, VeltLogLevel level, char const* text,
                              std::size_t length, AsnType const* asn, bool bPrint, bool bLog) {
  // Relaxed: the queue's lock orders everything that a record carries.
  if (text == nullptr || !m_bThreadStarted.load(std::memory_order_relaxed) || InheritedByFork()) return false;
  if (module.size() > kLongestModule) return false;
  bool const print = bPrint || m_bPrint;
  bool const log = bLog || m_bLog;
  if (!print && !log && m_nFiltLogBufSize == 0) return true;  // nobody will see it: nothing is made for it

  if (length == std::string::npos) length = strnlen(text, kLongestMessage);
  ACE_Time_Value const now = TimeOfDay();
  std::unique_ptr<OutDataUnit> made = MakeRecord(module, level, text, length, asn, now);
  made->m_bPrint = print;
  made->m_bLog = log;
  return Enqueue(made, &velt::NodeOf(made.get())->block, now);
}

std::unique_ptr<OutDataUnit> VeltDebugInfo::MakeRecord(std::string const& module, VeltLogLevel level,
                                                       char const* text, std::size_t length,
                                                       AsnType const* asn, ACE_Time_Value const& now) const {
  auto rec = std::make_unique<OutDataUnit>();
  velt::RecordNode* const node = velt::NodeOf(rec.get());
  node->LendArrays(*rec);
  velt::WriteTimeStamp(now, rec->m_pTimeStamp);
  rec->m_nThreadId = velt::ThreadId();
  rec->m_nLevel = level < 4 || level == kCheckedOutLevel ? static_cast<int32_t>(level) : kDefaultLevel;
  if (module.size() == 1 && module.front() == ' ') {
    rec->m_strModule = "default";
  } else {
    rec->m_strModule = module;
  }
  std::size_t const text_size = length + module.size() + kTextOverhead;
  if (text_size > sizeof node->text) rec->m_pText = new char[text_size];
  char* at = rec->m_pText;
  *at++ = ' ';
  at = AppendText(at, module.data(), module.size());
  *at++ = ' ';
  std::string_view const tag = TagOf(level);
  if (!tag.empty()) at = AppendText(at, tag.data(), kTagLength);
  at = AppendText(at, text, length);
  *at = '\0';
  if (asn != nullptr) rec->m_pAsn = asn->Clone();
  return rec;
}

bool VeltDebugInfo::TraceInner(OutDataUnit*& rec) {
  velt::RecordPtr owned(rec);
  rec = nullptr;  // what every path but success leaves, an exception too
  if (owned == nullptr) return false;
  OutDataUnit* const queued = owned.get();
  // A block of its own: a host may have made the record in any way.
  velt::BlockPtr block = velt::WrapRecord(queued);
  if (!Enqueue(owned, block.get(), TimeOfDay())) return false;
  if (owned != nullptr) return true;  // filtered, and there is no ring
  (void)block.release();              // the queue's now, like the record
  rec = queued;
  return true;
}

// Releases `rec` to the queue when it was queued; else it stays the caller's, and the answer is true only for
// a filtered record on a channel without a ring.
bool VeltDebugInfo::Enqueue(std::unique_ptr<OutDataUnit>& rec, ACE_Message_Block* block,
                            ACE_Time_Value const& now) {
  if (InheritedByFork()) return false;
  bool const filtered = !rec->m_bPrint && !rec->m_bLog;
  if (filtered && m_nFiltLogBufSize == 0) return true;
  ACE_Time_Value deadline = now;
  deadline.sec(now.sec() + kQueueWaitSeconds);  // a constructor would normalise it
  if (filtered) {
    ACE_Message_Block* evicted = nullptr;
    bool const queued = m_DiscardQueue.EnqueueEvicting(block, m_nFiltLogBufSize, deadline, evicted);
    if (queued) (void)rec.release();
    velt::DeleteChain(evicted);
    return queued;
  }
  // Given up before it is queued: from then on the output thread may delete it at any moment.
  OutDataUnit* const given = rec.release();
  if (m_OutputQueue.EnqueueRecord(block, deadline)) return true;
  rec.reset(given);
  return false;
}

void VeltDebugInfo::FmtTrace(char const* fmt, ...) {
  std::array<char, kFormatCapacity> message;
  std::va_list args;
  va_start(args, fmt);
  int const length = velt::FormatMessage(message.data(), message.size(), fmt, args);
  va_end(args);
  if (length > 0) Trace(kUnnamedModule, VeltLogLevel{kDefaultLevel}, message.data(), nullptr, true, true);
}

void VeltDebugInfo::ASNTrace(AsnType const* value, bool bPrint, bool bLog) {
  if (value == nullptr) return;
  std::string text;
  ASNTrace(value, text);
  Trace(kUnnamedModule, VeltLogLevel{kDefaultLevel}, text.c_str(), nullptr, bPrint, bLog);
}

void VeltDebugInfo::ASNTrace(AsnType const* value, std::string& out) const {
  if (value == nullptr) return;
  std::ostringstream printed;
  value->Print(printed, 0, 1);
  out += "ASN Trace:\n";
  std::string const text = printed.str();
  out.append(text, 0, text.find('\0'));  // where a reader of text would stop as well
}
