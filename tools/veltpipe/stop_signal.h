// The signals that ask veltpipe to end.
#ifndef VELT_TOOLS_VELTPIPE_STOP_SIGNAL_H
#define VELT_TOOLS_VELTPIPE_STOP_SIGNAL_H

#include <chrono>

namespace velt::tools {

// StopSignal blocks SIGTERM, SIGINT and, unless it is ignored, SIGHUP, and receives them through a
// descriptor: no handler runs. Make it before any thread, so that every thread has them blocked.
//
// Threads: only the main thread may use it.
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

  // Whether a stop signal has come; from then on always true.
  bool Raised();

  // When Raised first saw a signal; meaningful once Raised is true.
  Clock::time_point RaisedAt() const { return raised_at_; }

  // Sleeps for `time`, or until the first signal comes. After the first signal it always sleeps for `time`.
  void Pause(std::chrono::milliseconds time);

 private:
  int descriptor_ = -1;
  bool raised_ = false;
  Clock::time_point raised_at_;
};

}  // namespace velt::tools

#endif
