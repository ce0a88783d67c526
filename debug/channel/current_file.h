// The file that a channel is writing: its name, its first lines and its last line.
#ifndef VELT_DEBUG_CHANNEL_CURRENT_FILE_H
#define VELT_DEBUG_CHANNEL_CURRENT_FILE_H

#include <cstddef>

namespace velt {

struct ChannelState;

inline constexpr std::size_t kLongestWrite = 2'097'152;  // bytes of one text; the rest is cut

// The operations of VeltDebugInfo of the same names.
bool OpenNewFile(ChannelState& state);
bool WriteFile(ChannelState& state, char const* text);
void CloseFile(ChannelState& state);

// Opens the next file of a running channel under a name that the family has never had. Returns false, with
// errno set and no file open, when none can be opened.
bool OpenNextFile(ChannelState& state);

// Appends `length` bytes to the open file. Returns false when the device refuses some of them; the rest is
// not written.
bool AppendToFile(ChannelState& state, char const* text, std::size_t length);

}  // namespace velt

#endif
