// The two forms of a report.
#ifndef VELT_TOOLS_VELTCFG_OUTPUT_H
#define VELT_TOOLS_VELTCFG_OUTPUT_H

#include <string>

#include "tools/veltcfg/report.h"

namespace velt::tools::cfg {

// For people: sections with a line for each entry.
std::string AsText(Report const& report);

// A line for each finding; empty when there are none.
std::string FindingsAsText(Findings const& findings);

// For programs: one JSON object with the same content as AsText.
std::string AsJson(Report const& report);

}  // namespace velt::tools::cfg

#endif
