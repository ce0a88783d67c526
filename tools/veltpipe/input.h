// Reads standard input until its end or a stop signal.
#ifndef VELT_TOOLS_VELTPIPE_INPUT_H
#define VELT_TOOLS_VELTPIPE_INPUT_H

#include "tools/veltpipe/line_splitter.h"
#include "tools/veltpipe/progress.h"
#include "tools/veltpipe/statistics.h"
#include "tools/veltpipe/stop_signal.h"

namespace velt::tools {

// Reads `descriptor` and passes the bytes to `lines`, until the input ends or a stop signal comes; after a
// signal nothing more is read, and the caller writes out what was read. Meanwhile counts lines and bytes and
// redraws the progress line. Returns 0, or the errno of a read that failed.
int ReadInput(int descriptor, StopSignal& stop, LineSplitter& lines, Statistics& statistics,
              Progress& progress);

}  // namespace velt::tools

#endif
