// The five limits of a debug configuration: their keys, defaults and bounds.
#ifndef VELT_DEBUG_MANAGER_LIMITS_H
#define VELT_DEBUG_MANAGER_LIMITS_H

#include <array>
#include <cstddef>
#include <string>

#include "velt/manager.h"

namespace velt {

enum Limit : std::size_t { kRingRecords, kChannels, kFileBytes, kArchives, kFilesPerArchive, kLimitCount };

struct LimitRange {
  char const* const* key;  // the address of the public key pointer, which a host may change
  int otherwise;           // what absence, and a number out of range, become
  int low;
  int high;
};

// Sizes are megabytes in a configuration file, and bytes in this table and all code.
inline constexpr int kMegabyteShift = 20;
inline constexpr int kMegabyte = 1 << kMegabyteShift;

// In the order of Limit.
inline constexpr std::array<LimitRange, kLimitCount> kLimitRanges{{
    {&NFILTLOGBUFSIZE, 100, 0, 1000},
    {&MAXFILENUMITEM, 50, 0, 100},
    {&MAXLOGSIZEITEM, 5 * kMegabyte, 1 * kMegabyte, 50 * kMegabyte},
    {&MAXZIPNUMINPROCITEM, 30, 1, 200},
    {&FILENUMINZIPITEM, 10, 1, 50},
}};

constexpr int DefaultOf(Limit limit) { return kLimitRanges[limit].otherwise; }

// Returns `value`; the default, not the nearest bound, if it is out of range.
constexpr int Bounded(Limit limit, int value) {
  LimitRange const& range = kLimitRanges[limit];
  return value >= range.low && value <= range.high ? value : range.otherwise;
}

// The limits in force, within their bounds. Sizes are bytes.
struct FileLimits {
  int m_nFiltLogBufSize = DefaultOf(kRingRecords);
  int m_nMaxFileNum = DefaultOf(kChannels);
  int m_nEachFileMaxSize = DefaultOf(kFileBytes);
  int m_nEachProcessMaxZipNum = DefaultOf(kArchives);
  int m_nZipFileIncludeFileNum = DefaultOf(kFilesPerArchive);
};

// The factor by which a host of that name multiplies the configured number of archives.
inline int ArchiveFactor(std::string const& host_name) { return host_name == "VELTMrb_p2_" ? 5 : 1; }

}  // namespace velt

#endif
