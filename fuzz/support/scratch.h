// A directory of the process's own, under TMPDIR or in memory where the system has a place for that; removed
// at the end.
#ifndef VELT_FUZZ_SUPPORT_SCRATCH_H
#define VELT_FUZZ_SUPPORT_SCRATCH_H

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include "fuzz/support/check.h"

namespace velt::fuzz {

class Scratch {
 public:
  Scratch() {
    char const* const given = std::getenv("TMPDIR");
    path_ = given != nullptr ? given : access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    path_ += "/velt_fuzz_XXXXXX";
    Check(mkdtemp(path_.data()) != nullptr, "no scratch directory");
  }
  ~Scratch() {
    std::error_code ignored;  // a failure cannot be reported
    std::filesystem::remove_all(path_, ignored);
  }
  Scratch(Scratch const&) = delete;
  Scratch& operator=(Scratch const&) = delete;

  std::string const& Path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace velt::fuzz

#endif
