// A forked child of a process that traces: it has no output threads, and the parent's files are not its own.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/support/manager.h"
#include "tests/support/manager_host.h"

// The sanitizer's runtime ends a child that starts a thread if its parent had several.
#if defined(__SANITIZE_THREAD__)
#define VELT_CHILD_CANNOT_START_THREADS 1
#else
#define VELT_CHILD_CANNOT_START_THREADS 0
#endif

namespace velt::test {
namespace {

// How a child ended: its exit code, or 1000 and the signal. A child that hangs is killed.
int Fork(std::function<int()> const& body) {
  std::fflush(nullptr);
  pid_t const child = fork();
  if (child == 0) {
    _exit(body());
  }
  int status = 0;
  bool const ended = WaitUntil([&] { return waitpid(child, &status, WNOHANG) == child; });
  if (!ended) {
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

// Returns true for every call; only the process that made it may delete it.
class OwnEngine : public VeltDebugEngine {
 public:
  ~OwnEngine() override {
    if (getpid() != maker_) _exit(77);
  }
  bool Trace(std::string const&, VeltLogLevel, char const*, AsnType const*, bool, bool) override {
    return true;
  }
  bool AppTrace(std::string const&, VeltLogLevel, char const*, AsnType const*, bool, bool,
                std::string const&) override {
    return true;
  }

 private:
  pid_t maker_ = getpid();
};

class ForkTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(host_.Init());
    ASSERT_TRUE(Manager()->AppTrace("net", kLevel3, "parent", nullptr, false, true, "gw"));
    ASSERT_TRUE(Manager()->Trace("net", kLevel3, "parent", nullptr, false, true));
    ASSERT_TRUE(WaitUntil([&] { return !host_.Records().empty() && !host_.Records("host_gw_").empty(); }));
  }

  ManagerHost host_{"net_level = 1111\nnEachFileMaxSize = 50\n"};
};

TEST_F(ForkTest, EveryTraceCallOfAChildAnswersFalseAtOnce) {
  int const code = Fork([] {
    auto const begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 100; ++i) {
      if (Manager()->Trace("net", kLevel3, "child", nullptr, true, true)) return 1;
      if (Manager()->Trace("net", kLevel3, "child", nullptr, false, false)) return 2;
      if (Manager()->AppTrace("net", kLevel3, "child", nullptr, true, true, "")) return 3;
      if (Manager()->AppTrace("net", kLevel3, "child", nullptr, true, true, "gw")) return 4;
      if (Manager()->AppTrace("net", kLevel3, "child", nullptr, true, true, "new")) return 5;
      Manager()->Printf(kLevel3, "child");
      Manager()->Printf(kLevel3, VeltInterString("net"), "child");
      Manager()->Printf("child");
    }
    return std::chrono::steady_clock::now() - begin < std::chrono::seconds(30) ? 0 : 6;
  });
  VeltDebugMgr::Destroy();

  EXPECT_EQ(code, 0);
  EXPECT_EQ(host_.Records(), (std::vector<std::string>{" net I: parent"}));
  EXPECT_EQ(host_.Records("host_gw_"), (std::vector<std::string>{" net I: parent"}));
  EXPECT_EQ(ListDir(host_.LogDir()).size(), 2U) << "no file of the child";
}

TEST_F(ForkTest, TheRegistryOfAChildRefusesInsteadOfWaitingForLocksOfTheParent) {
  int const code = Fork([] {
    Bits levels;
    Bits outputs;
    VeltDebugMgr::ModuleSets modules;
    if (!Manager()->IsInit()) return 1;
    if (Manager()->RegSubModuleInfo("web", levels, outputs, false)) return 2;
    if (Manager()->GetSubModuleInfo("net", levels, outputs)) return 3;
    if (Manager()->SetAllModuleInfo(levels, outputs, false)) return 4;
    if (Manager()->GetAllModuleInfo(modules)) return 5;
    if (Manager()->SetLogLevel("net", VeltLogLevel{1}, true)) return 6;
    if (Manager()->SetLogOutput("net", VeltOutputDirection{1}, true)) return 7;
    return 0;
  });

  EXPECT_EQ(code, 0);
}

TEST_F(ForkTest, DestroyInAChildLeavesTheParentsFilesAndEngineAlone) {
  auto* const engine = new OwnEngine;
  ASSERT_TRUE(Manager()->RegDebugEngine(engine));
  std::string const before = host_.Text();

  int const code = Fork([] {
    if (VeltDebugMgr::Destroy() != 0) return 1;
    if (VeltDebugMgr::Destroy() != 0) return 2;
    if (Manager()->IsInit()) return 3;
    return Manager()->Trace("net", kLevel3, "child", nullptr, true, true) ? 4 : 0;
  });

  EXPECT_EQ(code, 0);
  EXPECT_EQ(host_.Text(), before) << "no trailer of the child";
  EXPECT_EQ(Manager()->GetDebugEngine(), engine);
}

TEST_F(ForkTest, TheParentGoesOnAfterTheChildHasDestroyed) {
  ASSERT_EQ(Fork([] { return VeltDebugMgr::Destroy(); }), 0);

  EXPECT_TRUE(Manager()->Trace("net", kLevel3, "after", nullptr, false, true));
  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "after", nullptr, false, true, "new"));
  VeltDebugMgr::Destroy();

  EXPECT_EQ(host_.Records(), (std::vector<std::string>{" net I: parent", " net I: after"}));
  EXPECT_EQ(host_.Records("host_new_"), (std::vector<std::string>{" net I: after"}));
  EXPECT_EQ(CountOf(host_.Text(), "File close at "), 1U);
}

TEST_F(ForkTest, AChildMayExitInOrder) {
  EXPECT_EQ(Fork([]() -> int { std::exit(21); }), 21);
  EXPECT_EQ(Fork([]() -> int {
              VeltDebugMgr::Destroy();
              std::exit(22);
            }),
            22);
  EXPECT_EQ(CountOf(host_.Text(), "File close at "), 0U);
}

TEST_F(ForkTest, AChildMayInitialiseASilentManagerOfItsOwn) {
  int const code = Fork([&] {
    if (VeltDebugMgr::Destroy() != 0) return 1;
    Bits levels;
    Bits outputs;
    if (Manager()->GetSubModuleInfo("net", levels, outputs)) return 2;
    if (!host_.Init("child_", true)) return 3;
    if (!Manager()->GetSubModuleInfo("net", levels, outputs)) return 4;
    if (!Manager()->SetLogLevel("net", VeltLogLevel{9}, true)) return 5;
    if (!Manager()->AppTrace("net", kLevel3, "x", nullptr, true, true, "gw")) return 6;
    return VeltDebugMgr::Destroy() == 0 ? 0 : 7;
  });

  EXPECT_EQ(code, 0);
}

TEST_F(ForkTest, AGrandchildIsAChildToo) {
  int const code = Fork([&] {
    if (VeltDebugMgr::Destroy() != 0 || !host_.Init("child_", true)) return 1;
    return Fork([&] {
      if (Manager()->SetLogLevel("net", VeltLogLevel{9}, true)) return 2;
      if (VeltDebugMgr::Destroy() != 0 || !host_.Init("grandchild_", true)) return 3;
      return Manager()->SetLogLevel("net", VeltLogLevel{9}, true) ? 0 : 4;
    });
  });

  EXPECT_EQ(code, 0);
}

#if !VELT_CHILD_CANNOT_START_THREADS

TEST_F(ForkTest, AChildMayTraceWithAManagerOfItsOwn) {
  int const code = Fork([&] {
    if (VeltDebugMgr::Destroy() != 0) return 1;
    if (!host_.Init("child_")) return 2;
    if (!Manager()->Trace("net", kLevel3, "child", nullptr, false, false)) return 3;
    if (!Manager()->AppTrace("net", kLevel3, "child", nullptr, false, false, "gw")) return 4;
    return VeltDebugMgr::Destroy() == 0 ? 0 : 5;
  });
  VeltDebugMgr::Destroy();

  EXPECT_EQ(code, 0);
  EXPECT_EQ(host_.Records("child_"), (std::vector<std::string>{" net I: child"}));
  EXPECT_EQ(host_.Records("child_gw_"), (std::vector<std::string>{" net I: child"}));
  EXPECT_EQ(CountOf(host_.Text("child_"), "File close at "), 1U);
  EXPECT_EQ(host_.Records(), (std::vector<std::string>{" net I: parent"}));
}

TEST_F(ForkTest, AManagerOfAChildHasNoneOfTheParentsModules) {
  ASSERT_TRUE(Manager()->Trace("net", kLevel3, "parent", nullptr, false, false))
      << "this thread remembers its sets now";
  int const code = Fork([&] {
    unsetenv("APP_ROOT");
    if (VeltDebugMgr::Destroy() != 0) return 1;
    if (!Manager()->Init("bare_", "", host_.LogDir() + "/", "", false, false)) return 2;
    if (!Manager()->Trace("net", kLevel3, "to the ring", nullptr, false, false)) return 3;
    if (!Manager()->Trace("net", kLevel3, "to the file", nullptr, false, true)) return 4;
    return VeltDebugMgr::Destroy() == 0 ? 0 : 5;
  });
  VeltDebugMgr::Destroy();

  EXPECT_EQ(code, 0);
  EXPECT_EQ(host_.Records("bare_"), (std::vector<std::string>{" net I: to the file"}));
}

#endif

TEST(ForkBeforeInitTest, AChildOfAnUninitialisedProcessTracesAsUsual) {
  ManagerHost const host("net_level = 1111\n");
  ASSERT_FALSE(Manager()->IsInit());  // made, not initialised

  int const code = Fork([&] {
    if (!host.Init()) return 1;
    if (!Manager()->Trace("net", kLevel3, "child", nullptr, false, false)) return 2;
    return VeltDebugMgr::Destroy() == 0 ? 0 : 3;
  });

  EXPECT_EQ(code, 0);
  EXPECT_EQ(host.Records(), (std::vector<std::string>{" net I: child"}));
}

// --- forks while threads trace ---

// What one thread traced, and how much of it was accepted, until it is told to stop.
struct Tracer {
  void Run(std::atomic<bool> const& stop, std::atomic<std::size_t>& tracing) {
    for (int i = 0; i < 10'000 && !stop; ++i) {
      std::string const text = "t" + std::to_string(number) + " " + std::to_string(i);
      bool const to_sub = i % 4 == 3;
      bool const taken = to_sub
                             ? Manager()->AppTrace("net", kLevel3, text.c_str(), nullptr, false, false, "gw")
                             : Manager()->Trace("net", kLevel3, text.c_str(), nullptr, false, false);
      if (taken) ++(to_sub ? accepted_sub : accepted_main);
      if (i == 0) ++tracing;
      // Without a pause the last record would be traced long before the last fork.
      if (i % 20 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

  int number = 0;
  std::size_t accepted_main = 0;
  std::size_t accepted_sub = 0;
};

TEST_F(ForkTest, AParentThatForksWhileItsThreadsTraceLosesNothing) {
  std::atomic<bool> stop{false};
  std::atomic<std::size_t> tracing{0};
  std::vector<Tracer> tracers(8);
  std::vector<std::thread> threads;
  threads.reserve(tracers.size());
  for (std::size_t i = 0; i < tracers.size(); ++i) {
    tracers[i].number = static_cast<int>(i);
    threads.emplace_back([&, &tracer = tracers[i]] { tracer.Run(stop, tracing); });
  }
  // A thread that starts holds locks of a sanitizer's runtime: a child would wait for them for ever.
  EXPECT_TRUE(WaitUntil([&] { return tracing == tracers.size(); }));

  int failed = 0;
  for (int i = 0; i < 30; ++i) {
    int const code = Fork([] {
      if (Manager()->Trace("net", kLevel3, "child", nullptr, true, true)) return 1;
      if (Manager()->AppTrace("net", kLevel3, "child", nullptr, true, true, "gw")) return 2;
      return VeltDebugMgr::Destroy() == 0 ? 0 : 3;
    });
    if (code != 0) ++failed;
  }
  stop = true;
  for (auto& thread : threads) thread.join();
  VeltDebugMgr::Destroy();

  std::size_t accepted_main = 1;  // the records of the set-up
  std::size_t accepted_sub = 1;
  for (auto const& tracer : tracers) {
    accepted_main += tracer.accepted_main;
    accepted_sub += tracer.accepted_sub;
  }
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(host_.Records().size(), accepted_main);
  EXPECT_EQ(host_.Records("host_gw_").size(), accepted_sub);
  EXPECT_EQ(CountOf(host_.Text() + host_.Text("host_gw_"), "child"), 0U);
}

}  // namespace
}  // namespace velt::test
