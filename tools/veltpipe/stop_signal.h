// The signals that ask veltpipe to end.
#ifndef VELT_TOOLS_VELTPIPE_STOP_SIGNAL_H
#define VELT_TOOLS_VELTPIPE_STOP_SIGNAL_H

#include <chrono>

namespace velt::tools {

// StopSignal blocks SIGTERM, SIGINT and, unless it was ignored, SIGHUP, and receives them through a
// descriptor: no handler runs. Make it before any thread, so that every thread has them blocked.
//
// Threads: the main thread's.
// Errors:  the constructor throws std::system_error.
class StopSignal {
 public:
  using Clock = std::chrono::steady_clock;

  StopSignal();
  ~StopSignal();
  StopSignal(StopSignal const&) = delete;
  StopSignal& operator=(StopSignal const&) = delete;

  // Becomes readable with the first signal; for poll.
  int Descriptor() const { return descriptor_; }

  // Whether one has come; stays true.
  bool Raised();

  // When the first one was noticed; meaningful once Raised.
  Clock::time_point RaisedAt() const { return raised_at_; }

  // Sleeps for `time`, or until the first signal comes. After that one it sleeps in full.
  void Pause(std::chrono::milliseconds time);

 private:
  int descriptor_ = -1;
  bool raised_ = false;
  Clock::time_point raised_at_;
};

}  // namespace velt::tools

#endif
