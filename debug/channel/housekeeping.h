// The work between two log files: finished files are compressed, the oldest archives deleted.
#ifndef VELT_DEBUG_CHANNEL_HOUSEKEEPING_H
#define VELT_DEBUG_CHANNEL_HOUSEKEEPING_H

#include <string>

namespace velt {

struct ChannelState;

// The operations of VeltDebugInfo of the same names.
void ZipLogFiles(ChannelState& state, std::string const& name);
void RemoveSpilthFile(ChannelState& state);
void ProcessLogFileBeforeCreateNew(ChannelState& state);

}  // namespace velt

#endif
