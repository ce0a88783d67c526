// The syslog engine and a socket on which the test is the daemon: there, absent, restarted, not reading.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "examples/engine_syslog/engine_syslog.h"
#include "tests/support/manager_host.h"
#include "tests/support/running_program.h"
#include "tests/support/syslog_daemon.h"

namespace velt::examples {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Daemon = test::SyslogDaemon;
using test::WaitUntil;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr VeltLogLevel kInformation{3};
constexpr milliseconds kLong{60'000};

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

class SyslogEngineTest : public testing::Test {
 protected:
  SyslogEngineTest() {
    options_.socket_path = scratch_ / "log";
    options_.ident = "server";
    options_.follow_module_sets = false;
    options_.stop_limit = milliseconds(0);  // what is left at the end of a test is of no interest
  }

  static bool Trace(SyslogEngine& engine, std::string const& text) {
    return engine.Trace("net", kInformation, text.c_str(), nullptr, false, true);
  }

  // Traces "0", "1", ... until the buffer takes no more; the number that were accepted.
  static std::size_t Fill(SyslogEngine& engine) {
    std::size_t count = 0;
    while (Trace(engine, std::to_string(count))) ++count;
    return count;
  }

  static std::vector<std::string> Numbers(std::size_t count) {
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < count; ++i) texts.push_back("I: " + std::to_string(i));
    return texts;
  }

  test::ScratchDir scratch_;
  SyslogOptions options_;
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

// --- a daemon that does not read ---

TEST_F(SyslogEngineTest, ADaemonThatDoesNotReadFillsTheBufferAndHoldsNobody) {
  options_.most_records = 100;
  Daemon const daemon(options_.socket_path);
  SyslogEngine engine(options_);

  std::uint64_t taken = Fill(engine);  // the loop ends: a record without room is refused at once
  std::uint64_t refused = 1;
  for (int i = 0; i < 1000; ++i) (Trace(engine, "more") ? taken : refused) += 1;

  SyslogCounters const counters = engine.Counters();
  EXPECT_EQ(counters.accepted, taken);
  EXPECT_EQ(counters.dropped, refused);
  EXPECT_LE(counters.accepted, counters.sent + 100);
}

TEST_F(SyslogEngineTest, WhatWasBufferedArrivesInOrderOnceItReadsAgain) {
  options_.most_records = 100;
  Daemon const daemon(options_.socket_path);
  SyslogEngine engine(options_);
  std::size_t const taken = Fill(engine);

  std::vector<std::string> texts;
  std::string notice;
  while (texts.size() < taken || notice.empty()) {  // the notice comes between the records or after them
    std::string const text = daemon.Text();
    ASSERT_NE(text, "nothing");
    (text.find("engine_syslog W: ") == std::string::npos ? texts.emplace_back() : notice) = text;
  }

  EXPECT_EQ(texts, Numbers(taken));
  EXPECT_THAT(notice, HasSubstr("<132>"));
  EXPECT_THAT(notice, EndsWith("engine_syslog W: records dropped: 1"));
  ASSERT_TRUE(WaitUntil([&] { return engine.Counters().sent == taken; }));
  EXPECT_EQ(engine.Counters().lost, 0U);
}

TEST_F(SyslogEngineTest, ACallThatMayWaitForRoomIsTakenOnceTheDaemonReads) {
  options_.most_records = 10;
  options_.room_limit = kLong;
  Daemon const daemon(options_.socket_path);
  SyslogEngine engine(options_);
  std::atomic<int> refused{0};

  std::thread caller([&] {
    for (int i = 0; i < 2000; ++i) refused += Trace(engine, std::to_string(i)) ? 0 : 1;
  });
  ASSERT_TRUE(WaitUntil([&] { return engine.Counters().accepted >= 10; }));
  std::vector<std::string> const texts = daemon.Texts(2000);
  caller.join();

  EXPECT_EQ(refused, 0);
  EXPECT_EQ(texts, Numbers(2000));
}

TEST_F(SyslogEngineTest, ACallWaitsForRoomNoLongerThanItsLimit) {
  options_.most_records = 1;
  options_.room_limit = milliseconds(50);
  SyslogEngine engine(options_);  // nobody listens
  ASSERT_TRUE(Trace(engine, "first"));

  auto const begin = std::chrono::steady_clock::now();
  bool const taken = Trace(engine, "second");

  EXPECT_FALSE(taken);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(50));
  EXPECT_EQ(engine.Counters().dropped, 1U);
}

TEST_F(SyslogEngineTest, ARecordLargerThanTheBufferIsRefusedWithoutAWait) {
  options_.most_bytes = 100;
  options_.room_limit = std::chrono::hours(24);
  SyslogEngine engine(options_);

  EXPECT_FALSE(Trace(engine, std::string(98, 'x'))) << "101 bytes with the module";
  EXPECT_TRUE(Trace(engine, std::string(97, 'x')));
}

TEST_F(SyslogEngineTest, StopEndsTheWaitForRoom) {
  options_.most_records = 1;
  options_.room_limit = std::chrono::hours(24);
  SyslogEngine engine(options_);  // nobody listens
  ASSERT_TRUE(Trace(engine, "first"));
  std::atomic<bool> taken{true};
  std::thread caller([&] { taken = Trace(engine, "second"); });

  engine.Stop();
  caller.join();

  EXPECT_FALSE(taken);
  EXPECT_EQ(engine.Counters().dropped, 1U);
}

TEST_F(SyslogEngineTest, BytesBoundTheBufferToo) {
  options_.most_bytes = 10'003;
  SyslogEngine engine(options_);  // nobody listens

  std::size_t taken = 0;
  while (taken < 1000 && Trace(engine, std::string(997, 'x'))) ++taken;

  EXPECT_EQ(taken, 10U) << "of 1000 bytes each, the module counted";
  EXPECT_TRUE(Trace(engine, "")) << "3 bytes are left";
  EXPECT_FALSE(Trace(engine, ""));
}

TEST_F(SyslogEngineTest, TheSubNameCountsAmongTheBytes) {
  options_.most_bytes = 2'000;
  SyslogEngine engine(options_);  // nobody listens
  auto const trace = [&engine](std::string const& text) {
    return engine.AppTrace("net", kInformation, text.c_str(), nullptr, false, true, std::string(1'000, 's'));
  };

  EXPECT_TRUE(trace(std::string(997, 'x')));
  EXPECT_FALSE(trace(""));
}

TEST_F(SyslogEngineTest, BytesThatWereSentAreRoomAgain) {
  options_.most_bytes = 1'000;
  Daemon const daemon(options_.socket_path);
  SyslogEngine engine(options_);

  for (int i = 0; i < 5; ++i) {
    ASSERT_TRUE(Trace(engine, std::string(900, 'x'))) << "record " << i;
    ASSERT_EQ(daemon.Text().size(), 903U);
    ASSERT_TRUE(WaitUntil([&] { return engine.Counters().sent == static_cast<std::uint64_t>(i) + 1; }));
  }
}

TEST_F(SyslogEngineTest, DropsAreToldOnceASecondAtMostAndAllOfThem) {
  options_.most_bytes = 10;
  Daemon const daemon(options_.socket_path);
  SyslogEngine engine(options_);
  auto const began = std::chrono::steady_clock::now();
  std::uint64_t told = 0;
  std::uint64_t notices = 0;

  std::uint64_t dropped = 0;
  while (std::chrono::steady_clock::now() - began < milliseconds(1'500)) {
    EXPECT_FALSE(Trace(engine, "longer than the buffer"));
    ++dropped;
    std::this_thread::sleep_for(milliseconds(5));
  }
  while (told < dropped) {
    std::string const notice = daemon.Receive().value_or("nothing: 0");
    told += std::stoull(notice.substr(notice.rfind(' ')));
    ++notices;
    ASSERT_THAT(notice, HasSubstr("records dropped: "));
  }

  EXPECT_EQ(told, dropped);
  EXPECT_LE(notices,
            1U + static_cast<std::uint64_t>(
                     std::chrono::duration_cast<seconds>(std::chrono::steady_clock::now() - began).count()));
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

// --- the end ---

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

TEST_F(SyslogEngineTest, ItsThreadReceivesNoneOfTheHostsSignals) {
  SyslogEngine engine(options_);
  std::string status;

  bool const found = WaitUntil([&] {
    for (auto const& task : test::ListDir("/proc/self/task")) {
      status = test::ReadFile("/proc/self/task/" + task + "/status");
      if (status.rfind("Name:\tvelt:syslog\n", 0) == 0) return true;
    }
    return false;
  });

  ASSERT_TRUE(found);
  std::size_t const blocked = status.find("SigBlk:\t");
  ASSERT_NE(blocked, std::string::npos);
  std::uint64_t const mask = std::stoull(status.substr(blocked + 8, 16), nullptr, 16);
  for (int const number : {SIGHUP, SIGINT, SIGTERM, SIGUSR1, SIGCHLD, SIGALRM}) {
    EXPECT_NE(mask >> static_cast<unsigned>(number - 1) & 1U, 0U) << number;
  }
}

// --- fork ---

TEST_F(SyslogEngineTest, InAChildItAnswersFalseAndLeavesTheParentsAlone) {
  Daemon const daemon(options_.socket_path);
  auto engine = std::make_unique<SyslogEngine>(options_);
  Trace(*engine, "before");
  ASSERT_EQ(daemon.Text(), "I: before");

  pid_t const child = fork();
  if (child == 0) {
    alarm(60);
    bool const refused = !Trace(*engine, "from the child");
    engine->Stop();
    bool const empty = engine->Counters().accepted == 0;
    engine.reset();
    _exit(refused && empty ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);

  EXPECT_EQ(status, 0);
  Trace(*engine, "after");
  EXPECT_EQ(daemon.Text(), "I: after");
}

// --- under the manager ---

class SyslogEngineOfManagerTest : public SyslogEngineTest {
 protected:
  // A silent manager whose engine follows the sets of modules.
  void Register(std::string const& configuration) {
    test::WriteFile(host_.ConfigFile(), configuration);
    ASSERT_TRUE(host_.Init("host_", true));
    options_.follow_module_sets = true;
    options_.stop_limit = kLong;
    engine_ = new SyslogEngine(options_);
    ASSERT_TRUE(Manager()->RegDebugEngine(engine_));
  }
  static VeltDebugMgr* Manager() { return VeltDebugMgr::Instance(); }

  Daemon daemon_{options_.socket_path};
  test::ManagerHost host_;
  SyslogEngine* engine_ = nullptr;  // the manager's
};

TEST_F(SyslogEngineOfManagerTest, LevelsAndOutputsOfModulesDecideWhatIsForwarded) {
  Register(
      "debug_level = 0100\ndebug_output = 0100\nnet_level = 0010\nnet_output = 0100\nmute_level = 1111\n"
      "mute_output = 0000\n");

  Manager()->Printf(VeltLogLevel{2}, VeltInterString("net"), "net 2");
  Manager()->Printf(VeltLogLevel{3}, VeltInterString("net"), "net 3");
  Manager()->Printf(VeltLogLevel{1}, VeltInterString("mute"), "no output");
  Manager()->Printf(VeltLogLevel{1}, VeltInterString("unknown"), "as debug");
  Manager()->Printf(VeltLogLevel{2}, VeltInterString("unknown"), "as debug, other level");
  Manager()->Trace("net", VeltLogLevel{-1}, "negative", nullptr, false, false);
  Manager()->Trace("net", VeltLogLevel{32}, "32", nullptr, false, false);
  Manager()->Trace("net", VeltLogLevel{3}, "the caller's own flag", nullptr, false, true);
  ASSERT_TRUE(Manager()->SetLogLevel("net", kInformation, true));
  Manager()->Printf(kInformation, VeltInterString("net"), "net 3, switched on");

  std::vector<std::string> const texts = daemon_.Texts(4);
  EXPECT_THAT(texts, ElementsAre("W: net 2", EndsWith(" unknown E: as debug"), "I: the caller's own flag",
                                 "I: net 3, switched on"));
  VeltDebugMgr::Destroy();
  EXPECT_TRUE(daemon_.IsSilent());
}

TEST_F(SyslogEngineOfManagerTest, DestroySendsWhatIsBufferedAndWritesNoFile) {
  Register("debug_level = 1111\ndebug_output = 0100\n");
  for (int i = 0; i < 5; ++i) Manager()->Printf(kInformation, VeltInterString("net"), "%d", i);

  VeltDebugMgr::Destroy();

  EXPECT_EQ(daemon_.Texts(5), Numbers(5));
  EXPECT_THAT(test::FilesOf(host_.LogDir(), "host_", ".log"), IsEmpty());
}

}  // namespace
}  // namespace velt::examples
