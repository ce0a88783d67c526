// What a run of veltpipe read, wrote and lost.
#ifndef VELT_TOOLS_VELTPIPE_STATISTICS_H
#define VELT_TOOLS_VELTPIPE_STATISTICS_H

#include <cstdint>
#include <cstdio>
#include <string>

namespace velt::tools {

struct Statistics {
  std::uint64_t lines_in = 0;
  std::uint64_t bytes_in = 0;
  std::uint64_t records_out = 0;
  std::uint64_t retries = 0;  // times that a refused record was tried again
  std::uint64_t files_rotated = 0;
  std::uint64_t records_given_up = 0;  // read, but never accepted by the channel
  std::uint64_t records_dropped = 0;   // dropped by --on-stall drop
  std::uint64_t bytes_missing = 0;     // accepted, but not in the log file; a lower bound
  bool no_log_file = false;            // no log file was open at the end
};

// Whether something that was read is not in the log.
bool HasLoss(Statistics const& statistics);

// Prints one line for each kind of loss. `reason` is the file system's; empty when none is known.
void PrintLoss(Statistics const& statistics, std::string const& reason, std::FILE* out);

// Prints the line of --stats.
void PrintStatistics(Statistics const& statistics, std::FILE* out);

// Prints the same figures, and the losses, as one line of JSON.
void PrintStatisticsAsJson(Statistics const& statistics, std::FILE* out);

}  // namespace velt::tools

#endif
