// VeltDebugMgr::system: the status of a command, and the signal mask around it.
#include <pthread.h>
#include <sys/resource.h>

#include <csignal>
#include <string>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/support/files.h"

namespace velt::test {
namespace {

class SystemTest : public ::testing::Test {
 protected:
  void SetUp() override {
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    sigaddset(&blocked, SIGTERM);
    ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &blocked, nullptr), 0);
  }

  static bool Blocked(int signal) {
    sigset_t mask;
    sigemptyset(&mask);
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, signal) == 1;
  }

  ScratchDir dir_;
};

volatile std::sig_atomic_t signals_seen = 0;
void CountSignal(int) { signals_seen = signals_seen + 1; }

TEST_F(SystemTest, TheStatusIsThatOfTheShell) {
  EXPECT_EQ(VeltDebugMgr::system("true"), 0);
  EXPECT_EQ(VeltDebugMgr::system(""), 0);
  EXPECT_EQ(VeltDebugMgr::system("exit 3"), 3 << 8);
  EXPECT_EQ(VeltDebugMgr::system("/nonexistent/command 2>/dev/null"), 127 << 8);
  EXPECT_EQ(VeltDebugMgr::system("kill -9 $$"), SIGKILL);
}

TEST_F(SystemTest, ItWaitsForTheCommandWhoseInputIsEmpty) {
  std::string const command = "cat > '" + (dir_ / "out") + "'; echo done >> '" + (dir_ / "out") + "'";

  int const status = VeltDebugMgr::system(command.c_str());

  EXPECT_EQ(status, 0);
  EXPECT_EQ(ReadFile(dir_ / "out"), "done\n");
}

TEST_F(SystemTest, TheCommandRunsWithNoSignalBlockedAndTheCallersMaskComesBack) {
  std::string const command = "grep SigBlk /proc/self/status > '" + (dir_ / "mask") + "'";

  int const status = VeltDebugMgr::system(command.c_str());

  EXPECT_EQ(status, 0);
  EXPECT_EQ(ReadFile(dir_ / "mask"), "SigBlk:\t0000000000000000\n");
  EXPECT_TRUE(Blocked(SIGUSR1));
  EXPECT_TRUE(Blocked(SIGTERM));
  EXPECT_FALSE(Blocked(SIGUSR2));
}

TEST_F(SystemTest, ASignalThatWasHeldBackArrivesMeanwhile) {
  struct sigaction action {};
  action.sa_handler = CountSignal;
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
  signals_seen = 0;
  ASSERT_EQ(raise(SIGUSR1), 0);
  ASSERT_EQ(signals_seen, 0);

  VeltDebugMgr::system("true");

  EXPECT_EQ(signals_seen, 1);
}

TEST_F(SystemTest, ACommandThatCannotBeStartedIsMinusOneAndLeavesTheMaskEmpty) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit none = before;
  none.rlim_cur = 0;  // no descriptor for the pipe

  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  int const status = VeltDebugMgr::system("true");
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);

  EXPECT_EQ(status, -1);
  EXPECT_FALSE(Blocked(SIGUSR1));
  EXPECT_FALSE(Blocked(SIGTERM));
}

TEST_F(SystemTest, NoCommandIsMinusOneAndLeavesTheMaskAlone) {
  EXPECT_EQ(VeltDebugMgr::system(nullptr), -1);
  EXPECT_TRUE(Blocked(SIGUSR1));
}

}  // namespace
}  // namespace velt::test
