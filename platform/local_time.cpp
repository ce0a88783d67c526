#include "platform/local_time.h"

#include <mutex>

#include <ace/ACE.h>

namespace velt {
namespace {

// Held while the C library runs, which may read the time zone's file; never while code of the host runs. A
// plain mutex will do: the thread that forks takes it, and the same thread releases it in the child.
std::mutex zone_lock;

}  // namespace

std::tm LocalTime(std::time_t second) {
  std::tm local{};
  std::lock_guard<std::mutex> const guard(zone_lock);
  if (localtime_r(&second, &local) == nullptr) return {};
  return local;
}

std::size_t FormatLocalTime(char* text, std::size_t capacity, char const* pattern, std::tm const& local) {
  std::lock_guard<std::mutex> const guard(zone_lock);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // the patterns are constants of this library
  return std::strftime(text, capacity, pattern, &local);
#pragma GCC diagnostic pop
}

bool AceTimeStamp(ACE_Time_Value const& instant, char* text, std::size_t capacity) {
  std::lock_guard<std::mutex> const guard(zone_lock);
  // The returned pointer is into the middle of the text, so only null matters.
  return ACE::timestamp(instant, text, capacity) != nullptr;
}

void LockLocalTime() noexcept { zone_lock.lock(); }

void UnlockLocalTime() noexcept { zone_lock.unlock(); }

}  // namespace velt
