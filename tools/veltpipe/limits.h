// The limits of the log family that veltpipe writes.
#ifndef VELT_TOOLS_VELTPIPE_LIMITS_H
#define VELT_TOOLS_VELTPIPE_LIMITS_H

#include "debug/manager/limits.h"
#include "tools/veltpipe/options.h"

namespace velt::tools {

struct Limits {
  unsigned int ring_records = DefaultOf(kRingRecords);
  unsigned int file_bytes = DefaultOf(kFileBytes);
  unsigned int archives = DefaultOf(kArchives);
  unsigned int files_per_archive = DefaultOf(kFilesPerArchive);
};

// Each limit from the options, else from the configuration file that they name, else the default above.
Limits LimitsFor(Options const& options);

}  // namespace velt::tools

#endif
