// Locks that fail: every operation returns its failure and does nothing more.
#include <sys/resource.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <ace/RW_Thread_Mutex.h>
#include <ace/Thread_Mutex.h>

#include "velt/manager.h"
#include "velt/process.h"

#include "tests/support/failing_locks.h"
#include "tests/support/manager_host.h"

namespace velt::test {
namespace {

VeltDebugMgr* Manager() { return VeltDebugMgr::Instance(); }

class NullEngine : public VeltDebugEngine {
 public:
  bool Trace(std::string const&, VeltLogLevel, char const*, AsnType const*, bool, bool) override {
    return true;
  }
  bool AppTrace(std::string const&, VeltLogLevel, char const*, AsnType const*, bool, bool,
                std::string const&) override {
    return true;
  }
};

class LockFailureTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(host_.Init());
    ASSERT_TRUE(Manager()->RegSubModuleInfo("net", BitsOf({3}), BitsOf({1}), false));
  }

  static Bits Levels() {
    Bits levels;
    Bits outputs;
    EXPECT_TRUE(Manager()->GetSubModuleInfo("net", levels, outputs));
    return levels;
  }

  ManagerHost host_{"debug_level = 1111\n"};
};

// A manager that admits one channel beside its own.
class ChannelCapTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(host_.Init()); }

  ManagerHost host_{"nMaxFileNum = 1\n"};
};

// --- failing_locks itself ---

TEST(LockFailureSwitchTest, TheReplacedFunctionsFailWhereAskedAndOnlyInTheirThread) {
  ACE_RW_Thread_Mutex rw;
  ACE_Thread_Mutex mutex;
  Failing const reading(Lock::kReadLock);
  Failing const writing(Lock::kWriteLock);
  Failing const locking(Lock::kMutexLock);
  int elsewhere = -1;

  int const here = rw.acquire_read() + rw.acquire_write() + mutex.acquire();
  std::thread([&] {
    elsewhere = rw.acquire_read() + rw.release() + rw.acquire_write() + rw.release() + mutex.acquire() +
                mutex.release();
  }).join();

  EXPECT_EQ(here, -3);
  EXPECT_EQ(elsewhere, 0);
}

// --- the singleton's lock ---

TEST(SingletonLockFailureTest, NoInstanceIsMadeWithoutTheLock) {
  VeltDebugMgr* instance = nullptr;
  int error = 0;
  {
    Failing const failing(Lock::kMutexLock);
    instance = VeltDebugMgr::Instance();
    error = errno;
  }

  EXPECT_EQ(instance, nullptr);
  EXPECT_EQ(error, kFailure);
  EXPECT_NE(VeltDebugMgr::Instance(), nullptr) << "made by the next call";
  EXPECT_EQ(VeltDebugMgr::Destroy(), 0);
}

TEST(SingletonLockFailureTest, TheShortTraceFunctionsDoNothingWithoutAnInstance) {
  Result const result = With(Lock::kMutexLock, 1, [] {
    VeltMrbTrace("x", 0, 1);
    VeltOutputMrbLog(VeltLogLevel{3}, "%d", 1);
    return true;
  });

  EXPECT_EQ(result.answer, 1);
  EXPECT_EQ(With(Lock::kMutexLock, 1, [] { return VeltDebugMgr::Instance() != nullptr; }), kRefused)
      << "none was made";
}

TEST(SingletonLockFailureTest, AnInstanceThatExistsNeedsNoLock) {
  VeltDebugMgr* const before = VeltDebugMgr::Instance();
  VeltDebugMgr* after = nullptr;
  {
    Failing const failing(Lock::kMutexLock);
    after = VeltDebugMgr::Instance();
  }

  EXPECT_EQ(after, before);
  EXPECT_EQ(VeltDebugMgr::Destroy(), 0);
}

TEST(SingletonLockFailureTest, DestroyDoesNothingWithoutTheLock) {
  VeltDebugMgr* const before = VeltDebugMgr::Instance();

  Result const result = With(Lock::kMutexLock, 1, [] { return VeltDebugMgr::Destroy(); });

  EXPECT_EQ(result, (Result{-1, kFailure}));
  EXPECT_EQ(VeltDebugMgr::Instance(), before);
  EXPECT_EQ(VeltDebugMgr::Destroy(), 0);
}

TEST(SingletonLockFailureTest, ALockThatCannotBeReleasedMakesDestroyFailAfterItsWork) {
  ManagerHost const host;
  ASSERT_TRUE(host.Init("host_", true));

  Result const result = With(Lock::kMutexUnlock, 1, [] { return VeltDebugMgr::Destroy(); });

  EXPECT_EQ(result, (Result{-1, kFailure}));
  EXPECT_FALSE(VeltDebugMgr::Instance()->IsInit()) << "it is a new one";
}

TEST(SingletonLockFailureTest, ALockThatCannotBeReleasedDoesNotKeepTheNewInstance) {
  VeltDebugMgr* instance = nullptr;
  {
    Failing const failing(Lock::kMutexUnlock);
    instance = VeltDebugMgr::Instance();
  }

  EXPECT_NE(instance, nullptr);
  EXPECT_EQ(VeltDebugMgr::Instance(), instance);
  EXPECT_EQ(VeltDebugMgr::Destroy(), 0);
}

// --- Init ---

TEST(InitLockFailureTest, InitIsRefusedWithoutTheTableLock) {
  ManagerHost const host;
  Manager();

  Result const result = With(Lock::kWriteLock, 1, [&] { return host.Init(); });

  EXPECT_EQ(result, kRefused);
  EXPECT_FALSE(Manager()->IsInit());
  EXPECT_FALSE(Exists(host.LogDir())) << "nothing was done";
  EXPECT_TRUE(host.Init());
}

TEST(InitLockFailureTest, TheMainChannelIsEnteredEvenWithoutTheChannelLock) {
  ManagerHost const host;
  Manager();

  Result const result = With(Lock::kWriteLock, 2, [&] {
    // No module, so no lock of a module.
    return Manager()->Init("host_", "", host.LogDir(), "", true, false);
  });

  EXPECT_EQ(result.answer, 1);
  EXPECT_EQ(result.error, kFailure);
  EXPECT_TRUE(Manager()->AppTrace("net", VeltLogLevel{3}, "x", nullptr, false, true, ""));
  EXPECT_EQ(host.StopAndRead(), (std::vector<std::string>{" net I: x"}));
  EXPECT_EQ(ListDir(host.LogDir()).size(), 1U) << "AppTrace used the main channel and made no other";
}

TEST(InitLockFailureTest, InitGoesOnWhenItCannotRememberItsFile) {
  ManagerHost const host;
  Manager();

  Result const result = With(Lock::kMutexLock, 1, [&] { return host.Init("host_", true); });

  EXPECT_EQ(result, (Result{1, kFailure}));
  EXPECT_TRUE(Manager()->IsInit());
}

TEST(InitLockFailureTest, ALockThatCannotBeReleasedDoesNotSpoilInit) {
  ManagerHost const host;
  Manager();

  Result const result = With(Lock::kRwUnlock, 1, [&] { return host.Init("host_", true); });

  EXPECT_EQ(result, kDoneButNotReleased);
  EXPECT_TRUE(Manager()->IsInit());
}

// --- the registry ---

TEST_F(LockFailureTest, WritersOfTheRegistryAreRefusedWithoutTheTableLock) {
  NullEngine engine;

  EXPECT_EQ(
      With(Lock::kWriteLock, 1, [] { return Manager()->RegSubModuleInfo("web", Bits(), Bits(), false); }),
      kRefused);
  EXPECT_EQ(With(Lock::kWriteLock, 1, [] { return Manager()->SetAllModuleInfo(Bits(), Bits(), false); }),
            kRefused);
  EXPECT_EQ(With(Lock::kWriteLock, 1, [] { return Manager()->SetLogLevel("net", VeltLogLevel{1}, true); }),
            kRefused);
  EXPECT_EQ(With(Lock::kWriteLock, 1, [] { return Manager()->SetLogLevel("net", VeltLogLevel{32}, true); }),
            kRefused)
      << "no set was read, so nothing throws";
  EXPECT_EQ(
      With(Lock::kWriteLock, 1, [] { return Manager()->SetLogOutput("net", VeltOutputDirection{1}, false); }),
      kRefused);
  EXPECT_EQ(With(Lock::kWriteLock, 1, [&] { return Manager()->RegDebugEngine(&engine); }), kRefused);
  EXPECT_EQ(With(Lock::kWriteLock, 1, [] { return Manager()->UnRegDebugEngine(nullptr); }), kRefused);

  Bits levels;
  Bits outputs;
  EXPECT_FALSE(Manager()->GetSubModuleInfo("web", levels, outputs));
  EXPECT_EQ(Levels(), BitsOf({3}));
  EXPECT_EQ(Manager()->GetDebugEngine(), nullptr);
}

TEST_F(LockFailureTest, TheEngineIsNotGivenWithoutTheTableLock) {
  ASSERT_TRUE(Manager()->RegDebugEngine(new NullEngine));

  Result const result = With(Lock::kWriteLock, 1, [] { return Manager()->GetDebugEngine() != nullptr; });

  EXPECT_EQ(result, kRefused);
  EXPECT_NE(Manager()->GetDebugEngine(), nullptr);
}

TEST_F(LockFailureTest, AnIndexThatIsRefusedAsksForNoLock) {
  EXPECT_EQ(With(Lock::kWriteLock, 1, [] { return Manager()->SetLogLevel("net", VeltLogLevel{33}, true); }),
            (Result{0, 0}));
  EXPECT_EQ(With(Lock::kWriteLock, 1, [] { return Manager()->RegDebugEngine(nullptr); }), (Result{0, 0}));
}

TEST_F(LockFailureTest, ReadersOfTheRegistryAreRefusedWithoutTheTableLock) {
  Bits levels = BitsOf({7});
  Bits outputs = BitsOf({8});
  VeltDebugMgr::ModuleSets modules;

  EXPECT_EQ(With(Lock::kReadLock, 1, [&] { return Manager()->GetSubModuleInfo("net", levels, outputs); }),
            kRefused);
  EXPECT_EQ(With(Lock::kReadLock, 1, [&] { return Manager()->GetAllModuleInfo(modules); }), kRefused);

  EXPECT_EQ(levels, BitsOf({7}));
  EXPECT_EQ(outputs, BitsOf({8}));
  EXPECT_TRUE(modules.empty());
}

TEST_F(LockFailureTest, AModulesOwnLockThatFailsRefusesItsBits) {
  EXPECT_EQ(With(Lock::kWriteLock, 2, [] { return Manager()->SetLogLevel("net", VeltLogLevel{1}, true); }),
            kRefused);
  EXPECT_EQ(
      With(Lock::kWriteLock, 2, [] { return Manager()->SetLogOutput("net", VeltOutputDirection{0}, true); }),
      kRefused);
  EXPECT_EQ(Levels(), BitsOf({3}));
  EXPECT_TRUE(Manager()->SetLogLevel("net", VeltLogLevel{1}, true)) << "the table lock was released";
}

TEST_F(LockFailureTest, ALockThatCannotBeReleasedOnlySetsErrno) {
  Bits levels;
  Bits outputs;
  VeltDebugMgr::ModuleSets modules;

  EXPECT_EQ(
      With(Lock::kRwUnlock, 1, [] { return Manager()->RegSubModuleInfo("web", Bits(), Bits(), false); }),
      kDoneButNotReleased);
  EXPECT_EQ(With(Lock::kRwUnlock, 1, [] { return Manager()->SetLogLevel("net", VeltLogLevel{1}, true); }),
            kDoneButNotReleased);
  EXPECT_EQ(With(Lock::kRwUnlock, 1, [&] { return Manager()->GetSubModuleInfo("net", levels, outputs); }),
            kDoneButNotReleased);
  EXPECT_EQ(With(Lock::kRwUnlock, 1, [&] { return Manager()->GetAllModuleInfo(modules); }),
            kDoneButNotReleased);
  EXPECT_EQ(Levels(), BitsOf({1, 3}));
}

TEST(SubModInfoLockFailureTest, EverySetterIsRefusedWithoutTheLock) {
  VeltDebugSubModInfo info{Bits(), Bits()};

  EXPECT_EQ(With(Lock::kWriteLock, 1, [&] { return info.SetLevel(1, true); }), kRefused);
  EXPECT_EQ(With(Lock::kWriteLock, 1, [&] { return info.SetOutput(1, true); }), kRefused);
  EXPECT_EQ(With(Lock::kWriteLock, 1, [&] { return info.SetLevel(32, true); }), kRefused)
      << "before it can throw";
  EXPECT_EQ(With(Lock::kWriteLock, 1, [&] { return info.SetLevelSet(Bits()); }), kRefused);
  EXPECT_EQ(With(Lock::kWriteLock, 1, [&] { return info.SetOutputSet(Bits()); }), kRefused);
}

TEST(SubModInfoLockFailureTest, ALockThatCannotBeReleasedOnlySetsErrno) {
  VeltDebugSubModInfo info{Bits(), Bits()};

  EXPECT_EQ(With(Lock::kRwUnlock, 1, [&] { return info.SetLevel(1, true); }), kDoneButNotReleased);
  EXPECT_EQ(With(Lock::kRwUnlock, 1, [&] { return info.SetLevel(33, true); }), kRefused);
  EXPECT_EQ(With(Lock::kRwUnlock, 1, [&] { return info.SetOutputSet(Bits()); }), kDoneButNotReleased);
}

// --- tracing ---

TEST_F(LockFailureTest, AppTraceIsRefusedWithoutTheChannelLock) {
  EXPECT_EQ(With(Lock::kReadLock, 1,
                 [] { return Manager()->AppTrace("net", VeltLogLevel{3}, "x", nullptr, true, true, ""); }),
            kRefused);
  EXPECT_EQ(With(Lock::kReadLock, 1,
                 [] { return Manager()->AppTrace("net", VeltLogLevel{3}, "x", nullptr, true, true, "gw"); }),
            kRefused);

  EXPECT_TRUE(host_.StopAndRead().empty());
  EXPECT_EQ(ListDir(host_.LogDir()).size(), 1U) << "no channel was opened";
}

TEST_F(LockFailureTest, AModuleThatCannotBeLookedUpLeavesTheCallersFlags) {
  bool filtered = false;
  bool logged = false;
  bool app_logged = false;
  {
    Failing const failing(Lock::kReadLock);
    filtered = Manager()->Trace("net", VeltLogLevel{3}, "filtered", nullptr, false, false);
    logged = Manager()->Trace("net", VeltLogLevel{3}, "logged", nullptr, false, true);
  }
  {
    Failing const failing(Lock::kReadLock, 2);  // the first is the channel lock
    app_logged = Manager()->AppTrace("net", VeltLogLevel{3}, "app", nullptr, false, true, "");
  }

  EXPECT_TRUE(filtered);
  EXPECT_TRUE(logged);
  EXPECT_TRUE(app_logged);
  EXPECT_EQ(host_.StopAndRead(), (std::vector<std::string>{" net I: logged", " net I: app"}));
}

TEST_F(LockFailureTest, BothFlagsOfTheCallerNeedNoLock) {
  CaptureStdout silence;
  bool traced = false;
  int error = 0;
  {
    Failing const failing(Lock::kReadLock);
    traced = Manager()->Trace("net", VeltLogLevel{3}, "x", nullptr, true, true);
    error = errno;
  }

  EXPECT_TRUE(traced);
  EXPECT_NE(error, kFailure);
  EXPECT_EQ(host_.StopAndRead(), (std::vector<std::string>{" net I: x"}));
}

TEST_F(LockFailureTest, AChannelThatCannotBeEnteredIsNotKeptAndTheNextCallMakesIt) {
  Result const result = With(Lock::kWriteLock, 1, [] {
    return Manager()->AppTrace("net", VeltLogLevel{3}, "first", nullptr, false, true, "gw");
  });
  WaitForNextSecond();  // the next channel's file has a name of its own
  bool const second = Manager()->AppTrace("net", VeltLogLevel{3}, "second", nullptr, false, true, "gw");
  VeltDebugMgr::Destroy();

  EXPECT_EQ(result, kRefused);
  EXPECT_TRUE(second);
  EXPECT_EQ(host_.Records("host_gw_"), (std::vector<std::string>{" net I: second"}));
}

// Ending the channel that was not kept writes into its file, and that may fail, too.
TEST_F(LockFailureTest, TheReasonOfARefusedCallIsTheLockWhateverEndingItsChannelMeets) {
  (void)std::signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  rlimit const full{0, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);

  Result const result = With(Lock::kWriteLock, 1, [] {
    return Manager()->AppTrace("net", VeltLogLevel{3}, "x", nullptr, false, true, "gw");
  });

  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  EXPECT_EQ(result, kRefused);
  VeltDebugMgr::Destroy();
}

TEST_F(LockFailureTest, NoChannelIsMadeWithoutTheCreationLock) {
  Result const result = With(Lock::kMutexLock, 1, [] {
    return Manager()->AppTrace("net", VeltLogLevel{3}, "x", nullptr, false, true, "gw");
  });

  EXPECT_EQ(result, kRefused);
  VeltDebugMgr::Destroy();
  EXPECT_EQ(ListDir(host_.LogDir()).size(), 1U) << "only the main channel's file";
}

// While it waits for its turn to make a channel, another thread makes the last channel under the cap.
TEST_F(ChannelCapTest, AThreadThatComesTooLateForTheLastChannelMakesNone) {
  bool other = false;
  BeforeNextMutexLock([&other] {
    std::thread([&other] {
      other = Manager()->AppTrace("net", VeltLogLevel{3}, "in time", nullptr, false, true, "first");
    }).join();
  });

  bool const late = Manager()->AppTrace("net", VeltLogLevel{3}, "too late", nullptr, false, true, "second");

  EXPECT_TRUE(other);
  EXPECT_FALSE(late);
  VeltDebugMgr::Destroy();
  EXPECT_EQ(host_.Records("host_first_"), (std::vector<std::string>{" net I: in time"}));
  EXPECT_EQ(ExactFamily(host_.LogDir(), "host_second_").size(), 0U);
}

TEST_F(LockFailureTest, DestroyStopsTheChannelsEvenWithoutTheChannelLock) {
  ASSERT_TRUE(Manager()->AppTrace("net", VeltLogLevel{3}, "x", nullptr, false, true, "gw"));

  Result const result = With(Lock::kWriteLock, 1, [] { return VeltDebugMgr::Destroy(); });

  EXPECT_EQ(result.answer, 0);
  EXPECT_EQ(CountOf(host_.Text("host_gw_"), "File close at "), 1U);
  EXPECT_EQ(CountOf(host_.Text(), "File close at "), 1U);
}

}  // namespace
}  // namespace velt::test
