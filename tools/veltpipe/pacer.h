// Delays records so that no two files of the family are opened within one second.
#ifndef VELT_TOOLS_VELTPIPE_PACER_H
#define VELT_TOOLS_VELTPIPE_PACER_H

#include <cstddef>
#include <cstdint>

#include "velt/channel.h"

#include "tools/veltpipe/log_family.h"
#include "tools/veltpipe/statistics.h"
#include "tools/veltpipe/stop_signal.h"

namespace velt::tools {

// Pacer counts the bytes that go into the current log file. When the count has passed the file's limit, it
// admits no record before the next file is open. A record that could make the file pass its limit is not
// admitted in a second that is already in a file's name.
//
// The count is never more than what the file holds after the channel has written everything, so a rotation
// that the pacer waits for does come, unless the device refuses writes. In that case it admits single records
// until one reaches the file.
//
// Waits have no limit, with two exceptions: after a stop signal a wait ends when nothing has moved for three
// seconds; with --on-stall drop no wait is longer than a second.
class Pacer {
 public:
  Pacer(LogFamily& family, StopSignal& stop, Statistics& statistics, std::uint64_t file_limit_bytes,
        bool drops);

  // Returns once no file name of the family has the current second.
  void WaitForFreeSecond();

  // Returns true once the channel has opened its first file; false when a stop signal comes first, or when
  // the time is up.
  bool WaitForFirstFile(VeltDebugInfo& channel);

  // Returns true once a record of that size may be traced; false when the time is up, and from the moment
  // that the log is given up (see IsHopeless).
  bool Admit(std::size_t record_bytes);

  // Call it when the channel has accepted a record of that size.
  void Count(std::size_t record_bytes);

  // Whether a stop signal has come and nothing has moved for three seconds.
  bool IsHopeless();

  // Call it when the channel has been destroyed: completes the statistics.
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
  LogFamily::Footprint seen_;                  // sizes at the last look
  StopSignal::Clock::time_point last_move_;    // when the sizes were last seen to change
  StopSignal::Clock::time_point last_record_;  // when the channel last accepted a record
  std::int64_t probed_at_bytes_ = -1;          // file size when a single record was admitted; -1: none was
  bool has_file_ = false;
  bool given_up_ = false;
  bool explained_ = false;
};

}  // namespace velt::tools

#endif
