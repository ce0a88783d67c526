// How a fuzz target says that the library and the model disagree: in words, then by ending the process.
#ifndef VELT_FUZZ_SUPPORT_CHECK_H
#define VELT_FUZZ_SUPPORT_CHECK_H

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

namespace velt::fuzz {

[[noreturn]] inline void Fail(std::string const& what) {
  std::fprintf(stderr, "FINDING: %s\n", what.c_str());
  std::abort();
}

inline void Check(bool holds, char const* what) {
  if (!holds) Fail(what);
}

// A value for a message: whatever a stream takes.
template <typename Value>
std::string Shown(Value const& value) {
  std::ostringstream out;
  out << '[' << value << ']';
  return out.str();
}

template <typename Actual, typename Expected>
void CheckEqual(Actual const& actual, Expected const& expected, char const* what) {
  if (actual == expected) return;
  Fail(std::string(what) + ": is " + Shown(actual) + ", should be " + Shown(expected));
}

}  // namespace velt::fuzz

#endif
