// Compresses one finished log file.
#ifndef VELT_DEBUG_CHANNEL_GZIP_H
#define VELT_DEBUG_CHANNEL_GZIP_H

#include <atomic>
#include <cstdint>
#include <string>

namespace velt {

// VeltDebugInfo::GZCompress. After -1 errno has the reason, 0 for an empty source. `blocks`, unless it is
// null, is incremented for each piece that is compressed.
int GZCompress(std::string const& source, std::string const& destination, std::atomic<std::uint64_t>* blocks);

}  // namespace velt

#endif
