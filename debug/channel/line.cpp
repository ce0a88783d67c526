#include "debug/channel/line.h"

#include <atomic>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <exception>
#include <sstream>

#include "platform/bounded.h"
#include "platform/time_stamp.h"

namespace velt {
namespace {

constexpr std::size_t kYearLength = 5;  // "2026-", which a line leaves out
constexpr std::size_t kDayAt = 8;       // where the two day digits are in a time stamp

// The day digits of the record that any channel wrote last. Relaxed: both digits are in one value, and if a
// thread sees an update late, only a day line is moved.
std::atomic<std::uint16_t> last_day_seen{0};

std::uint16_t DayOf(char const* stamp) {
  if (strnlen(stamp, kDayAt + 2) < kDayAt + 2) return 0;
  auto const tens = static_cast<unsigned char>(stamp[kDayAt]);
  auto const ones = static_cast<unsigned char>(stamp[kDayAt + 1]);
  return static_cast<std::uint16_t>(tens << 8 | ones);
}

// Makes the head of a line: the stamp without its year, and the thread id.
std::string_view MakeHead(OutDataUnit const& rec, std::array<char, kLineHeadCapacity>& buffer) {
  char const* const stamp = StampOf(rec);
  auto const thread = static_cast<unsigned long>(rec.m_nThreadId);
  if (strnlen(stamp, kTimeStampLength + 1) != kTimeStampLength) {  // a stamp that the host made
    snprintf_s(buffer.data(), buffer.size(), buffer.size() - 1, "%s.T%lu",
               stamp + strnlen(stamp, kYearLength), thread);
    return buffer.data();
  }
  // Our own stamps are copied by hand: snprintf would take a tenth of the thread's time for a record.
  constexpr std::size_t kStampPart = kTimeStampLength - kYearLength;
  std::memcpy(buffer.data(), stamp + kYearLength, kStampPart);
  std::memcpy(buffer.data() + kStampPart, ".T", 2);
  char* const digits = buffer.data() + kStampPart + 2;
  char* const end = std::to_chars(digits, buffer.data() + buffer.size(), thread).ptr;
  return {buffer.data(), static_cast<std::size_t>(end - buffer.data())};
}

std::string AsAsnText(std::ostringstream const& printed) {
  std::string const text = printed.str();
  return "ASN Trace:\n" + text.substr(0, text.find('\0'));
}

// For the output thread, which cannot pass an exception on: if Print throws, returns what it had printed. If
// memory runs out, returns no text.
std::string AsnTextWithoutExceptions(AsnType const* value) {
  if (value == nullptr) return {};
  try {
    std::ostringstream printed;
    try {
      value->Print(printed, 0, 1);
    } catch (...) {
      // what was printed so far is the result
    }
    return AsAsnText(printed);
  } catch (std::exception const&) {
    return {};
  }
}

}  // namespace

void MakeLine(OutDataUnit const& rec, RecordLine& line) {
  line.head = MakeHead(rec, line.head_buffer);
  line.asn_text = AsnTextWithoutExceptions(rec.m_pAsn);
}

std::string AsnText(AsnType const* value) {
  if (value == nullptr) return {};
  std::ostringstream printed;
  value->Print(printed, 0, 1);
  return AsAsnText(printed);
}

bool EndsInNewline(std::string_view text) { return text.empty() || text.back() == '\n'; }

char const* StampOf(OutDataUnit const& rec) { return rec.m_pTimeStamp == nullptr ? "" : rec.m_pTimeStamp; }

bool IsNewDay(OutDataUnit const& rec) {
  return DayOf(StampOf(rec)) != last_day_seen.load(std::memory_order_relaxed);
}

void StoreDay(OutDataUnit const& rec) { last_day_seen.store(DayOf(StampOf(rec)), std::memory_order_relaxed); }

}  // namespace velt
