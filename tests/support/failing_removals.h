// Removals of files that fail on demand. Linked into the tests that ask for it, it replaces the C library's
// remove for the whole program.
#ifndef VELT_TESTS_SUPPORT_FAILING_REMOVALS_H
#define VELT_TESTS_SUPPORT_FAILING_REMOVALS_H

#include <string>
#include <vector>

namespace velt::test {

// Paths that remove does not remove, and the paths it was called with; null at first.
extern std::vector<std::string>* unremovable;
extern std::vector<std::string>* asked_to_remove;

}  // namespace velt::test

#endif
