// Reports of problems inside the library, for a handler of the host. Without a handler there are no reports.
#ifndef VELT_PROBLEM_H
#define VELT_PROBLEM_H

#include <cstdint>

#include "velt/export.h"

// What happened. Each comment says what `path`, `error` and `count` of VeltProblem are; what it does not
// name is empty or 0.
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
  VeltProblemKind kind;  // what happened
  char const* sentence;  // the whole report as an English sentence, without a line end; never null
  char const* path;      // never null; may be empty
  int error;             // an errno value, or 0
  uint64_t count;        // how many times, or records, as the kind says
};

// Receives one report, on the thread on which the problem occurred: an output thread for files, the calling
// thread for a refused record and for Init. No lock of the library is held. For each kind and channel the
// first report comes at once, and later ones at most every ten seconds. Exceptions of the handler are
// ignored. It may trace; problems of these trace calls are not reported. It must not destroy the
// channel.
using VeltProblemHandler = void (*)(VeltProblem const&);

// Makes `handler` receive all reports of the process from now on; null removes the handler. Returns the
// handler before it, or null. That one may still be running on another thread. Without a handler, and if
// VELT_PROBLEMS=stderr was in the environment when a channel or the manager was made, each sentence is
// written to standard error as one line that begins with "veltbaseutil: ". Any thread.
VELT_EXPORT VeltProblemHandler VeltSetProblemHandler(VeltProblemHandler handler);

#endif
