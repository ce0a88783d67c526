// The files of a debug configuration.
#ifndef VELT_TOOLS_VELTCFG_SOURCES_H
#define VELT_TOOLS_VELTCFG_SOURCES_H

#include <string>

#include "tools/veltcfg/report.h"

namespace velt::tools::cfg {

// Reads the files that a host with the configuration `own_file` (empty: it names none) reads, and adds to
// `findings` what is wrong with them as files and as lines.
Sources ReadSources(std::string const& own_file, Findings& findings);

}  // namespace velt::tools::cfg

#endif
