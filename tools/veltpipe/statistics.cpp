// What a run of veltpipe did.
#include "tools/veltpipe/statistics.h"

#include <cinttypes>

namespace velt::tools {

bool HasLoss(Statistics const& statistics) {
  return statistics.records_given_up != 0 || statistics.bytes_missing != 0 || statistics.no_log_file;
}

void PrintLoss(Statistics const& statistics, std::FILE* out) {
  if (statistics.no_log_file) std::fputs("veltpipe: no log file could be opened at the end\n", out);
  if (statistics.records_given_up != 0) {
    std::fprintf(out, "veltpipe: %" PRIu64 " records were read but not traced\n",
                 statistics.records_given_up);
  }
  if (statistics.bytes_missing != 0) {
    std::fprintf(out, "veltpipe: at least %" PRIu64 " bytes of records did not get into the log file\n",
                 statistics.bytes_missing);
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
               ", \"bytes_missing\": %" PRIu64 ", \"no_log_file\": %s}\n",
               statistics.lines_in, statistics.bytes_in, statistics.records_out, statistics.retries,
               statistics.files_rotated, statistics.records_given_up, statistics.bytes_missing,
               statistics.no_log_file ? "true" : "false");
}

}  // namespace velt::tools
