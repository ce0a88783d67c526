// What a channel has to tell of its files and its queue.
#ifndef VELT_DEBUG_CHANNEL_CHANNEL_PROBLEMS_H
#define VELT_DEBUG_CHANNEL_CHANNEL_PROBLEMS_H

#include <cstdint>
#include <string>

#include "platform/problem_report.h"

namespace velt {

struct ChannelState;

// Kept per channel. Output thread, except where said.
struct ChannelProblems {
  ProblemGate cannot_open;
  ProblemGate open_again;
  ProblemGate write_refused;
  ProblemGate writes_again;
  ProblemGate cannot_archive;
  ProblemGate records_refused;       // any thread
  std::uint64_t failed_opens = 0;    // since a file was opened
  std::uint64_t refused_writes = 0;  // records lost since a record was written
};

// A file could not be opened, for `error`; and one was opened.
void FileNotOpened(ChannelState& state, int error);
void FileOpened(ChannelState& state);

// The device refused a record, for `error`; and it took one.
void RecordNotWritten(ChannelState& state, int error);
void RecordWritten(ChannelState& state);

// The finished log file `path` stays uncompressed, for `error`.
void FileNotArchived(ChannelState& state, std::string const& path, int error);

// A call found the queue full for as long as it waits. Any thread.
void RecordRefused(ChannelState& state);

}  // namespace velt

#endif
