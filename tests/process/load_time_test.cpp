#include <atomic>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>

#include <ace/Init_ACE.h>

#include <gtest/gtest.h>

#include <ace/Recursive_Thread_Mutex.h>
#include "debug/manager/manager_state.h"
#include "process/service_wait.h"
#include "tests/support/process.h"
#include "velt/manager.h"

#include "velt/process.h"

namespace velt::test {
namespace {

static_assert(std::is_same_v<decltype(g_bVeltOnlyTraceSomeMSG), int>);
static_assert(sizeof(g_bVeltOnlyTraceSomeMSG) == 4);
static_assert(std::is_same_v<decltype(g_mutexVeltStaticLock), ACE_Recursive_Thread_Mutex>);
static_assert(std::is_empty_v<VELTInit>);
static_assert(std::is_same_v<decltype(g_oVELTInit), VELTInit>);

bool TakeAndRelease() {
  ACE_Recursive_Thread_Mutex* const lock = VELTGetStaticLock();
  return lock->tryacquire() == 0 && lock->release() == 0;
}

bool AnotherThreadGetsTheLock() {
  bool taken = false;
  std::thread([&taken] { taken = TakeAndRelease(); }).join();
  return taken;
}

// A thread that holds the static lock until it is told to release it.
class Holder {
 public:
  Holder() : thread_([this] { Run(); }) {}
  ~Holder() { LetGo(); }
  Holder(Holder const&) = delete;
  Holder& operator=(Holder const&) = delete;

  bool WaitUntilHeld() const {
    return WaitUntil([this] { return held_.load(); });
  }
  void LetGo() {
    let_go_ = true;
    if (thread_.joinable()) thread_.join();
  }

 private:
  void Run() {
    ACE_Recursive_Thread_Mutex* const lock = VELTGetStaticLock();
    held_ = lock->acquire() == 0;
    WaitUntil([this] { return let_go_.load(); }, std::chrono::hours(1));
    lock->release();
  }

  std::atomic<bool> held_{false};
  std::atomic<bool> let_go_{false};
  std::thread thread_;
};

TEST(LoadTimeTest, GlobalsHaveTheirInitialValues) {
  EXPECT_FALSE(g_VeltAppExitFlag);
  EXPECT_FALSE(VeltAppIsExit());
  EXPECT_EQ(g_bVeltOnlyTraceSomeMSG, 0);
}

TEST(LoadTimeTest, ThereIsNoInitialisedManager) { EXPECT_FALSE(VeltDebugMgr::Instance()->IsInit()); }

TEST(LoadTimeTest, AceIsInitialisedOnceAndNotFinalised) {
  Outcome const child = RunInChild([] {
    ACE::init();                      // pairs with the first fini
    if (ACE::fini() != 1) return 1;   // 1: an earlier init is still open
    return ACE::fini() == 1 ? 2 : 0;  // that one paired with the library's init, the last one open
  });

  EXPECT_EQ(child.exit_code, 0) << child.err;
}

TEST(LoadTimeTest, TheStaticLockIsTheExportedOne) { EXPECT_EQ(VELTGetStaticLock(), &g_mutexVeltStaticLock); }

TEST(LoadTimeTest, TheStaticLockIsFreeAtFirst) {
  EXPECT_TRUE(AnotherThreadGetsTheLock());
  EXPECT_TRUE(TakeAndRelease());
}

TEST(LoadTimeTest, TheStaticLockIsRecursive) {
  ACE_Recursive_Thread_Mutex* const lock = VELTGetStaticLock();

  EXPECT_EQ(lock->acquire(), 0);
  EXPECT_EQ(lock->acquire(), 0);
  EXPECT_EQ(lock->tryacquire(), 0);
  EXPECT_FALSE(AnotherThreadGetsTheLock());
  EXPECT_EQ(lock->release(), 0);
  EXPECT_EQ(lock->release(), 0);
  EXPECT_FALSE(AnotherThreadGetsTheLock()) << "taken three times, released twice";
  EXPECT_EQ(lock->release(), 0);
  EXPECT_TRUE(AnotherThreadGetsTheLock());
}

// Adds to `count` under the lock: without it a thread sanitizer reports a race.
void Count(int& count, int times) {
  for (int i = 0; i < times; ++i) {
    VELTGetStaticLock()->acquire();
    ++count;
    VELTGetStaticLock()->release();
  }
}

TEST(LoadTimeTest, TheStaticLockExcludesThreads) {
  int count = 0;

  std::thread threads[4];
  for (auto& thread : threads) thread = std::thread([&count] { Count(count, 5000); });
  for (auto& thread : threads) thread.join();

  EXPECT_EQ(count, 20'000);
}

TEST(LoadTimeTest, NothingInTheLibraryTakesTheStaticLock) {
  unsetenv("APP_ROOT");
  Holder holder;
  ASSERT_TRUE(holder.WaitUntilHeld());

  bool const initialised = VeltDebugMgr::Instance()->Init("lock_test", "", "", "", false, true);
  VeltDebugMgr::Instance()->RegSubModuleInfo("module", 1, 1, false);
  SetVeltAppExit(true);
  BaseUtilInternal::Instance()->ServiceExit();
  BaseUtilInternal::Destroy();
  int const destroyed = VeltDebugMgr::Destroy();

  EXPECT_TRUE(initialised);
  EXPECT_EQ(destroyed, 0);
  EXPECT_TRUE(VeltAppIsExit());
}

TEST(LoadTimeTest, AForkedChildCanTakeAndShareTheStaticLock) {
  Outcome const child = RunInChild([] {
    ACE_Recursive_Thread_Mutex* const lock = VELTGetStaticLock();
    if (lock->acquire() != 0 || lock->acquire() != 0) return 1;
    if (AnotherThreadGetsTheLock()) return 2;
    if (lock->release() != 0 || lock->release() != 0) return 3;
    return AnotherThreadGetsTheLock() ? 0 : 4;
  });

  EXPECT_EQ(child.exit_code, 0) << child.err;
}

TEST(LoadTimeTest, AForkedChildCanTakeALockThatAnotherThreadOfTheParentHeld) {
  Holder holder;
  ASSERT_TRUE(holder.WaitUntilHeld());

  Outcome const child = RunInChild([] {  // starts no thread: its parent has two
    ACE_Recursive_Thread_Mutex* const lock = VELTGetStaticLock();
    if (lock->tryacquire() != 0) return 1;
    if (lock->acquire() != 0) return 2;  // recursive there too
    return lock->release() == 0 && lock->release() == 0 ? 0 : 3;
  });
  bool const taken_in_parent = TakeAndRelease();
  holder.LetGo();

  EXPECT_EQ(child.exit_code, 0) << child.err;
  EXPECT_FALSE(taken_in_parent) << "the parent's lock is still held";
  EXPECT_TRUE(TakeAndRelease());
}

TEST(LoadTimeTest, AForkedChildCanTakeALockThatItsParentHeld) {
  ASSERT_EQ(VELTGetStaticLock()->acquire(), 0);

  Outcome const child = RunInChild([] { return TakeAndRelease() ? 0 : 1; });

  EXPECT_EQ(child.exit_code, 0) << child.err;
  EXPECT_FALSE(AnotherThreadGetsTheLock()) << "the parent's lock is still held";
  EXPECT_EQ(VELTGetStaticLock()->release(), 0);
}

// Calls `child` in a forked child while another thread of the parent holds `lock`; gives its exit code.
int InChildWhileHeld(Mutex& lock, std::function<int()> const& child) {
  std::promise<void> held;
  std::promise<void> done;
  std::thread holder([&] {
    lock.acquire();
    held.set_value();
    done.get_future().wait();
    lock.release();
  });
  held.get_future().wait();
  Outcome const outcome = RunInChild(child);
  done.set_value();
  holder.join();
  return outcome.exit_code;
}

TEST(LoadTimeTest, AForkedChildMakesItsServiceWhileAThreadOfTheParentMakesOne) {
  int const code = InChildWhileHeld(ServiceWaitState::m_instMutex, [] {
    VeltsvcdServiceExit();
    BaseUtilInternal::Destroy();
    return 21;
  });

  EXPECT_EQ(code, 21);
}

TEST(LoadTimeTest, AForkedChildMakesItsManagerWhileAThreadOfTheParentMakesOne) {
  int const code = InChildWhileHeld(ManagerState::m_pInstLock, [] {
    if (VeltDebugMgr::Instance() == nullptr) return 1;
    return VeltDebugMgr::Destroy() == 0 ? 22 : 2;
  });

  EXPECT_EQ(code, 22);
}

TEST(LoadTimeTest, AForkedChildCanUseTheLibraryWhileTheParentHasThreads) {
  SetVeltAppExit(false);
  Holder holder;
  ASSERT_TRUE(holder.WaitUntilHeld());

  Outcome const child = RunInChild([] {
    SetVeltAppExit(true);
    VeltsvcdServiceExit();
    BaseUtilInternal::Destroy();
    if (VeltDebugMgr::Instance() == nullptr) return 1;
    if (VeltDebugMgr::Destroy() != 0) return 2;
    return VeltAppIsExit() ? 0 : 3;
  });

  EXPECT_EQ(child.exit_code, 0) << child.err;
  EXPECT_FALSE(VeltAppIsExit()) << "a child does not change the parent's flag";
}

}  // namespace
}  // namespace velt::test
