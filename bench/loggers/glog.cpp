// glog. It has no queue; a module is the name of a source file.
#include <string>
#include <vector>

#include <glog/logging.h>

#include "harness/figures.h"

namespace velt::bench {
namespace {

class GlogLogger {
 public:
  // "IYYYYMMDD HH:MM:SS.uuuuuu" " " " " ":42" "] " and the newline.
  static constexpr std::size_t kFixedLength = 25 + 1 + 1 + 3 + 2 + kMessageLength + 1;
  static constexpr std::size_t kThreadIdWidth = 5;
  static std::vector<std::string> OutputNames() { return {}; }

  GlogLogger(Options const& options, Modules const& modules) : modules_(modules) {
    google::SetLogDestination(google::GLOG_INFO, (options.LogDirectory() + "bench.").c_str());
    google::SetLogSymlink(google::GLOG_INFO, "");
    FLAGS_logbuflevel = -1;  // nothing is kept back
    FLAGS_max_log_size = 1'000;
    google::InitGoogleLogging("bench");
  }
  ~GlogLogger() { google::ShutdownGoogleLogging(); }
  GlogLogger(GlogLogger const&) = delete;
  GlogLogger& operator=(GlogLogger const&) = delete;

  bool Log(std::size_t module, char const* customer, int worker, int step) {
    constexpr int kLine = 42;
    google::LogMessage(modules_[module].c_str(), kLine, google::GLOG_INFO).stream()
        << VELT_BENCH_STREAM_MESSAGE(customer, worker, step);
    return true;
  }

 private:
  Modules modules_;
};

}  // namespace
}  // namespace velt::bench

int main(int argc, char** argv) {
  return velt::bench::Run<velt::bench::GlogLogger>(velt::bench::Options(argc, argv));
}
