// What a run of veltpipe read, wrote and lost.
#include "tools/veltpipe/statistics.h"

#include <cinttypes>

namespace velt::tools {

bool HasLoss(Statistics const& statistics) {
  return statistics.records_given_up != 0 || statistics.records_dropped != 0 ||
         statistics.bytes_missing != 0 || statistics.no_log_file;
}

void PrintLoss(Statistics const& statistics, std::string const& reason, std::FILE* out) {
  std::string const because = reason.empty() ? "" : ": " + reason;
  if (statistics.no_log_file) {
    std::fprintf(out, "veltpipe: no log file could be opened at the end%s\n", because.c_str());
  }
  if (statistics.records_given_up != 0) {
    std::fprintf(out, "veltpipe: %" PRIu64 " records were read but not traced\n",
                 statistics.records_given_up);
  }
  if (statistics.records_dropped != 0) {
    std::fprintf(out, "veltpipe: %" PRIu64 " records were dropped while the log took no more\n",
                 statistics.records_dropped);
  }
  if (statistics.bytes_missing != 0) {
    std::fprintf(out, "veltpipe: at least %" PRIu64 " bytes of records did not get into the log file%s\n",
                 statistics.bytes_missing, because.c_str());
  }
}

void PrintStatistics(Statistics const& statistics, std::FILE* out) {
  std::fprintf(out,
               "veltpipe: lines in %" PRIu64 ", records out %" PRIu64 ", retries %" PRIu64
               ", files rotated %" PRIu64 "\n",
               statistics.lines_in, statistics.records_out, statistics.retries, statistics.files_rotated);
}

void PrintStatisticsAsJson(Statistics const& statistics, std::FILE* out) {
  std::fprintf(out,
               "{\"lines_in\": %" PRIu64 ", \"bytes_in\": %" PRIu64 ", \"records_out\": %" PRIu64
               ", \"retries\": %" PRIu64 ", \"files_rotated\": %" PRIu64 ", \"records_given_up\": %" PRIu64
               ", \"records_dropped\": %" PRIu64 ", \"bytes_missing\": %" PRIu64 ", \"no_log_file\": %s}\n",
               statistics.lines_in, statistics.bytes_in, statistics.records_out, statistics.retries,
               statistics.files_rotated, statistics.records_given_up, statistics.records_dropped,
               statistics.bytes_missing, statistics.no_log_file ? "true" : "false");
}

}  // namespace velt::tools
