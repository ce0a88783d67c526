// Chooses the name of the next file of a running channel. No name is used twice, and names sort in the order
// of creation.
#ifndef VELT_DEBUG_CHANNEL_NEXT_NAME_H
#define VELT_DEBUG_CHANNEL_NEXT_NAME_H

#include <cstdint>

namespace velt {

struct ChannelState;

// What a channel remembers of its last name. Seconds are those of file_name_time.h. Output thread.
struct NameHistory {
  static constexpr std::int64_t kNone = INT64_MIN;
  std::int64_t last_name = kNone;   // the time in the last name
  std::int64_t last_clock = kNone;  // the clock's time then
};

// The time in the next name when the clock shows `now`: the latest of
// - `now`;
// - one second after the last name of the channel, unless the clock was set back by more than an hour since;
// - one second after the newest name of the family in the directory, not counting names that are more than an
//   hour ahead of the clock.
std::int64_t NextNameTime(ChannelState& state, std::int64_t now);

// Whether a name with the time `name` is further ahead of the clock than allowed. The caller then waits for
// the next second before it opens the file.
bool IsTooFarAhead(std::int64_t name, std::int64_t now);

}  // namespace velt

#endif
