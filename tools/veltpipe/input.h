// Standard input, read in blocks between two stop signals.
#ifndef VELT_TOOLS_VELTPIPE_INPUT_H
#define VELT_TOOLS_VELTPIPE_INPUT_H

#include "tools/veltpipe/line_splitter.h"
#include "tools/veltpipe/progress.h"
#include "tools/veltpipe/statistics.h"
#include "tools/veltpipe/stop_signal.h"

namespace velt::tools {

// Gives what `descriptor` delivers to `lines` until its end or a stop signal; after a signal nothing more is
// read, so that what was read can be finished. Counts lines and bytes, and renews the progress line, as it
// goes. Returns 0, or the errno of a read that failed.
int ReadInput(int descriptor, StopSignal& stop, LineSplitter& lines, Statistics& statistics,
              Progress& progress);

}  // namespace velt::tools

#endif
