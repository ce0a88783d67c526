// An output that stalls: pipes with the names that a logger will open, not read until StartReading.
#ifndef VELT_BENCH_HARNESS_STALLED_OUTPUT_H
#define VELT_BENCH_HARNESS_STALLED_OUTPUT_H

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "harness/read_back.h"

namespace velt::bench {

class StalledOutput {
 public:
  StalledOutput(std::string const& directory, std::vector<std::string> const& names);
  ~StalledOutput();
  StalledOutput(StalledOutput const&) = delete;
  StalledOutput& operator=(StalledOutput const&) = delete;

  // Reads whatever comes from now on, in a thread of its own that hands it to `ledger`.
  void StartReading(Ledger& ledger);

  // Call it after the logger is destroyed: reads what is left in the pipes and ends the thread.
  void FinishReading();

 private:
  bool ReadOnce(Ledger& ledger) const;

  std::vector<int> pipes_;  // a logger opens one of them
  std::atomic<bool> closed_{false};
  std::thread reader_;
};

}  // namespace velt::bench

#endif
