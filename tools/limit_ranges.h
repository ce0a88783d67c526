// The five numbers of a debug configuration: their keys, bounds and defaults.
#ifndef VELT_TOOLS_LIMIT_RANGES_H
#define VELT_TOOLS_LIMIT_RANGES_H

#include <array>
#include <cstddef>
#include <string>

#include "velt/manager.h"

namespace velt::tools {

// In the units in which the library hands the number to a channel.
struct LimitRange {
  char const* const* key;  // the library's own pointer
  int low;
  int high;
  int otherwise;  // what absence, and a number out of range, become
  char const* unit;
};

enum Limit : std::size_t { kRingRecords, kChannels, kFileBytes, kArchives, kFilesPerArchive, kLimitCount };

inline constexpr int kMegabyteShift = 20;

// In the order of Limit. The library bounds its limits in private; a test holds this table against it.
inline constexpr std::array<LimitRange, kLimitCount> kLimitRanges{
    {{&NFILTLOGBUFSIZE, 0, 1000, 100, "records"},
     {&MAXFILENUMITEM, 0, 100, 50, "channels"},
     {&MAXLOGSIZEITEM, 1 << kMegabyteShift, 50 << kMegabyteShift, 5 << kMegabyteShift, "bytes"},
     {&MAXZIPNUMINPROCITEM, 1, 200, 30, "archives"},
     {&FILENUMINZIPITEM, 1, 50, 10, "files"}}};

// A number out of its range is replaced, as for every host of the library: never moved to the nearer end.
inline int Bounded(Limit limit, int value) {
  LimitRange const& range = kLimitRanges[limit];
  return value >= range.low && value <= range.high ? value : range.otherwise;
}

// How many times the archives of the configuration the host of that name keeps.
inline int ArchiveFactor(std::string const& host_name) { return host_name == "VELTMrb_p2_" ? 5 : 1; }

}  // namespace velt::tools

#endif
