// Objects that are deleted when their thread ends: also if it traces until its end, and in a forked child.
#include "platform/thread_object.h"

#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <string>
#include <thread>

#include <gtest/gtest.h>

namespace velt::test {
namespace {

// What `body` returns in a fork of this process.
int InFork(int (*body)()) {
  pid_t const child = fork();
  if (child == 0) _exit(body());
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::atomic<int> ended{0};
std::atomic<int> shrunk{0};

struct Counted final : ThreadObject {
  void AtThreadEnd() noexcept override {
    ++ended;
    delete this;
  }
  void Shrink() noexcept override { ++shrunk; }
};

TEST(ThreadObjectTest, ObjectsGoWithTheirThreadAndNotBefore) {
  int before_the_end = -1;
  std::thread([&] {
    EXPECT_TRUE(KeepUntilThreadEnd(*new Counted));
    EXPECT_TRUE(KeepUntilThreadEnd(*new Counted));
    before_the_end = ended;
  }).join();

  EXPECT_EQ(before_the_end, 0);
  EXPECT_EQ(ended, 2);
}

TEST(ThreadObjectTest, EachThreadHasItsOwnEnd) {
  std::promise<void> kept;
  std::promise<void> checked;
  std::thread lives([&] {
    KeepUntilThreadEnd(*new Counted);
    kept.set_value();
    checked.get_future().wait();
  });
  kept.get_future().wait();

  std::thread([] { KeepUntilThreadEnd(*new Counted); }).join();

  EXPECT_EQ(ended, 1);
  checked.set_value();
  lives.join();
  EXPECT_EQ(ended, 2);
}

TEST(ThreadObjectTest, OneCallShrinksTheObjectsOfAllThreadsThatRun) {
  std::thread([] { KeepUntilThreadEnd(*new Counted); }).join();
  KeepUntilThreadEnd(*new Counted);
  std::promise<void> kept;
  std::promise<void> checked;
  std::thread other([&] {
    KeepUntilThreadEnd(*new Counted);
    kept.set_value();
    checked.get_future().wait();
  });
  kept.get_future().wait();

  ShrinkThreadObjects();

  EXPECT_EQ(shrunk, 2);
  checked.set_value();
  other.join();
}

std::string at_the_end;

void LastDestructor(void* /*value*/) {
  Counted object;
  at_the_end = ThreadEnds() ? "ends" : "runs";
  at_the_end += KeepUntilThreadEnd(object) ? ", kept" : ", not kept";
}

TEST(ThreadObjectTest, AThreadAtItsEndKeepsNothingMore) {
  // The library's key is made before the next one, and cleaned up before it.
  KeepUntilThreadEnd(*new Counted);
  pthread_key_t key = 0;
  ASSERT_EQ(pthread_key_create(&key, &LastDestructor), 0);
  std::thread([key] {
    KeepUntilThreadEnd(*new Counted);
    pthread_setspecific(key, &at_the_end);
    EXPECT_FALSE(ThreadEnds());
  }).join();

  EXPECT_EQ(at_the_end, "ends, not kept");
  EXPECT_EQ(ended, 1);
  pthread_key_delete(key);
}

TEST(ThreadObjectTest, AChildHasTheObjectsOfTheThreadThatForkedOnly) {
  KeepUntilThreadEnd(*new Counted);
  KeepUntilThreadEnd(*new Counted);
  std::promise<void> kept;
  std::promise<void> checked;
  std::thread other([&] {
    KeepUntilThreadEnd(*new Counted);
    kept.set_value();
    checked.get_future().wait();
  });
  kept.get_future().wait();

  int const code = InFork([] {
    ShrinkThreadObjects();
    if (shrunk != 2) return 1;
    if (!KeepUntilThreadEnd(*new Counted)) return 2;
    return InFork([] {  // of a child's child as well
      ShrinkThreadObjects();
      return shrunk == 5 ? 0 : 3;
    });
  });

  EXPECT_EQ(code, 0);
  ShrinkThreadObjects();
  EXPECT_EQ(shrunk, 3);
  checked.set_value();
  other.join();
}

}  // namespace
}  // namespace velt::test
