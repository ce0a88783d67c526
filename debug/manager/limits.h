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
  char const* const* key;  // the public pointer, which a host may set: every look-up reads through it
  int otherwise;           // what absence, and a number out of range, become
  int low;
  int high;
};

// A configuration file has megabytes where the table, like all code, has bytes.
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

// A number out of its range is replaced by the default, not moved to the nearer end.
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

// How many times the archives of the configuration the host of that name keeps.
inline int ArchiveFactor(std::string const& host_name) { return host_name == "VELTMrb_p2_" ? 5 : 1; }

}  // namespace velt

#endif
