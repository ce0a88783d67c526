// Where a record goes: the log file, standard output, or both; and rotation.
#ifndef VELT_DEBUG_CHANNEL_OUTPUT_H
#define VELT_DEBUG_CHANNEL_OUTPUT_H

#include "velt/channel.h"

namespace velt {

struct ChannelState;

// What became of one record.
struct Outcome {
  bool has_file;  // a file is open: what VeltDebugInfo::OutputString returns
  bool whole;     // it went where it was asked to go, all of it
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

// For a forked child: the lock of standard output may have been copied while a thread held it.
void RemakePrintLock();

}  // namespace velt

#endif
