// Checks all families of a load run, and adds up what was traced and what was found.
#ifndef VELT_TESTS_LOAD_ACCOUNT_H
#define VELT_TESTS_LOAD_ACCOUNT_H

#include <cstddef>
#include <string>

#include "tests/load/family_check.h"
#include "tests/load/pacer.h"
#include "tests/load/producers.h"

namespace velt::load {

struct Account {
  std::size_t called = 0;  // = accepted + refused
  std::size_t accepted = 0;
  std::size_t refused = 0;
  std::size_t refused_by_level = 0;  // those that must be
  std::size_t in_files = 0;          // accepted = in_files + evicted + left_in_ring + lost
  std::size_t from_ring = 0;         // of those in files
  std::size_t evicted = 0;
  std::size_t left_in_ring = 0;
  std::size_t archives = 0;
  std::size_t bytes = 0;  // of all files, unpacked
  Findings findings;

  bool Accounted() const {
    return called == accepted + refused && accepted == in_files + evicted + left_in_ring + findings.lost;
  }
};

// Reads `directory`, and `printed`, what the run wrote to standard output: each ring record once more, in the
// same order.
Account CheckAll(Scale const& scale, Pacer const& pacer, Producers const& producers,
                 std::string const& directory, std::string const& printed);

}  // namespace velt::load

#endif
