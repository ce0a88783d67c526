// What the library makes of a configuration: it is asked, not imitated.
#ifndef VELT_TOOLS_VELTCFG_EFFECTIVE_H
#define VELT_TOOLS_VELTCFG_EFFECTIVE_H

#include <string>

#include "tools/veltcfg/report.h"

namespace velt::tools::cfg {

// Fills in limits, switches and modules of a report whose sources are usable, for a host of the report's name
// with the configuration `own_file`. Writes nothing: the manager is initialised without a channel, and
// destroyed again. Throws std::runtime_error when it cannot be initialised.
void AskLibrary(std::string const& own_file, Report& report);

}  // namespace velt::tools::cfg

#endif
