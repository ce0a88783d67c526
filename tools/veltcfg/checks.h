// The checks of a configuration: they find what the library replaces, cuts or ignores.
#ifndef VELT_TOOLS_VELTCFG_CHECKS_H
#define VELT_TOOLS_VELTCFG_CHECKS_H

#include "tools/veltcfg/report.h"

namespace velt::tools::cfg {

// Each check reads the report and adds to its findings.

// Names that occur twice, are in the wrong file, or are unknown.
void CheckNames(Report& report);

// Numbers that are read differently from their text, and numbers that are out of bounds.
void CheckNumbers(Report& report);

// The texts of level and output sets, and items whose names register another module than it looks.
void CheckModules(Report& report);

}  // namespace velt::tools::cfg

#endif
