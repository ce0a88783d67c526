// What one file of a family holds, and everything in it that is wrong.
#ifndef VELT_TESTS_CHECKER_FILE_CHECK_H
#define VELT_TESTS_CHECKER_FILE_CHECK_H

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/checker/family.h"
#include "tests/checker/report.h"

namespace velt::checker {

using ProducerKey = std::pair<unsigned, unsigned>;  // run and number
std::string Describe(ProducerKey const& key);       // "R1 P2"

// Sequence numbers of whole records in the order of the file, by producer.
using RecordsOfProducers = std::map<ProducerKey, std::vector<unsigned>>;

struct FileCheck {
  RecordsOfProducers records;
  std::vector<Finding> findings;
};

// May be called from any thread.
FileCheck CheckFile(Expectation const& expected, FamilyFile const& file, bool is_last);

// The whole records of a text, whatever else it holds. Any thread.
RecordsOfProducers RecordsIn(std::string_view text);

}  // namespace velt::checker

#endif
