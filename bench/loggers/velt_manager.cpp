// This library as a host uses it: through the manager, with sixteen modules.
#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "velt/log.h"
#include "velt/manager.h"

#include "harness/figures.h"
#include "loggers/velt_setup.h"

namespace velt::bench {
namespace {

using Message = std::array<char, kMessageCapacity>;

enum class Road { kPrintf, kTrace, kAppTrace, kLog, kNothing };

// What every filtered call pays before it begins.
[[gnu::noinline]] void CallOfNothing(VeltLogLevel /*level*/, VeltInterString const& /*module*/,
                                     char const* /*format*/, ...) {
  asm volatile("");  // not to be optimised away
}

template <Road kRoad>
class ManagerLogger {
 public:
  static constexpr std::size_t kFixedLength = kVeltFixedLength;
  static constexpr std::size_t kThreadIdWidth = 1;

  ManagerLogger(Options const& options, Modules const& modules) : modules_(modules.begin(), modules.end()) {
    for (std::string const& module : modules) objects_.emplace_back(module);
    bool const filter = options.Action() == "filtered";
    StartManager(options, modules, {options.Count("ring", 100), 50, filter});
    manager_ = VeltDebugMgr::Instance();
    if (filter && !manager_->Trace(modules_[0], kInformation, "opening", nullptr, false, true)) {
      Fail("the file cannot be opened");
    }
  }
  ~ManagerLogger() { (void)VeltDebugMgr::Destroy(); }  // what it fails to write is missed when read back
  ManagerLogger(ManagerLogger const&) = delete;
  ManagerLogger& operator=(ManagerLogger const&) = delete;

  bool Log(std::size_t module, char const* customer, int worker, int step) {
    if constexpr (kRoad == Road::kPrintf || kRoad == Road::kNothing) {
      manager_->Printf(kInformation, modules_[module], VELT_BENCH_PRINTF_MESSAGE, customer, worker, step);
      return true;  // it does not tell; a refused record is missed when read back
    } else if constexpr (kRoad == Road::kLog) {
      return objects_[module].Info(VELT_BENCH_FMT_MESSAGE, customer, worker, step);
    } else {
      Message message;
      (void)std::snprintf(message.data(), message.size(), VELT_BENCH_PRINTF_MESSAGE, customer, worker, step);
      if constexpr (kRoad == Road::kTrace) {
        return manager_->Trace(modules_[module], kInformation, message.data(), nullptr, false, false);
      } else {
        return manager_->AppTrace(modules_[module], kInformation, message.data(), nullptr, false, false,
                                  sub_name_);
      }
    }
  }

  void Stall() {
    if (!manager_->Trace(modules_[0], kInformation, "stalled", gate_.ClosedValue().get(), false, true)) {
      Fail("the stalling record was refused");
    }
  }
  void Resume() { gate_.Open(); }

  // Printf and the calls of velt/log.h get what is to be formatted; Trace a text that the host has at hand.
  void LogFiltered(std::size_t module, char const* customer, int worker, int step) {
    if constexpr (kRoad == Road::kNothing) {
      CallOfNothing(kInformation, modules_[module], VELT_BENCH_PRINTF_MESSAGE, customer, worker, step);
    } else if constexpr (kRoad == Road::kPrintf) {
      manager_->Printf(kInformation, modules_[module], VELT_BENCH_PRINTF_MESSAGE, customer, worker, step);
    } else if constexpr (kRoad == Road::kLog) {
      (void)objects_[module].Info(VELT_BENCH_FMT_MESSAGE, customer, worker, step);
    } else {
      static_assert(kRoad == Road::kTrace || kRoad == Road::kAppTrace);
      (void)manager_->Trace(modules_[module], kInformation, ready_text_.c_str(), nullptr, false, false);
    }
  }

 private:
  std::vector<VeltInterString> modules_;
  std::vector<velt::Module> objects_;
  std::string const sub_name_ = "side";
  std::string const ready_text_ = std::string(kMessageLength, 'x');
  OutputGate gate_;
  VeltDebugMgr* manager_ = nullptr;
};

int RunRoad(Options const& options) {
  std::string const road = options.Text("road", "printf");
  if (road == "printf") return Run<ManagerLogger<Road::kPrintf>>(options);
  if (road == "log") return Run<ManagerLogger<Road::kLog>>(options);
  if (road == "nothing") return Run<ManagerLogger<Road::kNothing>>(options);
  if (road == "trace") return Run<ManagerLogger<Road::kTrace>>(options);
  if (road == "apptrace") return Run<ManagerLogger<Road::kAppTrace>>(options);
  Fail("unknown road '" + road + "'");
}

}  // namespace
}  // namespace velt::bench

int main(int argc, char** argv) { return velt::bench::RunRoad(velt::bench::Options(argc, argv)); }
