// Holds the input back so that no two files of the family are opened within one second.
#ifndef VELT_TOOLS_VELTPIPE_PACER_H
#define VELT_TOOLS_VELTPIPE_PACER_H

#include <cstddef>
#include <cstdint>

#include "velt/channel.h"

#include "tools/veltpipe/log_family.h"
#include "tools/veltpipe/statistics.h"
#include "tools/veltpipe/stop_signal.h"

namespace velt::tools {

// Pacer counts what goes into the current log file. Once that must have outgrown its limit, nothing more is
// admitted before the next file is open; and a record that may outgrow it is not admitted in the second whose
// name is taken.
//
// The count never exceeds what the file holds once the channel has written everything: so a rotation that is
// waited for comes. Where the device refuses writes it does not; then single records go through until one
// arrives.
//
// After a stop signal a wait ends when nothing has moved for three seconds; until then waits have no limit,
// unless records are dropped on a stall: then none is longer than a second.
class Pacer {
 public:
  Pacer(LogFamily& family, StopSignal& stop, Statistics& statistics, std::uint64_t file_limit_bytes,
        bool drops);

  // Returns once no file of the family bears the current second.
  void WaitForFreeSecond();

  // Returns true once the channel has opened its first file, false when a stop signal came before, or the
  // time is up.
  bool WaitForFirstFile(VeltDebugInfo& channel);

  // Returns true once a record of that size may be traced; false when the time is up, or the log is given up,
  // from then on always.
  bool Admit(std::size_t record_bytes);

  // A record of that size was accepted by the channel.
  void Count(std::size_t record_bytes);

  // Whether a stop signal has come and nothing has moved since.
  bool IsHopeless();

  // To be called when the channel is gone: completes the statistics.
  void CheckEnd();

 private:
  bool MayOutgrow(std::size_t record_bytes) const;
  bool WaitForNewerFile();
  bool IsTimeUp(StopSignal::Clock::time_point began) const;
  bool IsStuck() const;
  void GoOnDespiteRefusal();
  void Look();
  void NoteMove();
  void ExplainWait();

  LogFamily& family_;
  StopSignal& stop_;
  Statistics& statistics_;
  std::uint64_t const limit_bytes_;
  bool const drops_;
  std::uint64_t expected_bytes_ = 0;           // lower bound of what the current file will hold
  LogFamily::Footprint seen_;                  // at the last look
  StopSignal::Clock::time_point last_move_;    // of the file, as far as it was looked at
  StopSignal::Clock::time_point last_record_;  // accepted by the channel
  std::int64_t probed_at_bytes_ = -1;  // size of the file when a single record was let through; -1: none was
  bool has_file_ = false;
  bool given_up_ = false;
  bool explained_ = false;
};

}  // namespace velt::tools

#endif
