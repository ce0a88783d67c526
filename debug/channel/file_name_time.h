// The time in a log file's name as a number of seconds, without time zones and summer time, so that names can
// be compared and incremented.
#ifndef VELT_DEBUG_CHANNEL_FILE_NAME_TIME_H
#define VELT_DEBUG_CHANNEL_FILE_NAME_TIME_H

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

namespace velt {

inline constexpr std::size_t kNameTimeLength = 15;  // "20240305_140709"

// The seconds from 1970-01-01 00:00:00 to `local`, both taken as times of one zone without summer time.
std::int64_t SecondsOf(std::tm const& local);

// "20240305_140709". Years have four digits.
std::string NameTimeOf(std::int64_t seconds);

// Reads such a text. Returns false, with `seconds` untouched, when `text` is not one.
bool SecondsOfNameTime(std::string_view text, std::int64_t& seconds);

}  // namespace velt

#endif
