// What is found in the log files afterwards: every record once, those of one producer in their order.
#ifndef VELT_BENCH_HARNESS_READ_BACK_H
#define VELT_BENCH_HARNESS_READ_BACK_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace velt::bench {

// Counts the lines of each worker. Workers are numbered from kFirstWorker, their steps from kFirstStep.
class Ledger {
 public:
  Ledger(std::size_t workers, std::size_t steps);

  // `line` is without its newline. Lines that end otherwise than a record are a logger's own.
  void Take(std::string_view line);

  // Takes the lines of text that comes in pieces.
  void TakeText(std::string_view piece);

  std::size_t Found() const { return found_; }
  std::size_t Missing() const { return seen_.size() - found_; }
  std::size_t Repeated() const { return repeated_; }
  std::size_t Disordered() const { return disordered_; }
  double MeanLineLength() const;

  // Ends the process unless every record was found, once, in order; or the first `expected` of them.
  void DemandAll() const { Demand(seen_.size()); }
  void Demand(std::size_t expected) const;

 private:
  std::size_t steps_;
  std::vector<bool> seen_;
  std::vector<std::int64_t> last_step_;  // of each worker
  std::size_t found_ = 0;
  std::size_t repeated_ = 0;
  std::size_t disordered_ = 0;
  std::size_t bytes_ = 0;
  std::string rest_;  // the head of a line whose end has not come yet
};

// Reads every log file of the directory, compressed or not, in the order of their names.
void ReadBack(std::string const& directory, Ledger& ledger);

// Names of the regular files, sorted.
std::vector<std::string> FilesIn(std::string const& directory);

std::size_t BytesIn(std::string const& directory);

// Waits until the files have `bytes` at least. Ends the process when that takes minutes.
void WaitForBytes(std::string const& directory, std::size_t bytes, std::int64_t nap_ns);

// Waits until the files have something in them and have not grown for a while.
std::size_t WaitUntilQuiet(std::string const& directory);

}  // namespace velt::bench

#endif
