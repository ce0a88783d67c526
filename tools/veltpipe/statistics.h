// What a run of veltpipe did.
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
  std::uint64_t retries = 0;  // refusals of a record that was then tried again
  std::uint64_t files_rotated = 0;
  std::uint64_t records_given_up = 0;  // read, and never accepted by the channel
  std::uint64_t records_dropped = 0;   // read while the log took no more, as --on-stall drop says
  std::uint64_t bytes_missing = 0;     // accepted, and not in the log file: at least so many
  bool no_log_file = false;            // at the end none was open
};

// Whether something that was read is not in the log.
bool HasLoss(Statistics const& statistics);

// One line of what was lost for each kind of loss. `reason` is that of the file system; empty: none is known.
void PrintLoss(Statistics const& statistics, std::string const& reason, std::FILE* out);

// The line of --stats.
void PrintStatistics(Statistics const& statistics, std::FILE* out);

// The same, and the losses, as one line of JSON.
void PrintStatisticsAsJson(Statistics const& statistics, std::FILE* out);

}  // namespace velt::tools

#endif
