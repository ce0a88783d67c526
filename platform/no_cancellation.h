// Keeps a thread from being cancelled in the middle of work that must be completed.
#ifndef VELT_PLATFORM_NO_CANCELLATION_H
#define VELT_PLATFORM_NO_CANCELLATION_H

#include <pthread.h>

namespace velt {

// While it lives the calling thread is not cancelled; a request takes effect at the next cancellation point
// after that.
class NoCancellation {
 public:
  NoCancellation() noexcept { changed_ = pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_) == 0; }
  ~NoCancellation() {
    if (changed_) (void)pthread_setcancelstate(before_, nullptr);
  }
  NoCancellation(NoCancellation const&) = delete;
  NoCancellation& operator=(NoCancellation const&) = delete;

 private:
  int before_ = 0;
  bool changed_;
};

}  // namespace velt

#endif
