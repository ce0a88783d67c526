// An installation root for tests of programs that read the environment.
#ifndef VELT_TESTS_SUPPORT_INSTALLATION_H
#define VELT_TESTS_SUPPORT_INSTALLATION_H

#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/support/files.h"

namespace velt::test {

// Makes the environment of this process, and so of the programs that it starts, name a scratch root and
// nothing else. The root has an empty conf/.
class InstalledRoot {
 public:
  InstalledRoot() {
    for (char const* const name : {"COMMON_LIB_PATH", "_APP_LOG_DIR", "_APP_TMP_DIR"}) unsetenv(name);
    setenv("APP_ROOT", dir_.Path().c_str(), 1);
    std::filesystem::create_directory(dir_ / "conf");
  }

  ScratchDir const& Dir() const { return dir_; }
  std::string DebugFile() const { return dir_ / "conf/default_debug.cfg"; }
  std::string MainFile() const { return dir_ / "conf/velt.cfg"; }

 private:
  ScratchDir dir_;
};

}  // namespace velt::test

#endif
