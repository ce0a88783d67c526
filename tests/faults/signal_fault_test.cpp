// Many signals, stops and continuations in a process that traces: all reach the host's own threads, and none
// an output thread.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/checker/report.h"
#include "tests/faults/counted.h"
#include "tests/faults/host.h"
#include "tests/faults/scale.h"
#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/manager_host.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

using faults::Figure;
using faults::Scaled;

constexpr unsigned kProducers = 4;
constexpr std::array<int, 8> kStorm = {SIGTERM, SIGUSR1, SIGUSR2, SIGHUP, SIGINT, SIGALRM, SIGCHLD, SIGPIPE};

class SignalFaultTest : public ::testing::Test {
 protected:
  SignalFaultTest() {
    setup_.side_directory = host_.Dir() / "side";
    setup_.producers = kProducers;
    setup_.records = 400'000;
    setup_.pause = std::chrono::microseconds(300);
    expected_.directory = host_.LogDir();
    expected_.prefix = "host_";
    expected_.header = "host header\n";
  }

  // Both families: the main one, and one on demand.
  void ExpectAllThere(VeltTraceCounts const& counts) {
    checker::Report const report = Check(expected_, checker::ReadOutcomes(setup_.side_directory));
    EXPECT_TRUE(report.Clean()) << report.Text();
    EXPECT_EQ(report.refused, 0U);
    EXPECT_GT(report.found, 0U);
    faults::ExpectCounted(counts, report);
    verified_ = static_cast<long long>(report.found);
  }

  ManagerHost const host_{"nEachFileMaxSize = 50\n"};
  faults::ProducerSetup setup_;
  checker::Expectation expected_;
  long long verified_ = 0;
};

// A signal of which every single one is counted, unlike those of the storm.
int Counted() { return SIGRTMIN + 2; }

// Sends the counted signal to the process, waiting while the queue of pending ones is full.
void SendCounted() {
  while (sigqueue(getpid(), Counted(), sigval{}) != 0 && errno == EAGAIN) std::this_thread::yield();
}

TEST_F(SignalFaultTest, EverySignalOfAStormReachesTheHostsSigwaitThread) {
  int const rounds = Scaled(500, 50'000);
  ASSERT_TRUE(host_.Init());  // before the mask: the output thread has not inherited it
  sigset_t waited_for;
  sigemptyset(&waited_for);
  for (int const signal : kStorm) sigaddset(&waited_for, signal);
  sigaddset(&waited_for, Counted());
  pthread_sigmask(SIG_BLOCK, &waited_for, nullptr);
  std::atomic<bool> sent_all{false};
  std::atomic<int> counted{0};
  std::atomic<int> others{0};
  std::thread sigwait_thread([&] {
    while (!sent_all || counted < rounds) {
      timespec const limit{0, 20'000'000};
      int const signal = sigtimedwait(&waited_for, nullptr, &limit);
      if (signal == Counted()) ++counted;
      if (signal > 0 && signal != Counted()) ++others;
    }
  });

  {
    faults::Producers producers(setup_, faults::ToManager());
    for (int i = 0; i < rounds; ++i) {
      // A signal that an output thread received would end this process.
      for (int const signal : kStorm) kill(getpid(), signal);
      SendCounted();
    }
    sent_all = true;
    sigwait_thread.join();
    ASSERT_TRUE(WaitUntil([&] { return producers.Traced() > 100; }));
  }
  auto counts = faults::QuietCounts();
  EXPECT_EQ(VeltDebugMgr::Destroy(), 0);
  pthread_sigmask(SIG_UNBLOCK, &waited_for, nullptr);

  EXPECT_EQ(counted, rounds);
  EXPECT_GT(others, 0);
  ExpectAllThere(counts["host_"]);
  Figure({{"signals_sent", rounds * 9LL},
          {"counted_sent", rounds},
          {"counted_received", counted.load()},
          {"records_verified", verified_}});
}

// --- handlers ---

constexpr std::size_t kMostThreads = 64;
std::array<std::atomic<int>, kMostThreads> handler_threads{};  // kernel ids, 0 where free
std::atomic<int> handled{0};

void NoteThread(int /*signal*/) {
  int const saved = errno;
  ++handled;
  int const me = gettid();
  for (auto& place : handler_threads) {
    int free_place = 0;
    if (place == me || place.compare_exchange_strong(free_place, me) || free_place == me) break;
  }
  errno = saved;
}

TEST_F(SignalFaultTest, HandlersOfTheHostRunOnItsOwnThreadsOnly) {
  int const rounds = Scaled(500, 50'000);
  ASSERT_TRUE(host_.Init());
  ASSERT_TRUE(VeltDebugMgr::Instance()->AppTrace("m", VeltLogLevel{3}, "x", nullptr, false, true, "gw"));
  std::vector<int> output_threads;
  ASSERT_TRUE(WaitUntil([&] {
    output_threads = ThreadsNamed("velt:host_");
    auto const on_demand = ThreadsNamed("velt:host_gw_");
    output_threads.insert(output_threads.end(), on_demand.begin(), on_demand.end());
    return output_threads.size() == 2;
  }));
  struct sigaction act {};  // without SA_RESTART: waits of the host's threads are interrupted
  act.sa_handler = NoteThread;
  for (int const signal : kStorm) ASSERT_EQ(sigaction(signal, &act, nullptr), 0);

  {
    faults::Producers producers(setup_, faults::ToManager());
    sigset_t storm;
    sigemptyset(&storm);
    for (int const signal : kStorm) sigaddset(&storm, signal);
    pthread_sigmask(SIG_BLOCK, &storm, nullptr);  // so that they meet the threads that trace
    for (int i = 0; i < rounds; ++i) {
      for (int const signal : kStorm) kill(getpid(), signal);
    }
    ASSERT_TRUE(WaitUntil([&] { return producers.Traced() > 100 && handled > 0; }));
    pthread_sigmask(SIG_UNBLOCK, &storm, nullptr);
  }
  auto counts = faults::QuietCounts();
  EXPECT_EQ(VeltDebugMgr::Destroy(), 0);

  int seen = 0;
  for (auto const& thread : handler_threads) {
    if (thread == 0) continue;
    ++seen;
    for (int const output_thread : output_threads) EXPECT_NE(thread, output_thread);
  }
  EXPECT_GT(seen, 0);
  ExpectAllThere(counts["host_"]);
  faults::ExpectCounts(counts["host_gw_"], 1, 0, host_.Records("host_gw_").size());
  Figure({{"signals_sent", rounds * 8LL},
          {"handled", handled.load()},
          {"threads_that_handled", seen},
          {"records_verified", verified_}});
}

TEST_F(SignalFaultTest, SignalsThatEveryHostThreadBlocksStayPending) {
  ASSERT_TRUE(host_.Init());
  ASSERT_TRUE(host_.WaitForFile());
  sigset_t all;
  sigset_t before;
  sigset_t pending;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);

  for (int const signal : kStorm) kill(getpid(), signal);
  EXPECT_TRUE(VeltDebugMgr::Instance()->Trace("m", VeltLogLevel{3}, "there", nullptr, false, true));
  faults::ExpectCounts(faults::QuietCounts()["host_"], 1, 0, 1);
  EXPECT_EQ(VeltDebugMgr::Destroy(), 0);

  sigpending(&pending);
  for (int const signal : kStorm) EXPECT_EQ(sigismember(&pending, signal), 1) << signal;
  timespec const no_time{0, 0};
  sigset_t storm;
  sigemptyset(&storm);
  for (int const signal : kStorm) sigaddset(&storm, signal);
  while (sigtimedwait(&storm, nullptr, &no_time) > 0) {
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  EXPECT_EQ(CountOf(host_.Text(), " m I: there\n"), 1U);
}

// --- stop and go ---

TEST_F(SignalFaultTest, AProcessThatIsStoppedAndContinuedLosesNothing) {
  int const stops = Scaled(20, 300);
  std::string const done = host_.Dir() / "done";
  std::fflush(nullptr);
  pid_t const child = fork();  // while this process has one thread
  ASSERT_GE(child, 0);
  if (child == 0) {
    if (!host_.Init()) _exit(1);
    {
      faults::Producers const producers(setup_, faults::ToManager());
      if (!WaitUntil([&] { return Exists(done); }, std::chrono::milliseconds(250'000))) _exit(2);
    }
    faults::WriteCounts(setup_.side_directory, setup_.run, faults::QuietCounts()["host_"]);
    _exit(VeltDebugMgr::Destroy() == 0 ? 0 : 3);
  }
  EXPECT_TRUE(
      WaitUntil([this] { return FilesOf(setup_.side_directory, "outcomes.", "").size() == kProducers; }));

  for (int i = 0; i < stops; ++i) {
    kill(child, SIGSTOP);
    std::this_thread::sleep_for(std::chrono::milliseconds(i % 20));
    kill(child, SIGCONT);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  WriteFile(done, "");
  int status = -1;
  EXPECT_TRUE(WaitUntil([&] { return waitpid(child, &status, WNOHANG) == child; }));

  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  ExpectAllThere(faults::ReadCounts(setup_.side_directory));
  Figure({{"stops", stops}, {"records_verified", verified_}});
}

}  // namespace
}  // namespace velt::test
