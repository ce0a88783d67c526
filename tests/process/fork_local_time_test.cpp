// Forks while another thread is inside the C library's local time, whose lock a child would inherit locked.
// localtime_r and strftime are replaced in this program: they stay inside for as long as a test asks.
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <functional>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "platform/time_stamp.h"
#include "tests/faults/shim/next.h"
#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace {

enum Function { kNone, kLocalTime, kFormat };

std::atomic<Function> stays_in{kNone};
std::atomic<int> inside{0};

void StayIn(Function function) {
  if (stays_in != function) return;
  ++inside;
  while (stays_in == function) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  --inside;
}

}  // namespace

VELT_SHIM_EXPORT std::tm* localtime_r(std::time_t const* second, std::tm* local) noexcept {
  static auto* const next = velt::shim::Next<std::tm*(std::time_t const*, std::tm*)>("localtime_r");
  StayIn(kLocalTime);
  return next(second, local);
}

VELT_SHIM_EXPORT std::size_t strftime(char* text, std::size_t capacity, char const* pattern,
                                      std::tm const* local) noexcept {
  static auto* const next =
      velt::shim::Next<std::size_t(char*, std::size_t, char const*, std::tm const*)>("strftime");
  StayIn(kFormat);
  return next(text, capacity, pattern, local);
}

namespace velt::test {
namespace {

// The exit code of a child that is forked while `work` is inside `function`: 0 when the fork waited until no
// thread was inside, and the child could stamp a new second.
int ForkDuring(Function function, std::function<void()> const& work) {
  stays_in = function;
  std::thread worker(work);
  EXPECT_TRUE(WaitUntil([] { return inside == 1; }));
  std::thread opener([] {  // the fork may wait for the worker, so another thread lets it go on
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    stays_in = kNone;
  });
  pid_t const child = fork();
  if (child == 0) {
    alarm(60);
    char text[kTimeStampCapacity] = "";
    int code = inside == 0 ? 0 : 1;
    if (code == 0) WriteTimeStamp(ACE_Time_Value(1'700'000'000, 5), text);
    if (code == 0 && text[0] == '\0') code = 2;
    // Not _exit: the thread sanitizer would look for the parent's threads there.
    syscall(SYS_exit_group, code);
  }
  opener.join();
  worker.join();
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

TEST(ForkLocalTimeTest, AForkWaitsForAThreadThatStampsANewSecond) {
  int const end = ForkDuring(kLocalTime, [] {
    char text[kTimeStampCapacity];
    WriteTimeStamp(ACE_Time_Value(1'600'000'000, 5), text);
  });

  EXPECT_EQ(end, 0);
}

TEST(ForkLocalTimeTest, AForkWaitsForAFileThatIsBeingNamed) {
  ScratchDir const dir;
  auto const channel = MakeIdleChannel(ChannelSetup(dir.Path()));

  EXPECT_EQ(ForkDuring(kLocalTime, [&] { EXPECT_TRUE(channel->OpenNewFile()); }), 0);
  EXPECT_EQ(ForkDuring(kFormat, [&] { EXPECT_TRUE(channel->OpenNewFile()); }), 0);
}

TEST(ForkLocalTimeTest, AForkWaitsForAFileThatIsBeingClosed) {
  ScratchDir const dir;
  auto const channel = MakeIdleChannel(ChannelSetup(dir.Path()));
  ASSERT_TRUE(channel->OpenNewFile());
  EXPECT_EQ(ForkDuring(kLocalTime, [&] { channel->CloseFile(); }), 0);

  ASSERT_TRUE(channel->OpenNewFile());
  EXPECT_EQ(ForkDuring(kFormat, [&] { channel->CloseFile(); }), 0);
}

}  // namespace
}  // namespace velt::test
