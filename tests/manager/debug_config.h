// What the tests of the debug configuration share: an installation of their own and what is read from it.
#ifndef VELT_TESTS_MANAGER_DEBUG_CONFIG_H
#define VELT_TESTS_MANAGER_DEBUG_CONFIG_H

#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/support/files.h"
#include "tests/support/manager_host.h"

namespace velt::test {

using Sets = std::pair<Bits, Bits>;
using ModuleSets = VeltDebugMgr::ModuleSets;

// What GetCfgItem read. The numbers begin with -7, which no reader gives.
struct Items {
  int ring = -7;
  int channels = -7;
  int file_size = -7;
  int archives = -7;
  int files_per_archive = -7;
  ModuleSets modules;

  std::vector<int> Numbers() const { return {ring, channels, file_size, archives, files_per_archive}; }
};

inline std::vector<int> const kDefaultNumbers{100, 50, 5242880, 30, 10};

class DebugConfigTest : public ::testing::Test {
 protected:
  void SetUp() override {
    unsetenv("APP_ROOT");
    unsetenv("COMMON_LIB_PATH");
    std::filesystem::create_directories(dir_ / "root/conf");
    std::filesystem::create_directories(dir_ / "lib/conf");
  }
  void TearDown() override { VeltDebugMgr::Destroy(); }

  void UseRoot() const { setenv("APP_ROOT", (dir_ / "root").c_str(), 1); }
  void UseLib() const { setenv("COMMON_LIB_PATH", (dir_ / "lib").c_str(), 1); }

  std::string Write(std::string const& name, std::string const& content) const {
    WriteFile(dir_ / name, content);
    return dir_ / name;
  }
  std::string Missing() const { return dir_ / "missing.cfg"; }
  std::string DefaultDebugFile(std::string const& content) const {
    return Write("root/conf/default_debug.cfg", content);
  }
  std::string DefaultFile(std::string const& content) const { return Write("root/conf/velt.cfg", content); }

  static Items Read(std::string const& file) {
    Items items;
    VeltDebugMgr::Instance()->GetCfgItem(file, items.ring, items.channels, items.file_size, items.archives,
                                         items.files_per_archive, items.modules);
    return items;
  }

  // The module table of one primary file, without an installation.
  ModuleSets Modules(std::string const& content) const { return Read(Write("primary.cfg", content)).modules; }

  ScratchDir dir_;
};

}  // namespace velt::test

#endif
