// Creates a directory with its parents.
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "velt/config.h"

namespace {

// Longer paths are refused. 1007 is what a shell command of 1023 characters that makes the directory has room
// for; no shell is run.
constexpr std::size_t kLongestPath = 1007;
constexpr mode_t kMode = 0777;  // less the umask
constexpr mode_t kUsableByOwner = 0300;

// Creates one parent. The owner gets the right to enter it and to write into it even against the umask: the
// directories below need both.
void MakeParent(std::string const& path) {
  if (mkdir(path.c_str(), kMode) != 0) return;  // the caller checks whether the whole path exists in the end
  struct stat info {};
  if (stat(path.c_str(), &info) == 0 && (info.st_mode & kUsableByOwner) != kUsableByOwner) {
    (void)chmod(path.c_str(), (info.st_mode & 07777U) | kUsableByOwner);
  }
}

}  // namespace

int VeltMakeDirEx(char const* path) {
  if (path == nullptr || *path == '\0' || std::strchr(path, '$') != nullptr) return -1;
  if (access(path, F_OK) == 0) return 0;
  std::string const whole = path;
  if (whole.size() > kLongestPath) return -1;
  std::size_t const end = whole.find_last_not_of('/') + 1;  // without slashes at the end
  for (std::size_t slash = whole.find('/', 1); slash < end; slash = whole.find('/', slash + 1)) {
    MakeParent(whole.substr(0, slash));
  }
  (void)mkdir(whole.c_str(), kMode);
  return access(path, F_OK) == 0 ? 0 : -1;
}
