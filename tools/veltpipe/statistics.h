// What a run of veltpipe read, wrote and lost.
#ifndef VELT_TOOLS_VELTPIPE_STATISTICS_H
#define VELT_TOOLS_VELTPIPE_STATISTICS_H

#include <cstdint>
#include <cstdio>

namespace velt::tools {

// What became of the records is taken from the counts of the library.
struct Statistics {
  std::uint64_t lines_in = 0;
  std::uint64_t bytes_in = 0;
  std::uint64_t records_out = 0;  // whole in a log file
  std::uint64_t retries = 0;      // times that a refused record was tried again
  std::uint64_t files_rotated = 0;
  std::uint64_t records_lost = 0;      // refused by the device
  std::uint64_t records_given_up = 0;  // never accepted, or not written at the end for lack of a file
  std::uint64_t records_dropped = 0;   // dropped by --on-stall drop
  bool no_log_file = false;            // no log file could be opened at the end
};

// Whether something that was read is not in the log.
bool HasLoss(Statistics const& statistics);

// Prints one line for each kind of loss. The two errors are errno values; 0 when none is known.
void PrintLoss(Statistics const& statistics, int open_error, int write_error, std::FILE* out);

// Prints the line of --stats.
void PrintStatistics(Statistics const& statistics, std::FILE* out);

// Prints the same figures, and the losses, as one line of JSON.
void PrintStatisticsAsJson(Statistics const& statistics, std::FILE* out);

}  // namespace velt::tools

#endif
