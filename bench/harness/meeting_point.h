// Where threads wait for each other before the next step of a measurement.
#ifndef VELT_BENCH_HARNESS_MEETING_POINT_H
#define VELT_BENCH_HARNESS_MEETING_POINT_H

#include <pthread.h>

#include <cstddef>

namespace velt::bench {

class MeetingPoint {
 public:
  explicit MeetingPoint(std::size_t threads) {
    (void)pthread_barrier_init(&barrier_, nullptr, static_cast<unsigned>(threads));  // fails for 0 only
  }
  ~MeetingPoint() { (void)pthread_barrier_destroy(&barrier_); }
  MeetingPoint(MeetingPoint const&) = delete;
  MeetingPoint& operator=(MeetingPoint const&) = delete;

  void Wait() { (void)pthread_barrier_wait(&barrier_); }

 private:
  pthread_barrier_t barrier_{};
};

}  // namespace velt::bench

#endif
