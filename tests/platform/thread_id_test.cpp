#include "platform/thread_id.h"

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/process.h"

namespace velt::test {
namespace {

std::int64_t KernelId() { return syscall(SYS_gettid); }

TEST(ThreadIdTest, TheFirstThreadHasTheIdOfItsProcess) {
  std::int64_t const id = ThreadId();

  EXPECT_EQ(id, getpid());
  EXPECT_EQ(ThreadId(), getpid()) << "and keeps it";
}

TEST(ThreadIdTest, EachThreadHasTheIdThatTheKernelGaveIt) {
  constexpr std::size_t kThreads = 8;
  std::vector<std::int64_t> ids(kThreads);
  std::atomic<int> wrong{0};
  std::atomic<std::size_t> arrived{0};

  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (std::size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&ids, &wrong, &arrived, i] {
      ids[i] = ThreadId();
      std::int64_t const again = ThreadId();
      if (ids[i] != KernelId() || again != KernelId()) ++wrong;
      ++arrived;
      while (arrived < kThreads)
        std::this_thread::yield();  // all alive at once, so that no id is given twice
    });
  }
  for (auto& thread : threads) thread.join();

  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(std::set<std::int64_t>(ids.begin(), ids.end()).size(), kThreads);
  EXPECT_EQ(ThreadId(), getpid()) << "the others' ids are not this thread's";
}

TEST(ThreadIdTest, AForkedChildHasAnIdOfItsOwn) {
  ASSERT_EQ(ThreadId(), getpid());  // asked for before the fork

  Outcome const child = RunInChild([] {
    if (ThreadId() != getpid()) return 1;
    return ThreadId() == getpid() ? 0 : 2;  // and keeps it
  });

  EXPECT_EQ(child.exit_code, 0);
  EXPECT_EQ(ThreadId(), getpid()) << "the parent keeps its id";
}

TEST(ThreadIdTest, AChildThatFirstAsksAfterTheForkHasAnIdOfItsOwn) {
  Outcome const child = RunInChild([] { return ThreadId() == getpid() ? 0 : 1; });

  EXPECT_EQ(child.exit_code, 0);
}

TEST(ThreadIdTest, AGrandchildHasAnIdOfItsOwn) {
  ASSERT_EQ(ThreadId(), getpid());

  Outcome const child = RunInChild([] {
    if (ThreadId() != getpid()) return 1;
    Outcome const grandchild = RunInChild([] { return ThreadId() == getpid() ? 0 : 1; });
    return grandchild.exit_code == 0 ? 0 : 2;
  });

  EXPECT_EQ(child.exit_code, 0);
}

TEST(ThreadIdTest, AChildForkedByAnotherThreadHasTheIdOfItsProcess) {
  int status = -1;

  std::thread([&status] {
    if (ThreadId() != KernelId()) return;
    pid_t const child = fork();
    if (child == 0) _exit(ThreadId() == getpid() ? 0 : 1);
    waitpid(child, &status, 0);
  }).join();

  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
}  // namespace velt::test
