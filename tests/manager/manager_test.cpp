// The one manager of a process: made, destroyed, and both by many threads at once.
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/support/files.h"
#include "tests/support/manager.h"
#include "tests/support/manager_host.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

// --- instance and destruction ---

TEST(ManagerTest, DestroyingWhatWasNeverMadeIsFine) {
  EXPECT_EQ(VeltDebugMgr::Destroy(), 0);
  EXPECT_EQ(VeltDebugMgr::Destroy(), 0);
}

TEST(ManagerTest, TheInstanceIsOneUntilItIsDestroyed) {
  VeltDebugMgr* const first = VeltDebugMgr::Instance();

  VeltDebugMgr* const second = VeltDebugMgr::Instance();

  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first, second);
  EXPECT_FALSE(first->IsInit());
  EXPECT_EQ(VeltDebugMgr::Destroy(), 0);
}

TEST(ManagerTest, AfterDestroyThereIsAFreshUninitialisedManager) {
  ManagerHost const host("net_level = 1\n");
  ASSERT_TRUE(host.Init("host_", true));
  ASSERT_TRUE(Manager()->IsInit());
  Bits levels;
  Bits outputs;
  ASSERT_TRUE(Manager()->GetSubModuleInfo("net", levels, outputs));

  ASSERT_EQ(VeltDebugMgr::Destroy(), 0);

  EXPECT_FALSE(Manager()->IsInit());
  EXPECT_FALSE(Manager()->GetSubModuleInfo("net", levels, outputs));
  EXPECT_FALSE(Manager()->GetSubModuleInfo("debug", levels, outputs));
  EXPECT_EQ(Manager()->GetDebugEngine(), nullptr);
}

TEST(ManagerTest, DestroyStopsTheChannelInOrder) {
  ManagerHost const host;
  ASSERT_TRUE(host.Init());
  ASSERT_TRUE(Manager()->Trace("net", kLevel3, "accepted", nullptr, false, true));

  ASSERT_EQ(VeltDebugMgr::Destroy(), 0);

  std::string const text = host.Text();
  EXPECT_NE(text.find(" net I: accepted\n"), std::string::npos);
  EXPECT_NE(text.find("thread handle output string exit\n"), std::string::npos);
  EXPECT_NE(text.find("\nFile close at "), std::string::npos);
}

TEST(ManagerTest, DestroyDeletesTheEngineFirstWhileTheChannelsStillRun) {
  struct Engine : VeltDebugEngine {
    Engine(ManagerHost const& host, std::string& seen, bool& was_init)
        : host_(host), seen_(seen), was_init_(was_init) {}
    ~Engine() override {
      seen_ = host_.Text();
      was_init_ = manager_->IsInit();
    }
    bool Trace(std::string const&, VeltLogLevel, char const*, AsnType const*, bool, bool) override {
      return true;
    }
    bool AppTrace(std::string const&, VeltLogLevel, char const*, AsnType const*, bool, bool,
                  std::string const&) override {
      return true;
    }
    VeltDebugMgr* manager_ = VeltDebugMgr::Instance();
    ManagerHost const& host_;
    std::string& seen_;
    bool& was_init_;
  };
  ManagerHost const host;
  ASSERT_TRUE(host.Init());
  ASSERT_TRUE(host.WaitForFile());
  std::string seen = "never deleted";
  bool was_init = true;
  ASSERT_TRUE(Manager()->RegDebugEngine(new Engine(host, seen, was_init)));

  ASSERT_EQ(VeltDebugMgr::Destroy(), 0);

  EXPECT_NE(seen.find("File create at "), std::string::npos) << seen;
  EXPECT_EQ(seen.find("File close at "), std::string::npos) << "the channel was stopped before the engine";
  EXPECT_NE(host.Text().find("File close at "), std::string::npos);
  EXPECT_FALSE(was_init) << "IsInit is false before anything is destroyed";
}

// --- many threads, many lives ---

TEST(ManagerThreadsTest, ManyThreadsThatInitialiseAtOnceGetOneManagerAndOneChannel) {
  ManagerHost const host;
  for (int round = 0; round < 3; ++round) {
    std::atomic<int> waiting{0};
    std::atomic<int> initialised{0};
    std::vector<VeltDebugMgr*> seen(8, nullptr);
    InThreads(8, [&](int i) {
      ++waiting;
      while (waiting < 8) std::this_thread::yield();
      seen[static_cast<std::size_t>(i)] = VeltDebugMgr::Instance();
      if (host.Init()) ++initialised;
    });

    EXPECT_EQ(seen, std::vector<VeltDebugMgr*>(8, VeltDebugMgr::Instance()));
    EXPECT_EQ(initialised, 8);
    VeltDebugMgr::Destroy();
    WaitForNextSecond();  // the file of each round has a name of its own
  }

  EXPECT_EQ(ExactFamily(host.LogDir(), "host_").size(), 3U);
}

TEST(ManagerThreadsTest, InstanceAndDestroyMayRace) {
  ManagerHost const host;
  std::atomic<int> destroy_failed{0};
  std::atomic<int> no_instance{0};

  InThreads(8, [&](int i) {
    for (int round = 0; round < 500; ++round) {
      if (i % 2 == 0 && VeltDebugMgr::Instance() == nullptr) ++no_instance;
      if (i % 2 == 1 && VeltDebugMgr::Destroy() != 0) ++destroy_failed;
    }
  });

  EXPECT_EQ(destroy_failed, 0);
  EXPECT_EQ(no_instance, 0);
}

TEST(ManagerThreadsTest, ManyThreadsThatDestroyAtOnceStopTheChannelOnce) {
  ManagerHost const host;
  ASSERT_TRUE(host.Init());
  std::atomic<int> failed{0};

  InThreads(8, [&](int) {
    if (VeltDebugMgr::Destroy() != 0) ++failed;
  });

  EXPECT_EQ(failed, 0);
  EXPECT_EQ(CountOf(host.Text(), "File close at "), 1U);
}

TEST(ManagerThreadsTest, AHundredLivesLeaveNoThreadAndNoDescriptor) {
  ManagerHost const host("net_level = 1111\n");
  auto const live = [&host] {
    EXPECT_TRUE(host.Init());
    EXPECT_TRUE(Manager()->Trace("net", kLevel3, "x", nullptr, false, false));
    EXPECT_EQ(VeltDebugMgr::Destroy(), 0);
  };
  live();
  std::size_t threads = 0;
  ASSERT_TRUE(WaitUntil([&] { return (threads = ThreadCount()) <= 2; }))
      << "this thread, and one of a sanitizer";
  std::size_t const descriptors = DescriptorCount();

  for (int life = 1; life < 100; ++life) live();

  EXPECT_TRUE(WaitUntil([&] { return ThreadCount() <= threads; })) << ThreadCount();
  EXPECT_EQ(DescriptorCount(), descriptors);
}

}  // namespace
}  // namespace velt::test
