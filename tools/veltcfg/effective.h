// Asks the library itself what it reads from a configuration.
#ifndef VELT_TOOLS_VELTCFG_EFFECTIVE_H
#define VELT_TOOLS_VELTCFG_EFFECTIVE_H

#include <string>

#include "tools/veltcfg/report.h"

namespace velt::tools::cfg {

// Fills in the limits, switches and modules of `report`, for a host of the report's name that names the
// configuration `own_file`. The report's sources must be usable. Writes no file: the manager is initialised
// without a channel, and destroyed again. Throws std::runtime_error when it cannot be initialised.
void AskLibrary(std::string const& own_file, Report& report);

}  // namespace velt::tools::cfg

#endif
