// Standard input, read in blocks between two stop signals.
#ifndef VELT_TOOLS_INPUT_H
#define VELT_TOOLS_INPUT_H

#include "tools/line_splitter.h"
#include "tools/stop_signal.h"

namespace velt::tools {

// Gives what `descriptor` delivers to `lines` until its end or a stop signal; after a signal nothing more is
// read, so that what was read can be finished. Returns 0, or the errno of a read that failed.
int ReadInput(int descriptor, StopSignal& stop, LineSplitter& lines);

}  // namespace velt::tools

#endif
