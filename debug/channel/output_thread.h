// What the output threads of all channels share.
#ifndef VELT_DEBUG_CHANNEL_OUTPUT_THREAD_H
#define VELT_DEBUG_CHANNEL_OUTPUT_THREAD_H

namespace velt {

// Makes the lock over standard output anew; for a forked child, whose copy may be held by a thread that is
// not there.
void RemakePrintLock();

}  // namespace velt

#endif
