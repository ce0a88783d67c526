#include "debug/channel/next_name.h"

#include <algorithm>
#include <string_view>

#include "debug/channel/channel_state.h"
#include "debug/channel/family.h"
#include "debug/channel/file_name_time.h"

namespace velt {
namespace {

constexpr std::int64_t kMostAhead = 3600;

// The time in the newest name of the family in the directory that is not too far ahead; kNone if there is
// none.
std::int64_t NewestInDirectory(ChannelState const& state, std::int64_t now) {
  std::int64_t newest = NameHistory::kNone;
  (void)ForEachName(state.m_strLogPath, [&](std::string_view name, unsigned char /*kind*/) {
    FileType const type = FileTypeByName(state, name);
    if (type != kLogFile && type != kLogArchive) return;
    std::string_view const time = name.substr(state.m_strFilePrefix.size(), kNameTimeLength);
    std::int64_t seconds = 0;
    if (SecondsOfNameTime(time, seconds) && !IsTooFarAhead(seconds, now)) newest = std::max(newest, seconds);
  });
  return newest;
}

std::int64_t After(std::int64_t name) { return name == NameHistory::kNone ? name : name + 1; }

}  // namespace

bool IsTooFarAhead(std::int64_t name, std::int64_t now) { return name > now + kMostAhead; }

std::int64_t NextNameTime(ChannelState& state, std::int64_t now) {
  NameHistory& history = state.m_names;
  if (history.last_clock != NameHistory::kNone && IsTooFarAhead(history.last_clock, now)) {
    history.last_name = NameHistory::kNone;
  }
  history.last_clock = now;
  return std::max({now, After(history.last_name), After(NewestInDirectory(state, now))});
}

}  // namespace velt
