// The name of the next file of a running channel. No name is ever taken twice, and names rise in the order of
// creation.
#ifndef VELT_DEBUG_CHANNEL_NEXT_NAME_H
#define VELT_DEBUG_CHANNEL_NEXT_NAME_H

#include <cstdint>

namespace velt {

struct ChannelState;

// What a channel remembers of the names it gave. Seconds are those of file_name_time.h. Output thread.
struct NameHistory {
  static constexpr std::int64_t kNone = INT64_MIN;
  std::int64_t last_name = kNone;   // the time in the last name
  std::int64_t last_clock = kNone;  // what the clock showed then
};

// The time in the next name, at a moment at which the clock shows `now`: that moment, or one second after the
// last name of the channel, or after the newest one of the family in the directory, whichever is latest.
// Names in the directory that are more than an hour ahead of the clock do not count. Neither do the channel's
// own after the clock was set back by more than an hour.
std::int64_t NextNameTime(ChannelState& state, std::int64_t now);

// Whether such a name is further ahead of the clock than names may run. Whoever opens it first waits for the
// next second.
bool IsTooFarAhead(std::int64_t name, std::int64_t now);

}  // namespace velt

#endif
