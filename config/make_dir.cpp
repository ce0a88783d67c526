// Creates a directory with its parents.
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <system_error>

#include "velt/config.h"

namespace {

// What a 1023-character shell command that makes the directory has room for. No shell is run, but hosts rely
// on longer paths being refused.
constexpr std::size_t kLongestPath = 1007;

}  // namespace

int VeltMakeDirEx(char const* path) {
  if (path == nullptr || *path == '\0' || std::strchr(path, '$') != nullptr) return -1;
  if (access(path, F_OK) == 0) return 0;
  if (std::strlen(path) > kLongestPath) return -1;
  std::error_code ignored;  // whether the path exists afterwards decides
  std::filesystem::create_directories(path, ignored);
  return access(path, F_OK) == 0 ? 0 : -1;
}
