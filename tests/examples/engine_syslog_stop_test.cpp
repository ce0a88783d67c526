// The end of the syslog engine: what is still sent, for how long, and what is counted as lost.
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "examples/engine_syslog/engine_syslog.h"
#include "tests/examples/engine_syslog.h"
#include "tests/support/manager_host.h"
#include "tests/support/process.h"

namespace velt::examples {
namespace {

using std::chrono::seconds;
using test::WaitUntil;

TEST_F(SyslogEngineTest, StopSendsWhatIsBuffered) {
  options_.stop_limit = kLong;
  Daemon const daemon(options_.socket_path);
  SyslogEngine engine(options_);
  std::vector<std::string> texts;
  std::thread reader([&] { texts = daemon.Texts(1000); });
  for (int i = 0; i < 1000; ++i) ASSERT_TRUE(Trace(engine, std::to_string(i)));

  engine.Stop();

  EXPECT_EQ(engine.Counters().sent, 1000U);
  reader.join();
  EXPECT_EQ(texts, Numbers(1000));
}

TEST_F(SyslogEngineTest, StopWithAFullBufferAndNoDaemonEndsAtItsLimit) {
  options_.most_records = 100;
  options_.stop_limit = milliseconds(200);
  SyslogEngine engine(options_);
  ASSERT_EQ(Fill(engine), 100U);

  auto const start = std::chrono::steady_clock::now();
  engine.Stop();
  auto const took = std::chrono::steady_clock::now() - start;

  EXPECT_LT(took, seconds(30));
  EXPECT_EQ(engine.Counters().lost, 100U);
  EXPECT_EQ(engine.Counters().sent, 0U);
}

TEST_F(SyslogEngineTest, StopWithAFullBufferAndADaemonThatDoesNotReadEndsAtItsLimit) {
  options_.most_records = 100;
  options_.stop_limit = milliseconds(200);
  Daemon const daemon(options_.socket_path);
  SyslogEngine engine(options_);
  std::size_t const taken = Fill(engine);

  auto const start = std::chrono::steady_clock::now();
  engine.Stop();
  auto const took = std::chrono::steady_clock::now() - start;

  EXPECT_LT(took, seconds(30));
  SyslogCounters const counters = engine.Counters();
  EXPECT_EQ(counters.accepted, taken);
  EXPECT_EQ(counters.sent + counters.lost, taken);
  EXPECT_GT(counters.lost, 0U);
  EXPECT_EQ(daemon.RecordsWaiting(), Numbers(counters.sent));
}

TEST_F(SyslogEngineTest, AfterStopRecordsAreRefusedAndCounted) {
  SyslogEngine engine(options_);
  engine.Stop();

  EXPECT_FALSE(Trace(engine, "late"));

  EXPECT_EQ(engine.Counters().dropped, 1U);
  EXPECT_EQ(engine.Counters().accepted, 0U);
  engine.Stop();
}

TEST_F(SyslogEngineTest, ThreadsThatTraceAndStopAtOnceLoseCountOfNothing) {
  Daemon const daemon(options_.socket_path);
  SyslogEngine engine(options_);
  std::atomic<std::uint64_t> taken{0};

  test::InThreads(4, [&](int worker) {
    for (int i = 0; i < 200; ++i) {
      if (i == 150 && worker < 2) engine.Stop();
      if (Trace(engine, "x")) ++taken;
    }
  });
  engine.Stop();
  ASSERT_TRUE(WaitUntil([&] {
    SyslogCounters const now = engine.Counters();
    return now.sent + now.lost == now.accepted;
  }));

  EXPECT_EQ(engine.Counters().accepted, taken);
  EXPECT_EQ(engine.Counters().dropped, 800 - taken);
}

}  // namespace
}  // namespace velt::examples
