// The time stamp text of a log line.
#ifndef VELT_PLATFORM_TIME_STAMP_H
#define VELT_PLATFORM_TIME_STAMP_H

#include <cstddef>

#include <ace/Time_Value.h>

namespace velt {

inline constexpr std::size_t kTimeStampCapacity = 512;  // bytes of every time stamp array
inline constexpr std::size_t kTimeStampLength = 26;     // characters of "2026-11-15 08:52:13.123456"
inline constexpr std::size_t kTimeStampRoom = 32;       // bytes: a year of nine digits, and the NUL

// Writes the local time of `instant` and a NUL into `text`, which has room for kTimeStampRoom bytes: the text
// that ACE::timestamp makes, or the empty text if it makes none. The text has kTimeStampLength characters up
// to the year 9999, and more after it; what does not fit is cut.
void WriteTimeStamp(ACE_Time_Value const& instant, char* text);

}  // namespace velt

#endif
