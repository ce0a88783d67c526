// The producers of the load run: threads that follow the plan and keep what each call returned.
#ifndef VELT_TESTS_LOAD_PRODUCERS_H
#define VELT_TESTS_LOAD_PRODUCERS_H

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "tests/load/pacer.h"
#include "tests/load/plan.h"

namespace velt::load {

// What one producer's calls returned; indices of steps, ascending. All others were accepted.
struct Answers {
  std::vector<unsigned> refused;
  std::vector<unsigned> filtered_refused;
  // Printf returns no result. A call that returned at once was accepted: a full queue refuses only after a
  // second. The few slower ones are listed here; the files show whether they were accepted.
  std::vector<unsigned> unknown;
};

// Starts all producers; they trace through the initialised manager, and stay until Release, so that only the
// library changes the number of threads.
class Producers {
 public:
  Producers(Scale const& scale, Pacer& pacer);
  ~Producers();
  Producers(Producers const&) = delete;
  Producers& operator=(Producers const&) = delete;

  bool AllTraced() const { return finished_ == kProducers; }
  void Release();  // ends the threads; waits for them

  std::uint64_t Traced() const;  // calls that returned, so far

  // After Release:
  Answers const& Of(unsigned producer) const { return producers_[producer].answers; }
  unsigned InRing(unsigned family) const { return rings_[family].count; }  // records that ever went into it

 private:
  struct Producer {
    std::atomic<std::uint64_t> traced{0};
    Answers answers;
  };
  // Held over the trace call, so that numbers are in the order of the ring.
  struct Ring {
    std::mutex lock;
    unsigned count = 0;
  };

  void Run(unsigned number);
  void Take(unsigned number, unsigned index);
  bool TraceFiltered(Step const& step);

  Scale scale_;
  Pacer& pacer_;
  std::chrono::steady_clock::time_point start_;
  std::array<Producer, kProducers> producers_;
  std::array<Ring, kFamilies> rings_;
  std::atomic<unsigned> finished_{0};
  std::mutex release_lock_;
  std::condition_variable release_changed_;
  bool released_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace velt::load

#endif
