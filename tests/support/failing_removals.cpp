#include "tests/support/failing_removals.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace velt::test {

std::vector<std::string>* unremovable = nullptr;
std::vector<std::string>* asked_to_remove = nullptr;

}  // namespace velt::test

using velt::test::asked_to_remove;
using velt::test::unremovable;

extern "C" int remove(char const* path) noexcept {
  if (asked_to_remove != nullptr) asked_to_remove->emplace_back(path);
  if (unremovable != nullptr &&
      std::find(unremovable->begin(), unremovable->end(), path) != unremovable->end()) {
    errno = EPERM;
    return -1;
  }
  if (unlink(path) == 0) return 0;
  return errno == EISDIR || errno == EPERM ? rmdir(path) : -1;
}
