// The two forms of a report.
#ifndef VELT_TOOLS_VELTCFG_OUTPUT_H
#define VELT_TOOLS_VELTCFG_OUTPUT_H

#include <string>

#include "tools/veltcfg/report.h"

namespace velt::tools::cfg {

// Sections with a line for each entry, for people.
std::string AsText(Report const& report);

// A line for each finding; empty where there are none.
std::string FindingsAsText(Findings const& findings);

// One object with the same content, for machines.
std::string AsJson(Report const& report);

}  // namespace velt::tools::cfg

#endif
