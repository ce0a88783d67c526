#include "platform/time_stamp.h"

#include <ctime>

#include <cstring>

#include <ace/ACE.h>

namespace velt {
namespace {

constexpr std::size_t kMicrosecondsAt = 20;

// The text of the second that this thread stamped last; its microseconds are rewritten for each record.
struct CachedSecond {
  std::time_t second = -1;
  char text[kTimeStampLength + 1] = "";
};
[[gnu::tls_model("initial-exec")]] thread_local CachedSecond cached;

bool Load(ACE_Time_Value const& instant) {
  cached.second = -1;
  // The call fills the array; what it returns points into the middle of it.
  if (ACE::timestamp(instant, cached.text, sizeof cached.text) == nullptr) return false;
  // ACE takes the zero instant to mean now, counts back before it, and makes a longer text after the year
  // 9999.
  if (instant.sec() > 0 && std::strlen(cached.text) == kTimeStampLength) cached.second = instant.sec();
  return true;
}

void WriteTwoDigits(char* at, unsigned number) {
  at[0] = static_cast<char>('0' + number / 10);
  at[1] = static_cast<char>('0' + number % 10);
}

}  // namespace

void WriteTimeStamp(ACE_Time_Value const& instant, char* text) {
  if (cached.second != instant.sec() && !Load(instant)) {
    text[0] = '\0';
    return;
  }
  std::memcpy(text, cached.text, sizeof cached.text);
  if (cached.second != instant.sec()) return;  // one that is not kept: the text is its own
  auto const microseconds = static_cast<unsigned>(instant.usec());
  WriteTwoDigits(text + kMicrosecondsAt, microseconds / 10'000);
  WriteTwoDigits(text + kMicrosecondsAt + 2, microseconds / 100 % 100);
  WriteTwoDigits(text + kMicrosecondsAt + 4, microseconds % 100);
}

}  // namespace velt
