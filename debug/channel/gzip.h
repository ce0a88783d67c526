// Compresses one finished log file.
#ifndef VELT_DEBUG_CHANNEL_GZIP_H
#define VELT_DEBUG_CHANNEL_GZIP_H

#include <atomic>
#include <cstdint>
#include <string>

namespace velt {

// VeltDebugInfo::GZCompress. After -1 errno says why; 0 for an empty source. `blocks` counts on with each
// piece that was compressed; null counts nothing.
int GZCompress(std::string const& source, std::string const& destination, std::atomic<std::uint64_t>* blocks);

}  // namespace velt

#endif
