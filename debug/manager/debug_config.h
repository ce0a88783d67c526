// The file limits that hold where the debug configuration has none, or none within its bounds.
#ifndef VELT_DEBUG_MANAGER_DEBUG_CONFIG_H
#define VELT_DEBUG_MANAGER_DEBUG_CONFIG_H

namespace velt {

inline constexpr int kDefaultFiltLogBufSize = 100;
inline constexpr int kDefaultMaxFileNum = 50;
inline constexpr int kDefaultMaxFileSize = 5'242'880;  // bytes
inline constexpr int kDefaultMaxZipNum = 30;
inline constexpr int kDefaultZipFileIncludeFileNum = 10;

}  // namespace velt

#endif
