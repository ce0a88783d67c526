// Reports of a channel's problems with its files and its queue.
#ifndef VELT_DEBUG_CHANNEL_CHANNEL_PROBLEMS_H
#define VELT_DEBUG_CHANNEL_CHANNEL_PROBLEMS_H

#include <cstdint>
#include <string>

#include "platform/problem_report.h"

namespace velt {

struct ChannelState;

// The state of a channel's reports. For the output thread, except where a comment says otherwise.
struct ChannelProblems {
  ProblemGate cannot_open;
  ProblemGate open_again;
  ProblemGate write_refused;
  ProblemGate writes_again;
  ProblemGate cannot_archive;
  ProblemGate records_refused;       // any thread
  std::uint64_t failed_opens = 0;    // not told as ended yet
  std::uint64_t refused_writes = 0;  // records lost, not told as ended yet
};

// Call the first when a file could not be opened, because of `error`; the second when a file was opened.
void FileNotOpened(ChannelState& state, int error);
void FileOpened(ChannelState& state);

// Call the first when the device refused a record, because of `error`; the second when it took one.
void RecordNotWritten(ChannelState& state, int error);
void RecordWritten(ChannelState& state);

// Call it when the finished log file `path` stays uncompressed because of `error`.
void FileNotArchived(ChannelState& state, std::string const& path, int error);

// Call it when a trace call is refused because the queue stayed full. Any thread.
void RecordRefused(ChannelState& state);

}  // namespace velt

#endif
