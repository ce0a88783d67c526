#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/process.h"
#include "velt/process.h"

namespace velt::test {
namespace {

static_assert(std::has_virtual_destructor_v<BaseUtilInternal>);
static_assert(!std::is_default_constructible_v<BaseUtilInternal>);

// A thread in ServiceWait.
class Waiter {
 public:
  Waiter() : thread_([this] { Run(); }) {}
  ~Waiter() { thread_.join(); }
  Waiter(Waiter const&) = delete;
  Waiter& operator=(Waiter const&) = delete;

  bool Returned() const { return returned_; }

  // Whether the kernel has put the thread to sleep after it entered ServiceWait, where nothing else sleeps.
  bool Sleeps() const {
    if (id_ == 0 || returned_) return false;
    std::ifstream in("/proc/self/task/" + std::to_string(id_) + "/stat");
    std::string text;
    std::getline(in, text);
    std::size_t const end_of_name = text.rfind(") ");
    return end_of_name != std::string::npos && text[end_of_name + 2] == 'S';
  }

 private:
  void Run() {
    BaseUtilInternal* const service = BaseUtilInternal::Instance();
    id_ = syscall(SYS_gettid);
    service->ServiceWait();
    returned_ = true;
  }

  std::atomic<long> id_{0};
  std::atomic<bool> returned_{false};
  std::thread thread_;
};

// Whether the waiters sleep. Seen so several times in a row, since a thread may also sleep for a moment
// earlier.
template <typename... Waiters>
bool WaitUntilAsleep(Waiters const&... waiters) {
  int in_a_row = 0;
  return WaitUntil([&in_a_row, &waiters...] {
    in_a_row = (waiters.Sleeps() && ...) ? in_a_row + 1 : 0;
    return in_a_row == 10;
  });
}

// Wakes every waiter, however many signals it takes.
template <typename... Waiters>
bool WakeAll(Waiters const&... waiters) {
  return WaitUntil([&waiters...] {
    VeltsvcdServiceExit();
    return (waiters.Returned() && ...);
  });
}

class ServiceWaitTest : public testing::Test {
 protected:
  ~ServiceWaitTest() override { BaseUtilInternal::Destroy(); }
};

TEST_F(ServiceWaitTest, ThereIsOneInstance) {
  BaseUtilInternal* const instance = BaseUtilInternal::Instance();

  EXPECT_NE(instance, nullptr);
  EXPECT_EQ(BaseUtilInternal::Instance(), instance);
}

TEST_F(ServiceWaitTest, ThreadsThatAskAtOnceGetTheSameInstance) {
  std::array<BaseUtilInternal*, 8> seen{};
  std::atomic<int> arrived{0};

  std::vector<std::thread> threads;
  threads.reserve(8);
  for (auto& instance : seen) {
    threads.emplace_back([&instance, &arrived] {
      ++arrived;
      while (arrived < 8) std::this_thread::yield();
      instance = BaseUtilInternal::Instance();
    });
  }
  for (auto& thread : threads) thread.join();

  EXPECT_NE(seen[0], nullptr);
  EXPECT_EQ(std::count(seen.begin(), seen.end(), seen[0]), 8);
}

TEST_F(ServiceWaitTest, DestroyingTwiceOrBeforeTheFirstUseDoesNothing) {
  BaseUtilInternal::Destroy();
  ASSERT_NE(BaseUtilInternal::Instance(), nullptr);

  BaseUtilInternal::Destroy();
  BaseUtilInternal::Destroy();

  EXPECT_NE(BaseUtilInternal::Instance(), nullptr) << "a new object";
}

TEST_F(ServiceWaitTest, AFreshInstanceAfterDestroyWaitsAndWakes) {
  ASSERT_NE(BaseUtilInternal::Instance(), nullptr);
  BaseUtilInternal::Destroy();
  Waiter const waiter;
  ASSERT_TRUE(WaitUntilAsleep(waiter));

  VeltsvcdServiceExit();

  EXPECT_TRUE(WaitUntil([&waiter] { return waiter.Returned(); }));
}

TEST_F(ServiceWaitTest, ManyLivesLeaveNothingBehind) {
  for (int i = 0; i < 1000; ++i) {  // a leak checker reports what is not freed
    BaseUtilInternal::Instance()->ServiceExit();
    BaseUtilInternal::Destroy();
  }

  EXPECT_NE(BaseUtilInternal::Instance(), nullptr);
}

TEST_F(ServiceWaitTest, AWaitingThreadIsWokenByTheInstance) {
  Waiter const waiter;
  ASSERT_TRUE(WaitUntilAsleep(waiter));

  BaseUtilInternal::Instance()->ServiceExit();

  EXPECT_TRUE(WaitUntil([&waiter] { return waiter.Returned(); }));
}

TEST_F(ServiceWaitTest, AWaitingThreadIsWokenByTheFunction) {
  Waiter const waiter;
  ASSERT_TRUE(WaitUntilAsleep(waiter));

  VeltsvcdServiceExit();

  EXPECT_TRUE(WaitUntil([&waiter] { return waiter.Returned(); }));
}

TEST_F(ServiceWaitTest, ASignalThatNobodyWaitsForIsLost) {
  VeltsvcdServiceExit();
  VeltsvcdServiceExit();

  Waiter const waiter;
  bool const blocked = WaitUntilAsleep(waiter);
  bool const returned = waiter.Returned();
  bool const woken = WakeAll(waiter);

  EXPECT_TRUE(blocked);
  EXPECT_FALSE(returned);
  EXPECT_TRUE(woken);
}

TEST_F(ServiceWaitTest, OneSignalWakesExactlyOneOfTwoWaiters) {
  Waiter const one;
  Waiter const two;
  bool const both_asleep = WaitUntilAsleep(one, two);

  VeltsvcdServiceExit();
  bool const woken = WaitUntil([&one, &two] { return one.Returned() || two.Returned(); });
  Waiter const& other = one.Returned() ? two : one;
  bool const other_asleep = WaitUntil([&other] { return other.Sleeps() || other.Returned(); });
  bool const other_returned = other.Returned();
  bool const rest_woken = WakeAll(one, two);

  EXPECT_TRUE(both_asleep);
  EXPECT_TRUE(woken);
  EXPECT_TRUE(other_asleep);
  EXPECT_FALSE(other_returned);
  EXPECT_TRUE(rest_woken);
}

TEST_F(ServiceWaitTest, TwoSignalsWakeTwoWaiters) {
  Waiter const one;
  Waiter const two;
  bool const both_asleep = WaitUntilAsleep(one, two);

  VeltsvcdServiceExit();
  VeltsvcdServiceExit();
  bool const both_returned = WaitUntil([&one, &two] { return one.Returned() && two.Returned(); });

  EXPECT_TRUE(both_asleep);
  EXPECT_TRUE(both_returned);
  if (!both_returned) WakeAll(one, two);
}

TEST_F(ServiceWaitTest, AThreadCanWaitAgain) {
  for (int round = 0; round < 3; ++round) {
    Waiter const waiter;
    ASSERT_TRUE(WaitUntilAsleep(waiter)) << round;

    VeltsvcdServiceExit();

    EXPECT_TRUE(WaitUntil([&waiter] { return waiter.Returned(); })) << round;
  }
}

TEST_F(ServiceWaitTest, TheFunctionMakesTheInstanceWhenThereIsNone) {
  BaseUtilInternal::Destroy();

  VeltsvcdServiceExit();

  EXPECT_NE(BaseUtilInternal::Instance(), nullptr);
}

TEST_F(ServiceWaitTest, AForkedChildHasAServiceOfItsOwn) {
  BaseUtilInternal const* const parents = BaseUtilInternal::Instance();

  Outcome const child = RunInChild([parents] {
    if (BaseUtilInternal::Instance() == parents) return 1;
    Waiter const waiter;
    return WakeAll(waiter) ? 0 : 2;
  });

  EXPECT_EQ(child.exit_code, 0);
  EXPECT_EQ(BaseUtilInternal::Instance(), parents) << "the parent keeps its own";
}

TEST_F(ServiceWaitTest, AForkedChildDoesNotHangWhileAThreadOfTheParentWaits) {
  Waiter const waiter;
  bool const asleep = WaitUntilAsleep(waiter);

  Outcome const child = RunInChild([] {
    VeltsvcdServiceExit();
    BaseUtilInternal::Destroy();
    return BaseUtilInternal::Instance() == nullptr ? 1 : 0;
  });
  bool const still_waiting = !waiter.Returned();
  bool const woken = WakeAll(waiter);

  EXPECT_TRUE(asleep);
  EXPECT_EQ(child.exit_code, 0);
  EXPECT_TRUE(still_waiting) << "a child's signal does not reach the parent";
  EXPECT_TRUE(woken);
}

}  // namespace
}  // namespace velt::test
