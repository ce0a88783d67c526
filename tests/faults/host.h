// Producers: threads that trace checked records and keep the outcome of every call.
#ifndef VELT_TESTS_FAULTS_HOST_H
#define VELT_TESTS_FAULTS_HOST_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "velt/channel.h"

#include "tests/checker/outcomes.h"
#include "tests/checker/record_text.h"

namespace velt::faults {

using TraceCall = std::function<bool(std::string const& text)>;

// Traces with module "m" at level 3 into the file of `channel`.
TraceCall ToChannel(VeltDebugInfo& channel);
// The same through VeltDebugMgr::Instance()->AppTrace; an empty sub-name is the main family.
TraceCall ToManager(std::string const& sub_name = {});

struct ProducerSetup {
  std::string side_directory;  // of the outcome files; made when it is missing
  unsigned run = 0;
  unsigned producers = 2;
  unsigned first_producer = 0;         // number of the first one
  unsigned records = 1'000;            // of each; also the capacity of the outcome files
  std::chrono::microseconds pause{0};  // between two records of one producer
  // Of a record's payload; unset: checker::MixedLength.
  std::function<std::size_t(unsigned sequence)> length;
};

// One producer without a thread of its own: traces the next record when asked.
class Producer {
 public:
  Producer(ProducerSetup const& setup, unsigned number, TraceCall trace);

  bool TraceNext();  // whether the record was accepted; false, too, when the capacity is used up
  bool Exhausted() const { return next_ == outcomes_.Capacity(); }
  unsigned Accepted() const { return accepted_; }
  std::chrono::nanoseconds LongestCall() const { return longest_; }

 private:
  ProducerSetup setup_;
  unsigned number_;
  TraceCall trace_;
  checker::OutcomeWriter outcomes_;
  unsigned next_ = 0;
  unsigned accepted_ = 0;
  std::chrono::nanoseconds longest_{0};
};

// Several producers, each in a thread. The destructor stops them.
class Producers {
 public:
  Producers(ProducerSetup const& setup, TraceCall const& trace);
  ~Producers() { Stop(); }
  Producers(Producers const&) = delete;
  Producers& operator=(Producers const&) = delete;

  void Wait();                                   // until each has traced all of its records
  void Stop();                                   // after the call that each is in
  unsigned Traced() const { return traced_; }    // calls that returned, so far
  std::chrono::nanoseconds LongestCall() const;  // after Wait or Stop

 private:
  void Run(Producer& producer, std::chrono::microseconds pause);
  void Join();

  std::atomic<bool> stop_{false};
  std::atomic<unsigned> traced_{0};
  std::vector<std::unique_ptr<Producer>> producers_;
  std::vector<std::thread> threads_;
};

// Names of the plain files of a family, sorted: <prefix>, 15 characters, ".log".
std::vector<std::string> LogNames(std::string const& directory, std::string const& prefix);

// Waits for another second, then traces with each producer in turn, every record once the one before it is
// written, until the family has one more finished file and the next one is open. False when it takes a
// minute. `max_bytes` is the limit of the files.
bool FillFile(std::vector<Producer*> const& producers, std::string const& directory,
              std::string const& prefix, std::size_t max_bytes);

// Makes a hard link in `witness_directory` to every .log of the family that has none yet: the file stays
// readable there when its name is removed.
void LinkLogs(std::string const& directory, std::string const& prefix, std::string const& witness_directory);

// Calls LinkLogs every 10 ms from a thread of its own.
class Witness {
 public:
  Witness(std::string directory, std::string prefix, std::string witness_directory);
  ~Witness();
  Witness(Witness const&) = delete;
  Witness& operator=(Witness const&) = delete;

  void Stop();  // calls LinkLogs a last time

 private:
  std::string directory_;
  std::string prefix_;
  std::string witness_directory_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

}  // namespace velt::faults

#endif
