// Hands messages to the channel of veltpipe.
#ifndef VELT_TOOLS_VELTPIPE_FEEDER_H
#define VELT_TOOLS_VELTPIPE_FEEDER_H

#include <cstddef>
#include <memory>
#include <string>

#include "velt/channel.h"

#include "tools/veltpipe/limits.h"
#include "tools/veltpipe/log_family.h"
#include "tools/veltpipe/options.h"
#include "tools/veltpipe/pacer.h"
#include "tools/veltpipe/statistics.h"
#include "tools/veltpipe/stop_signal.h"

namespace velt::tools {

// Feeder owns the channel: it opens it in a second in which no file can be overwritten, traces each message
// as one record, as fast as the pacer admits them, and closes it.
//
// Threads: one thread makes every call, the constructor included (its id is part of the length of a record).
class Feeder {
 public:
  // May wait for a second that is in no file's name, and then for the first file to open. A stop signal ends
  // the second wait.
  Feeder(Options const& options, Limits const& limits, StopSignal& stop, Statistics& statistics);

  // Traces `message`, and tries again for as long as the channel refuses it. Gives up, and counts that, only
  // after a stop signal, when the log does not grow either. With --on-stall drop, a record that the log does
  // not take within a second is dropped and counted, and so are all records of the following second.
  void Feed(std::string const& message);

  // Closes the channel, which writes out what it accepted, and completes the statistics.
  void Finish();

  // Why no file can be created in the directory now; empty when one can.
  std::string WhyNoFile() const { return family_.WhyNoFile(); }

 private:
  bool TryUntilAccepted(std::string const& message);

  std::string const module_;
  VeltLogLevel const level_;
  bool const print_;
  bool const drop_on_stall_;
  std::size_t const overhead_bytes_;  // of a record in the file, without its message
  StopSignal& stop_;
  Statistics& statistics_;
  LogFamily family_;
  Pacer pacer_;
  StopSignal::Clock::time_point next_try_;  // records are dropped until then
  std::unique_ptr<VeltDebugInfo> channel_;
};

}  // namespace velt::tools

#endif
