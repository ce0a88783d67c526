// How much a fault scenario does, and the figures that it reports.
#ifndef VELT_TESTS_FAULTS_SCALE_H
#define VELT_TESTS_FAULTS_SCALE_H

#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <utility>

#include "tests/faults/sanitizers.h"

namespace velt::faults {

// VELT_FAULT_SCALE=full is the campaign; everything else is the scale of the test command.
inline bool FullScale() {
  char const* const scale = std::getenv("VELT_FAULT_SCALE");
  return scale != nullptr && std::string(scale) == "full";
}

template <typename Number>
Number Scaled(Number usual, Number full) {
  return FullScale() ? full : usual;
}

// Prints "FIGURE kills=1000 lost=0": one line a call, collected by scripts/campaign.sh.
inline void Figure(std::initializer_list<std::pair<char const*, long long>> values) {
  std::string line = "FIGURE";
  for (auto const& value : values)
    line += ' ' + std::string(value.first) + '=' + std::to_string(value.second);
  std::puts(line.c_str());
  std::fflush(stdout);
}

inline constexpr bool kSanitized = VELT_ADDRESS_SANITIZER || VELT_THREAD_SANITIZER;

}  // namespace velt::faults

#endif
