// Keeps from the host a signal that the library's own write raises.
#ifndef VELT_PLATFORM_SIGNAL_WITHHELD_H
#define VELT_PLATFORM_SIGNAL_WITHHELD_H

#include <pthread.h>

#include <csignal>
#include <ctime>

namespace velt {

// While it lives, `signal` is blocked in the calling thread; if raised meanwhile, it is discarded at the end.
// Meant for SIGPIPE and SIGXFSZ, which the kernel sends to the thread that writes.
class SignalWithheld {
 public:
  explicit SignalWithheld(int signal) noexcept {
    sigemptyset(&withheld_);
    sigaddset(&withheld_, signal);
    sigset_t pending;
    was_pending_ = sigpending(&pending) == 0 && sigismember(&pending, signal) == 1;
    blocked_ = pthread_sigmask(SIG_BLOCK, &withheld_, &before_) == 0;
  }
  ~SignalWithheld() {
    if (!blocked_) return;
    timespec const at_once{0, 0};
    if (!was_pending_) (void)sigtimedwait(&withheld_, nullptr, &at_once);  // none came, or it is taken
    (void)pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  SignalWithheld(SignalWithheld const&) = delete;
  SignalWithheld& operator=(SignalWithheld const&) = delete;

 private:
  sigset_t withheld_{};
  sigset_t before_{};
  bool was_pending_ = false;
  bool blocked_;
};

}  // namespace velt

#endif
