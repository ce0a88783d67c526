#include "debug/channel/trace.h"

#include <sys/time.h>

#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include <ace/Time_Value.h>

#include "velt/channel.h"

#include "debug/channel/channel_state.h"
#include "debug/channel/record.h"
#include "debug/channel/record_node.h"
#include "debug/channel/ring.h"
#include "platform/thread_id.h"
#include "platform/time_stamp.h"

namespace velt {
namespace {

constexpr std::size_t kLongestMessage = 2048;
constexpr std::size_t kTextOverhead = 18;  // spaces, tag and NUL, with room to spare
constexpr std::size_t kLongestModule =
    INT32_MAX - kLongestMessage - kTextOverhead;  // a text's size is an int
constexpr std::size_t kTagLength = 3;
constexpr int kCheckedOutLevel = 32;  // the one level above the tagged ones that a record keeps

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

std::unique_ptr<OutDataUnit> MakeRecord(std::string const& module, VeltLogLevel level, char const* text,
                                        std::size_t length, AsnType const* asn) {
  auto rec = std::make_unique<OutDataUnit>();
  RecordNode* const node = NodeOf(rec.get());
  node->LendArrays(*rec);
  WriteTimeStamp(TimeOfDay(), rec->m_pTimeStamp);
  rec->m_nThreadId = ThreadId();
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

// Queues `rec`, whose block is `block`, and releases it to the queue. Returns false, with the record still
// the caller's, when there is no room for as long as a call waits.
bool QueueForOutput(ChannelState& state, std::unique_ptr<OutDataUnit>& rec, ACE_Message_Block* block) {
  // Given up before it is queued: from then on the output thread may delete it at any moment.
  OutDataUnit* const given = rec.release();
  if (state.m_OutputQueue.EnqueueRecord(block)) return true;
  rec.reset(given);
  return false;
}

// Releases `rec` to a queue when it was queued; else it stays the caller's, and the result is true only for a
// filtered record on a channel without a ring.
bool Enqueue(ChannelState& state, std::unique_ptr<OutDataUnit>& rec, ACE_Message_Block* block) {
  if (state.InheritedByFork()) return false;
  bool const filtered = !rec->m_bPrint && !rec->m_bLog;
  return filtered ? KeepInRing(state, rec, block) : QueueForOutput(state, rec, block);
}

}  // namespace

bool TraceText(ChannelState& state, std::string const& module, VeltLogLevel level, char const* text,
               std::size_t length, AsnType const* asn, bool print, bool log) {
  // Relaxed: the queue's lock orders everything that a record carries.
  if (text == nullptr || !state.m_bThreadStarted.load(std::memory_order_relaxed) || state.InheritedByFork()) {
    return false;
  }
  if (module.size() > kLongestModule) return false;
  print = print || state.m_bPrint;
  log = log || state.m_bLog;
  if (!print && !log && state.m_nFiltLogBufSize == 0)
    return true;  // nobody will see it: nothing is made for it

  if (length == std::string::npos) length = strnlen(text, kLongestMessage);
  std::unique_ptr<OutDataUnit> made = MakeRecord(module, level, text, length, asn);
  made->m_bPrint = print;
  made->m_bLog = log;
  return Enqueue(state, made, &NodeOf(made.get())->block);
}

bool TraceRecord(ChannelState& state, OutDataUnit*& rec) {
  RecordPtr owned(rec);
  rec = nullptr;  // what every path but success leaves, an exception too
  if (owned == nullptr) return false;
  OutDataUnit* const queued = owned.get();
  // A block of its own: a host may have made the record in any way.
  BlockPtr block = WrapRecord(queued);
  if (!Enqueue(state, owned, block.get())) return false;
  if (owned != nullptr) return true;  // filtered, and there is no ring
  (void)block.release();              // the queue's now, like the record
  rec = queued;
  return true;
}

}  // namespace velt
