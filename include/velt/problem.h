// What a host can hear of what goes wrong inside the library. Without a handler it is silent.
#ifndef VELT_PROBLEM_H
#define VELT_PROBLEM_H

#include <cstdint>

#include "velt/export.h"

// What happened. `path`, `error` and `count` of VeltProblem are as said here; the rest is null or 0.
enum class VeltProblemKind {
  kCannotOpen,      // no log file can be opened: its path, errno, failed attempts since the last report
  kOpenAgain,       // one could be opened after that: its path, failed attempts
  kWriteRefused,    // the device refuses records: the file's path, errno, records lost since the last report
  kWritesAgain,     // it takes them again: the file's path, records lost meanwhile
  kCannotArchive,   // a finished log file stays uncompressed: its path, errno, failures since the last report
  kRecordsRefused,  // the queue was full: the family's path, records refused since the last report
  kNoConfiguration,  // a configuration file is missing or not taken: its path, errno
  kValueReplaced,    // a configured value was replaced: the file's path
  kNoDefaultModule   // no module "debug" exists: modules that are not registered reach no output
};

// One report. All of it is valid during the call of the handler only.
struct VeltProblem {
  VeltProblemKind kind;  // which of them
  char const* sentence;  // all of it in one English sentence, without a line end; never null
  char const* path;      // never null; may be empty
  int error;             // an errno value, or 0
  uint64_t count;        // how many times, or records, as the kind says
};

// Receives one report, on the thread that met the problem and with no lock of the library held. That is an
// output thread for files, the calling thread for a refused record and for Init. Of one kind and channel the
// first report comes at once, and then at most one in ten seconds. What the handler throws is swallowed; what
// it traces is traced, and does not call it again.
using VeltProblemHandler = void (*)(VeltProblem const&);

// Takes `handler` for all reports of the process from now on; null takes none. Returns the one before, null
// at first. A call of the one before may still be running on another thread. Without a handler, and with
// VELT_PROBLEMS=stderr in the environment when a channel or the manager is made, each sentence is written to
// standard error as one line that begins with "veltbaseutil: ". Any thread.
VELT_EXPORT VeltProblemHandler VeltSetProblemHandler(VeltProblemHandler handler);

#endif
