// Local time from the C library, safe for forked children.
//
// The C library guards its time zone with a lock that a fork does not wait for. A child forked while another
// thread holds that lock can never take it, and hangs at its first stamp. So this library makes each such
// call (localtime_r, strftime, ACE::timestamp) under a lock of its own, and a fork waits for that lock.
#ifndef VELT_PLATFORM_LOCAL_TIME_H
#define VELT_PLATFORM_LOCAL_TIME_H

#include <cstddef>
#include <ctime>

#include <ace/Time_Value.h>

namespace velt {

// `second` in local time; all zeros (the year 1900, day 0) when its year is beyond an int.
std::tm LocalTime(std::time_t second);

// strftime: returns the length of the text; 0 when it does not fit, and `text` is then undefined.
std::size_t FormatLocalTime(char* text, std::size_t capacity, char const* pattern, std::tm const& local);

// ACE::timestamp of `instant` into `text`. False when ACE gives none, with `text` undefined.
bool AceTimeStamp(ACE_Time_Value const& instant, char* text, std::size_t capacity);

// Around a fork: the forking thread holds the lock, so that no other thread is inside one of these calls.
void LockLocalTime() noexcept;
void UnlockLocalTime() noexcept;  // in the parent and in the child

}  // namespace velt

#endif
