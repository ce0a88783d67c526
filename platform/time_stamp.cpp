#include "platform/time_stamp.h"

#include <cstring>
#include <ctime>
#include <limits>

#include "platform/local_time.h"

namespace velt {
namespace {

constexpr std::size_t kMicrosecondsAt = 20;
constexpr std::time_t kNoSecond = std::numeric_limits<std::time_t>::min();

// The text of the last second that this thread stamped; the microseconds are rewritten for each record.
struct CachedSecond {
  std::time_t second = kNoSecond;
  char text[kTimeStampLength + 1] = "";
};
[[gnu::tls_model("initial-exec")]] thread_local CachedSecond cached;

// Writes ACE's text of `instant`, and caches it for its second if it has the usual length. Not cached: second
// 0, which ACE takes to mean now, the time before it, and years after 9999, which have more digits.
void WriteNewSecond(ACE_Time_Value const& instant, char* text) {
  cached.second = kNoSecond;
  if (!AceTimeStamp(instant, text, kTimeStampRoom)) {
    text[0] = '\0';
    return;
  }
  if (instant.sec() <= 0 || std::strlen(text) != kTimeStampLength) return;
  std::memcpy(cached.text, text, sizeof cached.text);
  cached.second = instant.sec();
}

void WriteTwoDigits(char* at, unsigned number) {
  at[0] = static_cast<char>('0' + number / 10);
  at[1] = static_cast<char>('0' + number % 10);
}

}  // namespace

void WriteTimeStamp(ACE_Time_Value const& instant, char* text) {
  if (cached.second != instant.sec()) {
    WriteNewSecond(instant, text);
    return;
  }
  std::memcpy(text, cached.text, sizeof cached.text);
  auto const microseconds = static_cast<unsigned>(instant.usec());
  WriteTwoDigits(text + kMicrosecondsAt, microseconds / 10'000);
  WriteTwoDigits(text + kMicrosecondsAt + 2, microseconds / 100 % 100);
  WriteTwoDigits(text + kMicrosecondsAt + 4, microseconds % 100);
}

}  // namespace velt
