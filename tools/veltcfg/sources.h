// The files of a debug configuration.
#ifndef VELT_TOOLS_VELTCFG_SOURCES_H
#define VELT_TOOLS_VELTCFG_SOURCES_H

#include <string>

#include "tools/veltcfg/report.h"

namespace velt::tools::cfg {

// Reads the files that a host reads which names the configuration `own_file` (empty: it names none). Adds
// what is wrong with the files and their lines to `findings`.
Sources ReadSources(std::string const& own_file, Findings& findings);

}  // namespace velt::tools::cfg

#endif
