// How a host of this library sets itself up for the measurements.
#ifndef VELT_BENCH_LOGGERS_VELT_SETUP_H
#define VELT_BENCH_LOGGERS_VELT_SETUP_H

#include <array>
#include <bitset>
#include <ctime>
#include <fstream>
#include <string>
#include <vector>

#include "velt/manager.h"

#include "harness/line.h"
#include "harness/options.h"

namespace velt::bench {

constexpr VeltLogLevel kInformation{3};
constexpr char const* kFamily = "bench";

// "MM-DD HH:MM:SS.uuuuuu" ".T" " " " I: " and the newline; the thread id and the module come between.
constexpr std::size_t kVeltFixedLength = 21 + 2 + 1 + 4 + kMessageLength + 1;

struct HostLimits {
  std::size_t ring = 100;
  std::size_t file_mb = 50;
  bool filter = false;  // the modules do not have the level that is traced
};

inline void StartManager(Options const& options, Modules const& modules, HostLimits const& limits) {
  std::string const config = options.Scratch() + "/debug.cfg";
  std::ofstream(config) << "nFiltLogBufSize = " << limits.ring << "\nnEachFileMaxSize = " << limits.file_mb
                        << "\nnEachProcessMaxZipNum = 200\n";
  VeltDebugMgr* const manager = VeltDebugMgr::Instance();
  if (manager == nullptr || !manager->Init(kFamily, config, options.LogDirectory(), "", true, false)) {
    Fail("the manager cannot be initialised");
  }
  std::bitset<32> const levels(limits.filter ? "0011" : "1111");
  std::bitset<32> const log_file_only("10");
  for (std::string const& module : modules) {
    if (!manager->RegSubModuleInfo(module, levels, log_file_only, false)) Fail("cannot register " + module);
  }
}

// Names of the files that a channel with this prefix may open within the next seconds.
inline std::vector<std::string> NextFileNames(std::string const& prefix) {
  constexpr int kSeconds = 6;
  std::vector<std::string> names;
  for (int i = 0; i < kSeconds; ++i) {
    std::time_t const when = std::time(nullptr) + i;
    std::tm local{};
    (void)localtime_r(&when, &local);
    std::array<char, 64> text{};
    (void)std::strftime(text.data(), text.size(), "%Y%m%d_%H%M%S.log", &local);
    names.push_back(prefix + text.data());
  }
  return names;
}

}  // namespace velt::bench

#endif
