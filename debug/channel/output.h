// Writes records to the log file and standard output, and rotates the file.
#ifndef VELT_DEBUG_CHANNEL_OUTPUT_H
#define VELT_DEBUG_CHANNEL_OUTPUT_H

#include "velt/channel.h"

namespace velt {

struct ChannelState;

// What happened to one record.
struct Outcome {
  bool has_file;  // a file is open: what VeltDebugInfo::OutputString returns
  bool whole;     // all of it went to every output that it was for
};

// Writes one record to the file and to standard output, as its flags say. Output thread.
Outcome OutputRecord(ChannelState& state, OutDataUnit const& rec, bool fromDiscard);

// Counts a record that was accepted and has been dealt with.
void CountOutcome(ChannelState& state, OutDataUnit const& rec, Outcome const& outcome);

// The operations of VeltDebugInfo of the same names. Output thread.
bool OutputString(ChannelState& state, OutDataUnit const& rec, bool fromDiscard);
void OutputDiscardQueue(ChannelState& state);

// Opens the next file, trying once a second. Returns false when the channel ends before one can be opened.
bool OpenFileUntilExit(ChannelState& state);

// For a forked child: makes the lock of standard output usable, which may have been copied while it was held.
void RemakePrintLock();

}  // namespace velt

#endif
