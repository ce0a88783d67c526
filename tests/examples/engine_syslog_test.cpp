// What the syslog engine sends to a daemon that is there, absent or restarted.
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <map>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "examples/engine_syslog/engine_syslog.h"
#include "tests/examples/engine_syslog.h"
#include "tests/support/manager_host.h"

namespace velt::examples {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::SizeIs;

class Printed : public AsnType {
 public:
  AsnType* Clone() const override { return new Printed; }
  void Print(std::ostream& out, int first, int second) const override {
    out << "{ id 4711 } " << first << second;
  }
};

class Throwing : public AsnType {
 public:
  AsnType* Clone() const override { return new Throwing; }
  void Print(std::ostream& out, int, int) const override {
    out << "half";
    throw std::runtime_error("print");
  }
};

// --- a daemon that is there ---

TEST_F(SyslogEngineTest, ARecordArrivesAsOneDatagram) {
  Daemon const daemon(options_.socket_path);
  SyslogEngine engine(options_);

  bool const taken = engine.AppTrace("net", VeltLogLevel{1}, "link lost", nullptr, false, true, "gw");

  EXPECT_TRUE(taken);
  std::string const thread = std::to_string(getpid());  // of the first thread
  EXPECT_THAT(daemon.Receive().value_or(""),
              testing::ContainsRegex("^<131>[A-Z][a-z][a-z] [ 0-9][0-9] [0-9:]{8} server_gw\\[" + thread +
                                     "\\]: T" + thread + " net E: link lost$"));
}

TEST_F(SyslogEngineTest, RecordsOfEachThreadArriveOnceAndInOrder) {
  constexpr int kThreads = 8;
  constexpr int kEach = 500;
  Daemon const daemon(options_.socket_path);
  SyslogEngine engine(options_);
  std::map<std::string, int> next;  // of each thread, by its module
  std::atomic<int> refused{0};
  std::thread reader([&] {
    for (int i = 0; i < kThreads * kEach; ++i) {
      std::string const datagram = daemon.Receive().value_or("");
      std::size_t const module = datagram.find(" worker");
      if (module == std::string::npos) continue;
      std::string const name = datagram.substr(module + 1, 7);
      if (datagram.substr(module + 8) == " I: " + std::to_string(next[name])) ++next[name];
    }
  });

  test::InThreads(kThreads, [&](int worker) {
    std::string const module = "worker" + std::to_string(worker);
    for (int i = 0; i < kEach; ++i) {
      if (!engine.Trace(module, kInformation, std::to_string(i).c_str(), nullptr, false, true)) ++refused;
    }
  });
  reader.join();

  EXPECT_EQ(refused, 0) << "the buffer holds more than all of them";
  ASSERT_THAT(next, SizeIs(kThreads));
  for (auto const& [name, count] : next) EXPECT_EQ(count, kEach) << name;
  EXPECT_TRUE(daemon.IsSilent());
}

TEST_F(SyslogEngineTest, ANewlineInATextDoesNotDivideTheMessage) {
  Daemon const daemon(options_.socket_path);
  SyslogEngine engine(options_);

  Trace(engine, "one\n<0>two\n");

  EXPECT_EQ(daemon.Text(), "I: one#012<0>two");
  engine.Stop();
  EXPECT_TRUE(daemon.IsSilent());
}

TEST_F(SyslogEngineTest, AMebibyteOfTextIsCutToOneDatagram) {
  Daemon const daemon(options_.socket_path);
  SyslogEngine engine(options_);

  bool const taken = Trace(engine, std::string(std::size_t{1} << 20U, 'x'));

  EXPECT_TRUE(taken);
  std::string const datagram = daemon.Receive().value_or("");
  EXPECT_THAT(datagram, SizeIs(8192));
  EXPECT_THAT(datagram, EndsWith("xxx..."));
}

TEST_F(SyslogEngineTest, ADatagramThatTheSocketRefusesIsLostAloneAndCounted) {
  options_.most_datagram_bytes = std::size_t{1} << 30U;  // larger than any socket buffer, and than the text
  options_.most_bytes = std::size_t{1} << 30U;
  Daemon const daemon(options_.socket_path);
  SyslogEngine engine(options_);

  Trace(engine, std::string(std::size_t{16} << 20U, 'x'));
  Trace(engine, "after");

  EXPECT_EQ(daemon.Text(), "I: after");
  engine.Stop();
  SyslogCounters const counters = engine.Counters();
  EXPECT_EQ(counters.accepted, 2U);
  EXPECT_EQ(counters.sent, 1U);
  EXPECT_EQ(counters.lost, 1U);
}

TEST_F(SyslogEngineTest, AValueIsPrintedBehindTheText) {
  Daemon const daemon(options_.socket_path);
  SyslogEngine engine(options_);
  Printed const value;

  engine.Trace("net", kInformation, "attached", &value, false, true);

  EXPECT_EQ(daemon.Text(), "I: attached#012ASN Trace:#012{ id 4711 } 01");
}

TEST_F(SyslogEngineTest, AValueThatThrowsLeavesTheText) {
  Daemon const daemon(options_.socket_path);
  SyslogEngine engine(options_);
  Throwing const value;

  EXPECT_NO_THROW(engine.Trace("net", kInformation, "attached", &value, false, true));

  EXPECT_EQ(daemon.Text(), "I: attached#012ASN Trace:");
}

TEST_F(SyslogEngineTest, ANullTextIsRefused) {
  Daemon const daemon(options_.socket_path);
  SyslogEngine engine(options_);

  EXPECT_FALSE(engine.Trace("net", kInformation, nullptr, nullptr, true, true));

  engine.Stop();
  EXPECT_TRUE(daemon.IsSilent());
}

// --- a daemon that is absent, starts, and ends ---

TEST_F(SyslogEngineTest, RecordsWaitForADaemonThatIsNotThereYet) {
  SyslogEngine engine(options_);
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(Trace(engine, std::to_string(i)));

  Daemon const daemon(options_.socket_path);

  EXPECT_THAT(daemon.Texts(3), ElementsAre("I: 0", "I: 1", "I: 2"));
}

TEST_F(SyslogEngineTest, ARestartedDaemonReceivesWhatComesAfter) {
  auto daemon = std::make_unique<Daemon>(options_.socket_path);
  SyslogEngine engine(options_);
  Trace(engine, "before");
  ASSERT_EQ(daemon->Text(), "I: before");

  daemon.reset();
  Trace(engine, "meanwhile");
  daemon = std::make_unique<Daemon>(options_.socket_path);
  Trace(engine, "after");

  EXPECT_THAT(daemon->Texts(2), ElementsAre("I: meanwhile", "I: after"));
}

TEST_F(SyslogEngineTest, APathThatNoSocketCanHaveLosesWhatItAccepted) {
  options_.socket_path = std::string(200, 'p');
  SyslogEngine engine(options_);
  ASSERT_TRUE(Trace(engine, "x"));

  engine.Stop();

  EXPECT_EQ(engine.Counters().lost, 1U);
}

}  // namespace
}  // namespace velt::examples
