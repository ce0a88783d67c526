// The time in a log file's name, in seconds that know neither time zones nor summer time: names are compared
// and counted on by these.
#ifndef VELT_DEBUG_CHANNEL_FILE_NAME_TIME_H
#define VELT_DEBUG_CHANNEL_FILE_NAME_TIME_H

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

namespace velt {

inline constexpr std::size_t kNameTimeLength = 15;  // "20240305_140709"

// The seconds from 1970-01-01 00:00:00 to what a clock on the wall shows at `local`.
std::int64_t SecondsOf(std::tm const& local);

// "20240305_140709". Years have four digits.
std::string NameTimeOf(std::int64_t seconds);

// Reads such a text. Returns false, with `seconds` untouched, for one that is none.
bool SecondsOfNameTime(std::string_view text, std::int64_t& seconds);

}  // namespace velt

#endif
