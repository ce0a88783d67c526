// Wrappers of what opens, names and removes files.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string_view>

#include "tests/faults/shim/next.h"
#include "tests/faults/shim/shim.h"

using velt::shim::Ask;
using velt::shim::Call;
using velt::shim::Next;
using velt::shim::NoteOpen;
using velt::shim::Verdict;
using velt::shim::Watched;

namespace {

// Whether the call is to fail; errno is set then.
bool Fails(Call call, char const* path) {
  if (!Watched(call)) return false;
  Verdict const verdict = Ask(call, path);
  if (verdict.fail) errno = verdict.error;
  return verdict.fail;
}

bool HasMode(int flags) { return (flags & (O_CREAT | O_TMPFILE)) != 0; }

Call OpenOf(char const* path, int flags) {
  constexpr std::string_view kTail = ".log";
  std::string_view const name = path;
  bool const log = name.size() >= kTail.size() && name.substr(name.size() - kTail.size()) == kTail;
  return log && HasMode(flags) ? Call::kCreate : Call::kOpen;
}

}  // namespace

// What the C++ library opens its file streams with.
VELT_SHIM_EXPORT FILE* fopen64(char const* path, char const* mode) {
  static auto* const next = Next<FILE*(char const*, char const*)>("fopen64");
  FILE* const opened = next(path, mode);
  if (opened != nullptr) NoteOpen(path, std::string_view(mode).find('e') != std::string_view::npos);
  return opened;
}

VELT_SHIM_EXPORT int open64(char const* path, int flags, ...) {
  static auto* const next = Next<int(char const*, int, ...)>("open64");
  va_list arguments;
  va_start(arguments, flags);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer does not see what va_start does
  mode_t const mode = HasMode(flags) ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if (Fails(OpenOf(path, flags), path)) return -1;
  int const opened = next(path, flags, mode);
  if (opened != -1) NoteOpen(path, (flags & O_CLOEXEC) != 0);
  return opened;
}

VELT_SHIM_EXPORT int open(char const* path, int flags, ...) {
  static auto* const next = Next<int(char const*, int, ...)>("open");
  va_list arguments;
  va_start(arguments, flags);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer does not see what va_start does
  mode_t const mode = HasMode(flags) ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if (Fails(OpenOf(path, flags), path)) return -1;
  int const opened = next(path, flags, mode);
  if (opened != -1) NoteOpen(path, (flags & O_CLOEXEC) != 0);
  return opened;
}

VELT_SHIM_EXPORT DIR* opendir(char const* path) {
  static auto* const next = Next<DIR*(char const*)>("opendir");
  return Fails(Call::kOpendir, path) ? nullptr : next(path);
}

VELT_SHIM_EXPORT int mkdir(char const* path, mode_t mode) noexcept {
  static auto* const next = Next<int(char const*, mode_t)>("mkdir");
  return Fails(Call::kMkdir, path) ? -1 : next(path, mode);
}

VELT_SHIM_EXPORT int remove(char const* path) noexcept {
  static auto* const next = Next<int(char const*)>("remove");
  return Fails(Call::kRemove, path) ? -1 : next(path);
}

VELT_SHIM_EXPORT int unlink(char const* path) noexcept {
  static auto* const next = Next<int(char const*)>("unlink");
  return Fails(Call::kUnlink, path) ? -1 : next(path);
}

VELT_SHIM_EXPORT int rename(char const* from, char const* to) noexcept {
  static auto* const next = Next<int(char const*, char const*)>("rename");
  return Fails(Call::kRename, from) ? -1 : next(from, to);
}
