// What is replaced, cut or ignored in a configuration that the library was asked about.
#ifndef VELT_TOOLS_VELTCFG_CHECKS_H
#define VELT_TOOLS_VELTCFG_CHECKS_H

#include "tools/veltcfg/report.h"

namespace velt::tools::cfg {

// Each adds to the findings of the report.

// Names that stand twice, stand in the wrong file, or are unknown.
void CheckNames(Report& report);

// Numbers that are not what their text says, and those that their bounds replace.
void CheckNumbers(Report& report);

// Texts of level and output sets, and items whose names register another module than they seem to.
void CheckModules(Report& report);

}  // namespace velt::tools::cfg

#endif
