// log4cplus with its asynchronous appender over a rolling file.
#include <memory>
#include <string>
#include <vector>

#include <log4cplus/asyncappender.h>
#include <log4cplus/fileappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include "harness/figures.h"

namespace velt::bench {
namespace {

class Log4cplusLogger {
 public:
  // Its stamp has a second point within the fraction, so that there is none before the thread id.
  static constexpr std::size_t kFixedLength = 22 + 1 + 1 + 4 + kMessageLength + 1;
  static constexpr std::size_t kThreadIdWidth = 1;
  static std::vector<std::string> OutputNames() { return {"bench.log"}; }

  Log4cplusLogger(Options const& options, Modules const& modules) {
    constexpr unsigned kQueueBound = 131'072;
    constexpr long kFileLimit = 1'000'000'000;
    constexpr bool kFlushEach = true;
    log4cplus::SharedAppenderPtr const file(
        new log4cplus::RollingFileAppender(options.LogDirectory() + "bench.log", kFileLimit, 3, kFlushEach));
    file->setLayout(std::make_unique<log4cplus::PatternLayout>("%d{%m-%d %H:%M:%S.%Q}T%T %c I: %m%n"));
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::AsyncAppender(file, kQueueBound)));
    root.setLogLevel(log4cplus::INFO_LOG_LEVEL);
    for (std::string const& module : modules) loggers_.push_back(log4cplus::Logger::getInstance(module));
  }
  ~Log4cplusLogger() { log4cplus::Logger::shutdown(); }  // writes what is queued
  Log4cplusLogger(Log4cplusLogger const&) = delete;
  Log4cplusLogger& operator=(Log4cplusLogger const&) = delete;

  bool Log(std::size_t module, char const* customer, int worker, int step) {
    LOG4CPLUS_INFO_FMT(loggers_[module], VELT_BENCH_PRINTF_MESSAGE, customer, worker, step);
    return true;
  }

 private:
  log4cplus::Initializer initializer_;
  std::vector<log4cplus::Logger> loggers_;
};

}  // namespace
}  // namespace velt::bench

int main(int argc, char** argv) {
  return velt::bench::Run<velt::bench::Log4cplusLogger>(velt::bench::Options(argc, argv));
}
