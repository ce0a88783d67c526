// Writes records to the log file and standard output, and rotates the file.
#ifndef VELT_DEBUG_CHANNEL_OUTPUT_H
#define VELT_DEBUG_CHANNEL_OUTPUT_H

#include "velt/channel.h"

namespace velt {

struct ChannelState;

// Called once for each record when it has been dealt with; `whole` is whether all of it was written.
using DealtWith = void (*)(ChannelState& state, OutDataUnit const& rec, bool whole);

// Writes one record to the file and to standard output, as its flags say. Returns what
// VeltDebugInfo::OutputString returns. Output thread.
bool OutputRecord(ChannelState& state, OutDataUnit const& rec, bool fromDiscard, DealtWith dealtWith);

// Counts a record that was accepted.
void CountDealtWith(ChannelState& state, OutDataUnit const& rec, bool whole);

// The operations of VeltDebugInfo of the same names. Output thread.
bool OutputString(ChannelState& state, OutDataUnit const& rec, bool fromDiscard);
void OutputDiscardQueue(ChannelState& state);

// Opens the next file, trying once a second. Returns false when the channel ends before one can be opened.
bool OpenFileUntilExit(ChannelState& state);

// For a forked child: makes the lock of standard output usable, which may have been copied while it was held.
void RemakePrintLock();

}  // namespace velt

#endif
