// What a run of veltpipe read, wrote and lost.
#include "tools/veltpipe/statistics.h"

#include <cinttypes>
#include <cstring>
#include <string>

namespace velt::tools {

namespace {

std::string Because(int error) { return error == 0 ? "" : std::string(": ") + std::strerror(error); }

}  // namespace

bool HasLoss(Statistics const& statistics) {
  return statistics.records_lost != 0 || statistics.records_given_up != 0 ||
         statistics.records_dropped != 0 || statistics.no_log_file;
}

void PrintLoss(Statistics const& statistics, int open_error, int write_error, std::FILE* out) {
  if (statistics.no_log_file) {
    std::fprintf(out, "veltpipe: no log file could be opened at the end%s\n", Because(open_error).c_str());
  }
  if (statistics.records_lost != 0) {
    std::fprintf(out, "veltpipe: %" PRIu64 " records could not be written%s\n", statistics.records_lost,
                 Because(write_error).c_str());
  }
  if (statistics.records_given_up != 0) {
    std::fprintf(out, "veltpipe: %" PRIu64 " records were read but not written\n",
                 statistics.records_given_up);
  }
  if (statistics.records_dropped != 0) {
    std::fprintf(out, "veltpipe: %" PRIu64 " records were dropped while the log took no more\n",
                 statistics.records_dropped);
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
               ", \"retries\": %" PRIu64 ", \"files_rotated\": %" PRIu64 ", \"records_lost\": %" PRIu64
               ", \"records_given_up\": %" PRIu64 ", \"records_dropped\": %" PRIu64
               ", \"no_log_file\": %s}\n",
               statistics.lines_in, statistics.bytes_in, statistics.records_out, statistics.retries,
               statistics.files_rotated, statistics.records_lost, statistics.records_given_up,
               statistics.records_dropped, statistics.no_log_file ? "true" : "false");
}

}  // namespace velt::tools
