// Hands messages to the channel of veltpipe.
#ifndef VELT_TOOLS_VELTPIPE_FEEDER_H
#define VELT_TOOLS_VELTPIPE_FEEDER_H

#include <cstdint>
#include <memory>
#include <string>

#include "velt/channel.h"

#include "tools/veltpipe/limits.h"
#include "tools/veltpipe/options.h"
#include "tools/veltpipe/problems.h"
#include "tools/veltpipe/statistics.h"
#include "tools/veltpipe/stop_signal.h"

namespace velt::tools {

// Feeder owns the channel: it traces each message as one record, waits at the end until all of them have been
// dealt with, and takes the figures from the channel's counts.
//
// Threads: one thread makes every call.
class Feeder {
 public:
  Feeder(Options const& options, Limits const& limits, StopSignal& stop, Statistics& statistics);
  ~Feeder();
  Feeder(Feeder const&) = delete;
  Feeder& operator=(Feeder const&) = delete;

  // Traces `message`, and tries again for as long as the queue is full. Gives up, and counts that, only after
  // a stop signal when no file can be opened. With --on-stall drop, a record for which the queue has no room
  // is dropped and counted.
  void Feed(std::string const& message);

  // Waits until a file was opened and all records have been dealt with, then closes the channel and
  // completes the statistics. The wait ends early while no file can be opened: after a stop signal, and with
  // --on-stall drop after a second.
  void Finish();

  // Takes what has become of the records so far into the statistics.
  void Refresh();

  int OpenError() const { return problems_.OpenError(); }    // see Problems
  int WriteError() const { return problems_.WriteError(); }  // see Problems

 private:
  bool TryUntilAccepted(std::string const& message);
  bool IsDone();
  bool IsHopeless();

  std::string const module_;
  VeltLogLevel const level_;
  bool const print_;
  bool const drop_on_stall_;
  StopSignal& stop_;
  Statistics& statistics_;
  Problems problems_;
  std::unique_ptr<VeltDebugInfo> channel_;
  bool finishing_ = false;
  bool given_up_ = false;    // no record is tried any more
  std::uint64_t steps_ = 0;  // what the counts of the channel came to at the last look
  StopSignal::Clock::time_point last_move_;
};

}  // namespace velt::tools

#endif
