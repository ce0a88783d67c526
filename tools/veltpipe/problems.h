// What the library reports while veltpipe runs, said in veltpipe's name.
#ifndef VELT_TOOLS_VELTPIPE_PROBLEMS_H
#define VELT_TOOLS_VELTPIPE_PROBLEMS_H

#include <cstdint>

#include "velt/channel.h"

namespace velt::tools {

// Problems writes each report of the library to standard error as "veltpipe: ..." and remembers the last
// errors. A report is dropped if standard error does not take it at once: the output thread makes it, and the
// log must not wait for a terminal that is stopped or a pipe that is not read.
//
// Threads: reports come from the output thread; the rest is for the main thread. One object at a time.
class Problems {
 public:
  // Reports of a full queue are said only if `say_refused`: without it, a refused record is tried again.
  explicit Problems(bool say_refused);
  ~Problems();
  Problems(Problems const&) = delete;
  Problems& operator=(Problems const&) = delete;

  // The channel whose counts say whether a file was opened after a report; null before its end.
  void Watch(VeltDebugInfo const* channel);

  // Whether no file could be opened, and none was since. `files_opened` is the channel's count now. The
  // library reports it once in ten seconds: it may be that late for a file after the first.
  bool IsWithoutFile(std::uint64_t files_opened) const;

  int OpenError() const;   // errno of the last report that no file can be opened; 0: none
  int WriteError() const;  // of the last report that a record was refused; 0: none
};

}  // namespace velt::tools

#endif
