// The limits of the log family that veltpipe writes.
#ifndef VELT_TOOLS_LIMITS_H
#define VELT_TOOLS_LIMITS_H

#include "tools/options.h"

namespace velt::tools {

struct Limits {
  unsigned int ring_records = 100;
  unsigned int file_bytes = 5U << 20;
  unsigned int archives = 30;
  unsigned int files_per_archive = 10;
};

// What the options say, else the configuration file that they name, else the defaults above.
Limits LimitsFor(Options const& options);

}  // namespace velt::tools

#endif
