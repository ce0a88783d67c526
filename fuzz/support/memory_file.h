// A file that is only in memory, has a path, and is rewritten in place: what millions of look-ups can read.
#ifndef VELT_FUZZ_SUPPORT_MEMORY_FILE_H
#define VELT_FUZZ_SUPPORT_MEMORY_FILE_H

#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "fuzz/support/check.h"

namespace velt::fuzz {

class MemoryFile {
 public:
  MemoryFile() : file_(memfd_create("fuzz", MFD_CLOEXEC)), path_("/proc/self/fd/" + std::to_string(file_)) {
    Check(file_ != -1, "no file in memory");
  }
  ~MemoryFile() { close(file_); }
  MemoryFile(MemoryFile const&) = delete;
  MemoryFile& operator=(MemoryFile const&) = delete;

  void Write(std::string_view text) {
    auto const size = static_cast<ssize_t>(text.size());
    Check(pwrite(file_, text.data(), text.size(), 0) == size && ftruncate(file_, size) == 0,
          "memory is full");
  }
  std::string const& Path() const { return path_; }

 private:
  int file_;
  std::string path_;
};

}  // namespace velt::fuzz

#endif
