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
thread_local CachedSecond cached;

bool Load(ACE_Time_Value const& instant) {
  cached.second = -1;
  // The call fills the array; what it returns points into the middle of it.
  if (ACE::timestamp(instant, cached.text, sizeof cached.text) == nullptr) return false;
  cached.second = instant.sec();
  return true;
}

}  // namespace

void WriteTimeStamp(ACE_Time_Value const& instant, char* text) {
  // ACE takes the zero instant to mean now, so that second is never kept.
  if ((cached.second != instant.sec() || instant.sec() == 0) && !Load(instant)) {
    text[0] = '\0';
    return;
  }
  std::memcpy(text, cached.text, sizeof cached.text);
  if (instant.sec() == 0) return;
  auto microseconds = static_cast<unsigned>(instant.usec());
  for (std::size_t at = kTimeStampLength; at-- > kMicrosecondsAt; microseconds /= 10) {
    text[at] = static_cast<char>('0' + microseconds % 10);
  }
}

}  // namespace velt
