// Boost.Log with an asynchronous sink over a text file.
#include <memory>
#include <string>
#include <vector>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/log/attributes/clock.hpp>
#include <boost/log/attributes/function.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/sinks/async_frontend.hpp>
#include <boost/log/sinks/block_on_overflow.hpp>
#include <boost/log/sinks/bounded_fifo_queue.hpp>
#include <boost/log/sinks/text_file_backend.hpp>
#include <boost/log/sources/channel_logger.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/support/date_time.hpp>
#include <boost/make_shared.hpp>

#include "harness/figures.h"

namespace velt::bench {
namespace {

namespace expressions = boost::log::expressions;
namespace keywords = boost::log::keywords;
namespace sinks = boost::log::sinks;

class BoostLogger {
 public:
  static constexpr std::size_t kFixedLength = 21 + 2 + 1 + 4 + kMessageLength + 1;
  static constexpr std::size_t kThreadIdWidth = 1;
  static std::vector<std::string> OutputNames() { return {"bench.log"}; }

  BoostLogger(Options const& options, Modules const& modules) : modules_(modules) {
    auto const backend = boost::make_shared<sinks::text_file_backend>(
        keywords::file_name = options.LogDirectory() + "bench.log", keywords::rotation_size = 1'000'000'000,
        keywords::auto_flush = true);
    sink_ = boost::make_shared<Sink>(backend);
    sink_->set_formatter(expressions::stream << expressions::format_date_time<boost::posix_time::ptime>(
                                                    "TimeStamp", "%m-%d %H:%M:%S.%f")
                                             << ".T" << expressions::attr<long>("Thread") << ' '
                                             << expressions::attr<std::string>("Channel")
                                             << " I: " << expressions::smessage);
    boost::log::core::get()->add_global_attribute("TimeStamp", boost::log::attributes::local_clock());
    boost::log::core::get()->add_global_attribute("Thread", boost::log::attributes::make_function(&ThreadId));
    boost::log::core::get()->add_sink(sink_);
  }
  // NOLINTNEXTLINE(bugprone-exception-escape): what fails here may end the measurement
  ~BoostLogger() {
    boost::log::core::get()->remove_sink(sink_);
    sink_->stop();
    sink_->flush();
  }
  BoostLogger(BoostLogger const&) = delete;
  BoostLogger& operator=(BoostLogger const&) = delete;

  bool Log(std::size_t module, char const* customer, int worker, int step) {
    // The sources without a lock are its quickest, one set for each thread.
    static thread_local std::vector<Source> sources = MakeSources();
    BOOST_LOG(sources[module]) << VELT_BENCH_STREAM_MESSAGE(customer, worker, step);
    return true;
  }

 private:
  static constexpr std::size_t kQueueBound = 131'072;
  using Sink = sinks::asynchronous_sink<sinks::text_file_backend,
                                        sinks::bounded_fifo_queue<kQueueBound, sinks::block_on_overflow>>;
  using Source = boost::log::sources::channel_logger<std::string>;

  std::vector<Source> MakeSources() const {
    std::vector<Source> sources;
    for (std::string const& module : modules_) sources.emplace_back(keywords::channel = module);
    return sources;
  }

  Modules modules_;
  boost::shared_ptr<Sink> sink_;
};

}  // namespace
}  // namespace velt::bench

int main(int argc, char** argv) {
  return velt::bench::Run<velt::bench::BoostLogger>(velt::bench::Options(argc, argv));
}
