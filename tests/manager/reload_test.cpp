// The modules of the configuration file, read again while threads trace.
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/support/manager.h"
#include "tests/support/manager_host.h"

namespace velt::test {
namespace {

using Strings = std::vector<std::string>;

// "levels/outputs" in the form of the configuration file, four of each; "-" for a module that is not there.
std::string SetsOf(std::string const& module) {
  Bits levels;
  Bits outputs;
  if (!Manager()->GetSubModuleInfo(module, levels, outputs)) return "-";
  std::string text;
  for (std::size_t i = 0; i < 4; ++i) text += levels[i] ? '1' : '0';
  text += '/';
  for (std::size_t i = 0; i < 4; ++i) text += outputs[i] ? '1' : '0';
  return text;
}

class ReloadTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(host_.Init()); }

  bool ReloadWith(std::string const& configuration) {
    WriteFile(host_.ConfigFile(), configuration);
    return Manager()->ReloadModules();
  }

  ManagerHost host_{"debug_level = 1000\nnet_level = 1000\nnet_output = 0100\nold_level = 1100\n"};
};

TEST_F(ReloadTest, ModulesGetTheSetsThatInitWouldGiveThem) {
  ASSERT_EQ(SetsOf("net"), "1000/0100");

  EXPECT_TRUE(
      ReloadWith("debug_level = 1110\ndebug_output = 1100\nnet_level = 1111\nnew_output = 1000\n"
                 "wide_level = 00001111111111111\n"));

  EXPECT_EQ(SetsOf("debug"), "1110/1100");
  EXPECT_EQ(SetsOf("net"), "1111/0100") << "the default output";
  EXPECT_EQ(SetsOf("new"), "1100/1000") << "the default levels";
  EXPECT_EQ(SetsOf("wide"), "0000/0100") << "masked as at Init";
}

TEST_F(ReloadTest, ModulesThatTheFileDoesNotNameKeepTheirSets) {
  ASSERT_TRUE(Manager()->RegSubModuleInfo("code", BitsOf({2}), BitsOf({0}), false));

  EXPECT_TRUE(ReloadWith("net_level = 1111\n"));

  EXPECT_EQ(SetsOf("code"), "0010/1000");
  EXPECT_EQ(SetsOf("old"), "1100/0100") << "no longer in the file";
  EXPECT_EQ(SetsOf("debug"), "1000/0100") << "no longer in the file";
  EXPECT_TRUE(ReloadWith("code_level = 0001\n"));
  EXPECT_EQ(SetsOf("code"), "0001/0100") << "now named";
}

TEST_F(ReloadTest, AnEmptyTextIsTheEmptySet) {
  EXPECT_TRUE(ReloadWith("net_level =\nnet_output = 0100\n"));

  EXPECT_EQ(SetsOf("net"), "0000/0100");
}

TEST_F(ReloadTest, AFileThatHasGoneChangesNothing) {
  ASSERT_EQ(std::remove(host_.ConfigFile().c_str()), 0);

  EXPECT_FALSE(Manager()->ReloadModules());

  EXPECT_EQ(SetsOf("net"), "1000/0100");
  EXPECT_TRUE(ReloadWith("net_level = 1111\n")) << "and back";
  EXPECT_EQ(SetsOf("net"), "1111/0100");
}

TEST_F(ReloadTest, ADirectoryInItsPlaceChangesNothing) {
  ASSERT_EQ(std::remove(host_.ConfigFile().c_str()), 0);
  ASSERT_EQ(mkdir(host_.ConfigFile().c_str(), 0700), 0);

  EXPECT_FALSE(Manager()->ReloadModules());

  EXPECT_EQ(SetsOf("net"), "1000/0100");
}

TEST_F(ReloadTest, AFifoInItsPlaceChangesNothingAndIsNotWaitedFor) {
  std::remove(host_.ConfigFile().c_str());
  ASSERT_EQ(mkfifo(host_.ConfigFile().c_str(), 0644), 0);
  std::atomic<bool> done{false};
  bool changed = true;
  std::thread reload([&] {
    changed = Manager()->ReloadModules();
    done = true;
  });

  EXPECT_TRUE(WaitUntil([&] { return done.load(); }, std::chrono::seconds(20)));

  while (!done) {  // a thread that waits gets a writer, and then the end of the file, each time it opens it
    close(open(host_.ConfigFile().c_str(), O_RDWR | O_NONBLOCK));
    std::this_thread::yield();
  }
  reload.join();
  EXPECT_FALSE(changed);
  EXPECT_EQ(SetsOf("net"), "1000/0100");
}

TEST_F(ReloadTest, AFileThatMayNotBeReadChangesNothing) {
  uid_t const user = geteuid();
  constexpr uid_t kNobody = 65534;  // root could read every file, so the process is this user meanwhile
  ASSERT_EQ(chmod(host_.ConfigFile().c_str(), 0), 0);
  ASSERT_EQ(chmod(host_.Dir().Path().c_str(), 0755), 0);
  if (user == 0) {
    ASSERT_EQ(seteuid(kNobody), 0);
  }

  bool const reloaded = Manager()->ReloadModules();

  if (user == 0) {
    ASSERT_EQ(seteuid(user), 0);
  }
  EXPECT_FALSE(reloaded);
  EXPECT_EQ(SetsOf("net"), "1000/0100");
}

TEST_F(ReloadTest, AFileWithoutAnyModuleChangesNothing) {
  EXPECT_FALSE(ReloadWith(""));
  EXPECT_FALSE(ReloadWith("# net_level = 1111\nnMaxFileNum = 3\n"));

  EXPECT_EQ(SetsOf("debug"), "1000/0100");
  EXPECT_EQ(SetsOf("net"), "1000/0100");
}

TEST_F(ReloadTest, OneInvalidSetKeepsAllModulesAsTheyAre) {
  EXPECT_FALSE(ReloadWith("net_level = 1111\nold_level = 11x1\n"));
  EXPECT_FALSE(ReloadWith("net_level = 1111\nold_output = yes\n"));
  EXPECT_FALSE(ReloadWith("net_level = 1111\ndebug_level = 2\n"));

  EXPECT_EQ(SetsOf("net"), "1000/0100");
  EXPECT_EQ(SetsOf("old"), "1100/0100");
  EXPECT_EQ(SetsOf("debug"), "1000/0100");
}

TEST_F(ReloadTest, TheNextTraceCallHasTheNewSets) {
  EXPECT_TRUE(Manager()->Trace("net", kLevel3, "before", nullptr, false, false));
  ASSERT_TRUE(ReloadWith("net_level = 1111\n"));
  EXPECT_TRUE(Manager()->Trace("net", kLevel3, "after", nullptr, false, false));

  EXPECT_EQ(host_.StopAndRead(), Strings{" net I: after"});
}

TEST(ReloadLifeTest, NothingIsReadBeforeInitAndAfterDestroy) {
  ManagerHost const host("net_level = 1111\n");

  EXPECT_FALSE(Manager()->ReloadModules());
  ASSERT_TRUE(host.Init());
  EXPECT_TRUE(Manager()->ReloadModules());
  VeltDebugMgr::Destroy();
  EXPECT_FALSE(Manager()->ReloadModules());
}

TEST(ReloadLifeTest, WithoutAnyFileThereIsNothingToRead) {
  ManagerHost const host;
  ASSERT_TRUE(Manager()->Init("host_", "", host.LogDir(), "", true, false));

  EXPECT_FALSE(Manager()->ReloadModules());
}

TEST(ReloadLifeTest, AFileThatWasMissingAtInitIsReadWhenItHasCome) {
  ManagerHost const host;
  ASSERT_EQ(std::remove(host.ConfigFile().c_str()), 0);
  ASSERT_TRUE(host.Init());
  ASSERT_EQ(SetsOf("net"), "-");

  WriteFile(host.ConfigFile(), "net_level = 1111\n");

  EXPECT_TRUE(Manager()->ReloadModules());
  EXPECT_EQ(SetsOf("net"), "1111/0100");
}

TEST_F(ReloadTest, AForkedChildReadsNothing) {
  pid_t const child = fork();
  if (child == 0) _exit(Manager()->ReloadModules() ? 1 : 0);
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);

  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

// "a" and "b" have the same sets in each state of the file. A thread that sees different ones saw a table
// that was half changed.
TEST_F(ReloadTest, NoThreadSeesSomeModulesChangedAndOthersNot) {
  std::string const off = "a_level = 1000\nb_level = 1000\n";
  std::string const on = "a_level = 1111\nb_level = 1111\n";
  ASSERT_TRUE(ReloadWith(off));
  std::atomic<bool> stop{false};
  std::atomic<int> apart{0};
  std::atomic<int> looks{0};
  std::thread changer([&] {
    for (int i = 0; i < 300 || looks < 1000; ++i) EXPECT_TRUE(ReloadWith(i % 2 == 0 ? on : off));
    stop = true;
  });

  InThreads(4, [&](int) {
    while (!stop) {
      VeltDebugMgr::ModuleSets modules;
      (void)Manager()->GetAllModuleInfo(modules);
      if (modules["a"] != modules["b"]) ++apart;
      ++looks;
    }
  });
  changer.join();

  EXPECT_EQ(apart, 0);
}

TEST_F(ReloadTest, ASignalChangesTheLevelOfEightTracingThreadsWithinASecond) {
  using Clock = std::chrono::steady_clock;
  sigset_t hang_up;
  sigemptyset(&hang_up);
  sigaddset(&hang_up, SIGHUP);
  ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &hang_up, nullptr), 0);
  std::atomic<bool> reloaded{false};
  std::thread reloader([&] {
    int signal = 0;
    sigwait(&hang_up, &signal);
    reloaded = Manager()->ReloadModules();
  });
  std::atomic<bool> stop{false};
  std::atomic<int> tracing{0};
  std::array<std::atomic<bool>, 8> seen{};
  std::vector<std::thread> threads;
  for (std::size_t thread = 0; thread < seen.size(); ++thread) {
    threads.emplace_back([&, thread] {
      ++tracing;
      while (!stop) {
        (void)Manager()->Trace("net", kLevel3, "a record", nullptr, false, false);
        Bits levels;
        Bits outputs;
        if (Manager()->GetSubModuleInfo("net", levels, outputs) && levels[3]) seen.at(thread) = true;
      }
    });
  }
  ASSERT_TRUE(WaitUntil([&] { return tracing == 8; }));
  WriteFile(host_.ConfigFile(), "net_level = 1111\n");
  Clock::time_point const sent = Clock::now();
  ASSERT_EQ(kill(getpid(), SIGHUP), 0);

  bool const all = WaitUntil([&] {
    return std::all_of(seen.begin(), seen.end(), [](std::atomic<bool> const& one) { return one.load(); });
  });
  Clock::duration const took = Clock::now() - sent;
  stop = true;
  for (auto& thread : threads) thread.join();
  reloader.join();

  EXPECT_TRUE(all);
  EXPECT_TRUE(reloaded);
  EXPECT_LT(took, std::chrono::seconds(1));
  EXPECT_TRUE(Contains(host_.StopAndRead(), " net I: a record"));
}

}  // namespace
}  // namespace velt::test
