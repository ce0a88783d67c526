// The output thread of a channel: takes records off the queue and writes their lines.
#include "debug/channel/output_thread.h"

#include <pthread.h>

#include <array>
#include <atomic>
#include <cstring>
#include <exception>
#include <iostream>
#include <mutex>
#include <new>
#include <sstream>
#include <string>
#include <string_view>

#include <ace/OS_NS_unistd.h>

#include "velt/channel.h"

#include "debug/channel/record.h"
#include "platform/bounded.h"
#include "platform/time_stamp.h"

namespace {

constexpr std::size_t kThreadNameLength = 15;  // the kernel's limit
constexpr std::size_t kYearLength = 5;         // "2026-", which a line does not bear
constexpr std::size_t kDayAt = 8;              // of the two day digits in a time stamp
constexpr std::size_t kLineHeadCapacity = 512;
constexpr std::size_t kLongestPiece = 2'097'152;  // of a text, as in every write to the file
constexpr std::size_t kLineMemoryKept = 65'536;
constexpr unsigned kSecondsBetweenAttempts = 1;

// The day digits of the record that any channel wrote last. Relaxed: the two digits travel in one value, and
// an update that another thread sees late only moves a day line.
std::atomic<std::uint16_t> last_day_seen{0};

// Output threads print one record at a time; the state of std::cout has no lock of its own.
std::mutex print_lock;

std::string ThreadName(std::string const& prefix) { return ("velt:" + prefix).substr(0, kThreadNameLength); }

std::uint16_t DayOf(char const* stamp) {
  if (strnlen(stamp, kDayAt + 2) < kDayAt + 2) return 0;
  auto const tens = static_cast<unsigned char>(stamp[kDayAt]);
  auto const ones = static_cast<unsigned char>(stamp[kDayAt + 1]);
  return static_cast<std::uint16_t>(tens << 8 | ones);
}

bool EndsInNewline(char const* text) {
  return text == nullptr || *text == '\0' || text[std::strlen(text) - 1] == '\n';
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
void PrintRecord(OutDataUnit const& rec, char const* line_head, std::string const& asn_text) try {
  std::string line = line_head;
  bool const ends_in_newline = EndsInNewline(rec.m_pText);
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
  (void)pthread_setname_np(pthread_self(), ThreadName(self.m_strFilePrefix).c_str());  // for debuggers only
  self.ProcessLogFileBeforeCreateNew();
  if (self.OpenFileUntilExit()) {
    self.WriteStartLines();
    while (self.HandleNextRecord()) {
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

// Returns false when the thread is to end.
bool VeltDebugInfo::HandleNextRecord() {
  if (m_bExit.load(std::memory_order_acquire) && m_OutputQueue.message_count() == 0) return false;
  ACE_Message_Block* head = nullptr;
  if (m_OutputQueue.dequeue(head) == -1 || head == nullptr) {
    WriteFile("can't get message block\n");
    return true;
  }
  velt::RecordPtr const rec = velt::UnwrapRecord(velt::BlockPtr(head));
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

  char const* const stamp = rec->m_pTimeStamp == nullptr ? "" : rec->m_pTimeStamp;
  char const* const without_year = stamp + strnlen(stamp, kYearLength);
  std::array<char, kLineHeadCapacity> line_head;
  velt::snprintf_s(line_head.data(), line_head.size(), line_head.size() - 1, "%s.T%lu", without_year,
                   static_cast<unsigned long>(rec->m_nThreadId));
  std::string const asn_text = AsnTextOf(rec->m_pAsn);

  bool const file_open = !rec->m_bLog || LogRecord(*rec, line_head.data(), asn_text);
  if (!file_open) return false;
  last_day_seen.store(DayOf(stamp), std::memory_order_relaxed);
  if (rec->m_bPrint) PrintRecord(*rec, line_head.data(), asn_text);
  return true;
}

// Writes the lines of one record, with one write to the file. Returns false when the channel ended with no
// file open.
bool VeltDebugInfo::LogRecord(OutDataUnit const& rec, char const* lineHead, std::string const& asnText) {
  std::array<char, kLineHeadCapacity> day_line{};
  char const* const stamp = rec.m_pTimeStamp == nullptr ? "" : rec.m_pTimeStamp;
  if (DayOf(stamp) != last_day_seen.load(std::memory_order_relaxed)) {
    velt::snprintf_s(day_line.data(), day_line.size(), day_line.size() - 1, "Current date&time:%s\n", stamp);
  }
  char const* const text = rec.m_pText == nullptr ? "" : rec.m_pText;
  std::array<std::string_view, 6> const pieces = {day_line.data(),
                                                  lineHead,
                                                  std::string_view(text, strnlen(text, kLongestPiece)),
                                                  EndsInNewline(text) ? "" : "\n",
                                                  std::string_view(asnText).substr(0, kLongestPiece),
                                                  asnText.empty() ? "" : "\n"};
  try {
    m_strLine.clear();
    for (std::string_view const piece : pieces) m_strLine += piece;
    Append(m_strLine.data(), m_strLine.size());
    if (m_strLine.capacity() > kLineMemoryKept) std::string().swap(m_strLine);  // one giant record is no rule
  } catch (std::bad_alloc const&) {
    for (std::string_view const piece : pieces) Append(piece.data(), piece.size());
  }
  return RotateWhenOutgrown();
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
