// spdlog, asynchronous or synchronous: one logger for each module over one sink.
#include <memory>
#include <string>
#include <vector>

#include <spdlog/async.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>

#include "harness/figures.h"

namespace velt::bench {
namespace {

template <bool kAsync>
class SpdlogLogger {
 public:
  static constexpr std::size_t kFixedLength = 21 + 2 + 1 + 4 + kMessageLength + 1;
  static constexpr std::size_t kThreadIdWidth = 1;
  static std::vector<std::string> OutputNames() { return {"bench.log"}; }

  SpdlogLogger(Options const& options, Modules const& modules) {
    constexpr std::size_t kQueueBound = 131'072;
    constexpr std::size_t kFileLimit = 1'000'000'000;
    if constexpr (kAsync) pool_ = std::make_shared<spdlog::details::thread_pool>(kQueueBound, 1);
    auto const sink = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
        options.LogDirectory() + "bench.log", kFileLimit, 3);
    for (std::string const& module : modules) {
      loggers_.push_back(Make(module, sink));
      loggers_.back()->flush_on(spdlog::level::trace);
      if (options.Action() == "filtered") loggers_.back()->enable_backtrace(options.Count("ring", 100));
    }
    sink->set_pattern("%m-%d %H:%M:%S.%f.T%t %n %L: %v");
  }

  bool Log(std::size_t module, char const* customer, int worker, int step) {
    loggers_[module]->info(VELT_BENCH_FMT_MESSAGE, customer, worker, step);
    return true;
  }

  // Each logger has a ring of its own; one ring is the quickest.
  void LogFiltered(std::size_t /*module*/, char const* customer, int worker, int step) {
    loggers_.front()->debug(VELT_BENCH_FMT_MESSAGE, customer, worker, step);
  }

 private:
  std::shared_ptr<spdlog::logger> Make(std::string const& module, spdlog::sink_ptr const& sink) {
    if constexpr (kAsync) {
      return std::make_shared<spdlog::async_logger>(module, sink, pool_,
                                                    spdlog::async_overflow_policy::block);
    } else {
      return std::make_shared<spdlog::logger>(module, sink);
    }
  }

  std::shared_ptr<spdlog::details::thread_pool> pool_;  // writes what is queued when it goes
  std::vector<std::shared_ptr<spdlog::logger>> loggers_;
};

}  // namespace
}  // namespace velt::bench

int main(int argc, char** argv) {
  velt::bench::Options const options(argc, argv);
  if (options.Text("mode", "async") == "async") {
    return velt::bench::Run<velt::bench::SpdlogLogger<true>>(options);
  }
  return velt::bench::Run<velt::bench::SpdlogLogger<false>>(options);
}
