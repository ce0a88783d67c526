// The function that a wrapper replaces and calls.
#ifndef VELT_TESTS_FAULTS_SHIM_NEXT_H
#define VELT_TESTS_FAULTS_SHIM_NEXT_H

#include <dlfcn.h>

#include <cstdlib>

namespace velt::shim {

template <typename Function>
Function* Next(char const* name) {
  auto* const found = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
  if (found == nullptr) std::abort();
  return found;
}

}  // namespace velt::shim

// Exported, so that the program and its libraries use the wrappers.
#define VELT_SHIM_EXPORT extern "C" __attribute__((visibility("default")))

#endif
