// Compresses one finished log file.
#ifndef VELT_DEBUG_CHANNEL_GZIP_H
#define VELT_DEBUG_CHANNEL_GZIP_H

#include <string>

namespace velt {

// VeltDebugInfo::GZCompress.
int GZCompress(std::string const& source, std::string const& destination);

}  // namespace velt

#endif
