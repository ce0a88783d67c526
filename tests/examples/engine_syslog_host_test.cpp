// The syslog engine in its host: the host's signals, its forks, and its manager.
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "velt/manager.h"

#include "examples/engine_syslog/engine_syslog.h"
#include "tests/examples/engine_syslog.h"
#include "tests/support/files.h"
#include "tests/support/manager_host.h"
#include "tests/support/process.h"

namespace velt::examples {
namespace {

using test::WaitUntil;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

// --- signals ---

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
