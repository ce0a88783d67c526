// The output thread of a channel: takes records off the queue and writes their lines.
#include "debug/channel/output_thread.h"

#include <pthread.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <exception>
#include <iostream>
#include <mutex>
#include <new>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>

#include <ace/OS_NS_sys_time.h>
#include <ace/OS_NS_unistd.h>

#include "velt/channel.h"

#include "debug/channel/record.h"
#include "debug/channel/record_node.h"
#include "debug/channel/record_recycler.h"
#include "platform/bounded.h"
#include "platform/time_stamp.h"

namespace {

constexpr std::size_t kThreadNameLength = 15;  // the kernel's limit
constexpr std::size_t kYearLength = 5;         // "2026-", which a line does not bear
constexpr std::size_t kDayAt = 8;              // of the two day digits in a time stamp
constexpr std::size_t kLineHeadCapacity = 512;
constexpr std::size_t kUsualLineBytes = 4096;
constexpr std::size_t kLongestPiece = 2'097'152;  // of a text, as in every write to the file
constexpr unsigned kSecondsBetweenAttempts = 1;
constexpr time_t kSecondsBeforeTrim = 5;
using Clock = std::chrono::steady_clock;

// How many records, and for how long, may be dealt with and still be counted as queued. Letting a waiting
// caller in for each single one costs a switch of threads a record; letting them wait longer on a slow device
// would refuse records.
constexpr std::size_t kMostUnsettled = 512;
constexpr std::size_t kRecordsPerLook = 16;
constexpr std::chrono::milliseconds kLongestUnsettled(10);

// The day digits of the record that any channel wrote last. Relaxed: the two digits travel in one value, and
// an update that another thread sees late only moves a day line.
std::atomic<std::uint16_t> last_day_seen{0};

// Output threads print one record at a time; the state of std::cout has no lock of its own.
std::mutex print_lock;

// An array: the thread has nobody to pass an allocation failure to.
std::array<char, kThreadNameLength + 1> ThreadName(std::string const& prefix) {
  std::array<char, kThreadNameLength + 1> name{};
  (void)velt::snprintf_s(name.data(), name.size(), kThreadNameLength, "velt:%s", prefix.c_str());
  return name;
}

std::uint16_t DayOf(char const* stamp) {
  if (strnlen(stamp, kDayAt + 2) < kDayAt + 2) return 0;
  auto const tens = static_cast<unsigned char>(stamp[kDayAt]);
  auto const ones = static_cast<unsigned char>(stamp[kDayAt + 1]);
  return static_cast<std::uint16_t>(tens << 8 | ones);
}

bool EndsInNewline(std::string_view text) { return text.empty() || text.back() == '\n'; }

char const* StampOf(OutDataUnit const& rec) { return rec.m_pTimeStamp == nullptr ? "" : rec.m_pTimeStamp; }

using LineHead = std::array<char, kLineHeadCapacity>;

// "11-15 08:52:13.123456.T4711": the stamp without its year, and the thread.
std::string_view MakeLineHead(OutDataUnit const& rec, LineHead& buffer) {
  char const* const stamp = StampOf(rec);
  auto const thread = static_cast<unsigned long>(rec.m_nThreadId);
  if (strnlen(stamp, velt::kTimeStampLength + 1) != velt::kTimeStampLength) {  // a host's own
    velt::snprintf_s(buffer.data(), buffer.size(), buffer.size() - 1, "%s.T%lu",
                     stamp + strnlen(stamp, kYearLength), thread);
    return buffer.data();
  }
  // By hand for the others: snprintf is a tenth of what the thread spends on a record.
  constexpr std::size_t kStampPart = velt::kTimeStampLength - kYearLength;
  std::memcpy(buffer.data(), stamp + kYearLength, kStampPart);
  std::memcpy(buffer.data() + kStampPart, ".T", 2);
  char* const digits = buffer.data() + kStampPart + 2;
  char* const end = std::to_chars(digits, buffer.data() + buffer.size(), thread).ptr;
  return {buffer.data(), static_cast<std::size_t>(end - buffer.data())};
}

// The value's text as it follows a record, up to its first NUL. A value whose print throws leaves what it
// printed until then: the thread has nobody to pass an exception to. Without memory for that there is no
// text.
std::string AsnTextOf(AsnType const* value) {
  if (value == nullptr) return {};
  try {
    std::ostringstream printed;
    try {
      value->Print(printed, 0, 1);
    } catch (...) {
      // kept as far as it came
    }
    std::string const text = printed.str();
    return "ASN Trace:\n" + text.substr(0, text.find('\0'));
  } catch (std::exception const&) {
    return {};
  }
}

// Standard output belongs to the host: it may throw, when the host has asked it to.
void PrintRecord(OutDataUnit const& rec, std::string_view line_head, std::string const& asn_text) try {
  std::string line(line_head);
  bool const ends_in_newline = rec.m_pText == nullptr || EndsInNewline(rec.m_pText);
  if (rec.m_pText != nullptr) {
    line += rec.m_pText;
    if (!ends_in_newline) line += '\n';
    if (!asn_text.empty()) line += asn_text + '\n';
  }
  std::lock_guard<std::mutex> const lock(print_lock);
  std::cout.write(line.data(), static_cast<std::streamsize>(line.size()));
  if (rec.m_pText == nullptr) {
    std::cout.setstate(std::ios_base::badbit);  // as the insertion of a null text leaves it
    return;
  }
  if (!ends_in_newline || !asn_text.empty()) std::cout.flush();
} catch (std::exception const&) {
  return;  // the log file has the record; nobody waits for this copy
}

}  // namespace

void velt::RemakePrintLock() { new (&print_lock) std::mutex; }

void* VeltDebugInfo::HandleOutputStringLoop(void* channel) {
  if (channel == nullptr) return nullptr;
  auto& self = *static_cast<VeltDebugInfo*>(channel);
  (void)pthread_setname_np(pthread_self(), ThreadName(self.m_strFilePrefix).data());  // for debuggers only
  self.ProcessLogFileBeforeCreateNew();
  if (self.OpenFileUntilExit()) {
    self.WriteStartLines();
    while (self.HandleNextRecords()) {
    }
    self.WriteFile("thread handle output string exit\n");
  }
  // The last touch of the channel. Release: the destructor that sees it sees the file as this thread left it.
  self.m_bThreadExited.store(true, std::memory_order_release);
  return nullptr;
}

bool VeltDebugInfo::OpenFileUntilExit() {
  while (!OpenNewFile()) {
    if (m_bExit.load(std::memory_order_acquire)) return false;
    ACE_OS::sleep(kSecondsBetweenAttempts);
  }
  return true;
}

void VeltDebugInfo::WriteStartLines() {
  WriteFile("This is the first log file\n");
  std::array<char, 60> line{};
  // 32 bits of the id, as readers of these files have always seen it.
  velt::snprintf_s(line.data(), line.size(), line.size() - 1, "Thread handle output string is 0x%x\n",
                   static_cast<unsigned>(pthread_self()));
  WriteFile(line.data());
}

// Takes what is queued, waiting for it. Memory that a burst left idle is given back in a longer pause.
ACE_Message_Block* VeltDebugInfo::TakeRecords() {
  while (velt::IdleNodesToStock() && m_OutputQueue.is_empty()) velt::StockIdleNodes();
  while (velt::IdleNodesToTrim()) {
    ACE_Time_Value deadline = ACE_OS::gettimeofday() + ACE_Time_Value(kSecondsBeforeTrim);
    ACE_Message_Block* const records = m_OutputQueue.TakeAll(&deadline);
    if (records != nullptr || errno != EWOULDBLOCK) return records;
    while (velt::IdleNodesToTrim() && m_OutputQueue.is_empty()) velt::TrimIdleNodes();
  }
  return m_OutputQueue.TakeAll(nullptr);
}

// Handles all records that are queued, with few locks. Returns false when the thread is to end.
bool VeltDebugInfo::HandleNextRecords() {
  if (m_bExit.load(std::memory_order_acquire) && m_OutputQueue.message_count() == 0) return false;
  ACE_Message_Block* next = TakeRecords();
  if (next == nullptr) {
    WriteFile("can't get message block\n");
    return true;
  }
  std::size_t unsettled = 0;  // dealt with and still counted; the queue has uncounted the first by itself
  Clock::time_point settled_at = Clock::now();
  bool go_on = true;
  while (true) {
    velt::BlockPtr block(next);
    next = next->next();
    // Two ahead: the links of the next one are here already, and were for that.
    if (next != nullptr) velt::PrefetchRecord(next->next());
    go_on = HandleRecord(velt::UnwrapRecord(std::move(block)));
    if (next == nullptr || !go_on) break;
    ++unsettled;
    bool const look_at_clock = unsettled % kRecordsPerLook == 0 && m_OutputQueue.CallersWait();
    if (unsettled == kMostUnsettled || (look_at_clock && Clock::now() > settled_at + kLongestUnsettled)) {
      m_OutputQueue.Settle(unsettled);
      unsettled = 0;
      settled_at = Clock::now();
    }
  }
  if (unsettled > 0) m_OutputQueue.Settle(unsettled);
  m_OutputQueue.PutBack(next);  // what came after the stop marker
  return go_on;
}

// Returns false for the stop marker.
bool VeltDebugInfo::HandleRecord(std::unique_ptr<OutDataUnit> rec) {
  if (rec == nullptr) {
    WriteFile("can't get message block's base\n");
    return true;
  }
  if (velt::IsStopMarker(*rec)) return false;
  if (rec->m_pTimeStamp == nullptr || (rec->m_pText == nullptr && rec->m_pAsn == nullptr)) {
    WriteFile("can't get output data\n");
    return true;
  }
  OutputString(rec.get(), false);
  return true;
}

// The ring's records come back here, once: they are told to be from the ring.
// NOLINTNEXTLINE(misc-no-recursion): one level deep, as fromDiscard sees to
bool VeltDebugInfo::OutputString(OutDataUnit const* rec, bool fromDiscard) {
  if (rec == nullptr || m_pFile == nullptr) return false;
  if (rec->m_nLevel == 0 && !fromDiscard) OutputDiscardQueue();

  LineHead head_buffer;
  std::string_view const line_head = MakeLineHead(*rec, head_buffer);
  std::string const asn_text = AsnTextOf(rec->m_pAsn);
  if (rec->m_bLog && !LogRecord(*rec, line_head, asn_text)) return false;
  last_day_seen.store(DayOf(StampOf(*rec)), std::memory_order_relaxed);
  if (rec->m_bPrint) PrintRecord(*rec, line_head, asn_text);
  return true;
}

// Writes the lines of one record. Returns false when the channel ended with no file open.
bool VeltDebugInfo::LogRecord(OutDataUnit const& rec, std::string_view lineHead, std::string_view asnText) {
  LineHead day_line;
  day_line[0] = '\0';
  if (DayOf(StampOf(rec)) != last_day_seen.load(std::memory_order_relaxed)) {
    velt::snprintf_s(day_line.data(), day_line.size(), day_line.size() - 1, "Current date&time:%s\n",
                     StampOf(rec));
  }
  std::string_view const text = rec.m_pText == nullptr ? std::string_view() : rec.m_pText;
  std::array<std::string_view, 6> const pieces = {day_line.data(),
                                                  lineHead,
                                                  text.substr(0, kLongestPiece),
                                                  EndsInNewline(text) ? "" : "\n",
                                                  asnText.substr(0, kLongestPiece),
                                                  asnText.empty() ? "" : "\n"};
  AppendTogether(pieces.data(), pieces.size());
  return RotateWhenOutgrown();
}

// One write to the file for a record of usual length. A giant one is written as it lies, without a copy.
// The first write that the device refuses ends the record: what would follow has lost its head.
void VeltDebugInfo::AppendTogether(std::string_view const* pieces, std::size_t count) {
  std::array<char, kUsualLineBytes> line;
  std::size_t length = 0;
  for (std::size_t i = 0; i < count; ++i) {
    std::string_view const piece = pieces[i];
    if (piece.size() > line.size() - length) {
      if (!Append(line.data(), length)) return;
      length = 0;
    }
    if (piece.size() > line.size()) {
      if (!Append(piece.data(), piece.size())) return;
    } else if (!piece.empty()) {
      std::memcpy(line.data() + length, piece.data(), piece.size());
      length += piece.size();
    }
  }
  (void)Append(line.data(), length);  // nobody is told of a record that the device refuses
}

bool VeltDebugInfo::RotateWhenOutgrown() {
  // Signed on both sides: a limit of 4294967295 is -1 here, and every record ends its file.
  if (static_cast<int32_t>(m_nEachFileMaxSize) >= static_cast<int32_t>(m_nCurFileSize)) return true;
  CloseFile();
  ProcessLogFileBeforeCreateNew();
  return OpenFileUntilExit();
}

// NOLINTNEXTLINE(misc-no-recursion): see OutputString
void VeltDebugInfo::OutputDiscardQueue() {
  // At most what is there now: records that are filtered meanwhile came after the event that asks for the
  // ring, and busy threads could add them faster than they are written.
  for (std::size_t left = m_DiscardQueue.message_count(); left > 0; --left) {
    ACE_Message_Block* const block = m_DiscardQueue.TryDequeue();
    if (block == nullptr) return;
    velt::RecordPtr const rec = velt::UnwrapRecord(velt::BlockPtr(block));
    if (rec == nullptr) continue;
    rec->m_bPrint = true;
    rec->m_bLog = true;
    OutputString(rec.get(), true);
  }
}
