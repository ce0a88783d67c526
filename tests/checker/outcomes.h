// What each trace call of a producer returned, stored so that it survives a SIGKILL of the process.
#ifndef VELT_TESTS_CHECKER_OUTCOMES_H
#define VELT_TESTS_CHECKER_OUTCOMES_H

#include <cstddef>
#include <string>
#include <vector>

namespace velt::checker {

enum class Outcome : unsigned char {
  kNotCalled = 0,
  kBegun = 1,  // the process ended before the call returned
  kAccepted = 2,
  kRefused = 3,
};

// The side file <directory>/outcomes.<run>.<producer> of one producer: one byte a sequence number, written
// through shared memory, so that it survives the process as soon as it is stored.
//
// Threads: one writer for each producer. Errors: the constructor throws std::runtime_error.
class OutcomeWriter {
 public:
  OutcomeWriter(std::string const& directory, unsigned run, unsigned producer, std::size_t capacity);
  ~OutcomeWriter();
  OutcomeWriter(OutcomeWriter const&) = delete;
  OutcomeWriter& operator=(OutcomeWriter const&) = delete;

  std::size_t Capacity() const { return capacity_; }
  void Begin(unsigned sequence) { Store(sequence, Outcome::kBegun); }
  void End(unsigned sequence, bool accepted) {
    Store(sequence, accepted ? Outcome::kAccepted : Outcome::kRefused);
  }

 private:
  void Store(unsigned sequence, Outcome outcome);

  std::size_t capacity_;
  unsigned char volatile* bytes_;
};

struct ProducerOutcomes {
  unsigned run = 0;
  unsigned producer = 0;
  std::vector<Outcome> outcomes;  // by sequence number, up to the last one that was called

  std::size_t Count(Outcome outcome) const;
};

// All side files of a directory, by run and producer.
std::vector<ProducerOutcomes> ReadOutcomes(std::string const& directory);

}  // namespace velt::checker

#endif
