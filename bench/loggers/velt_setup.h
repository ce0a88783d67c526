// How a host of this library sets itself up for the measurements.
#ifndef VELT_BENCH_LOGGERS_VELT_SETUP_H
#define VELT_BENCH_LOGGERS_VELT_SETUP_H

#include <bitset>
#include <fstream>
#include <future>
#include <memory>
#include <string>
#include <utility>
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

// Keeps an output thread busy. A pipe in place of the file would not: a channel opens no name that exists.
class OutputGate {
 public:
  // A value whose printing waits until Open.
  std::unique_ptr<AsnType> ClosedValue() const { return std::make_unique<Value>(opened_); }
  void Open() { open_.set_value(); }

 private:
  class Value : public AsnType {
   public:
    explicit Value(std::shared_future<void> opened) : opened_(std::move(opened)) {}
    AsnType* Clone() const override { return new Value(opened_); }
    void Print(std::ostream& /*out*/, int /*unused*/, int /*unused*/) const override { opened_.wait(); }

   private:
    std::shared_future<void> opened_;
  };

  std::promise<void> open_;
  std::shared_future<void> opened_{open_.get_future()};
};

}  // namespace velt::bench

#endif
