// Construction of channels, their directory, and the thread that they start.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "velt/channel.h"

#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace fs = std::filesystem;

namespace velt::test {
namespace {

using ::testing::StartsWith;

// The signals that a thread of this process blocks, by their numbers.
std::vector<int> BlockedIn(int thread) {
  std::ifstream in("/proc/self/task/" + std::to_string(thread) + "/status");
  std::vector<int> blocked;
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("SigBlk:", 0) != 0) continue;
    std::uint64_t const mask = std::stoull(line.substr(7), nullptr, 16);
    for (int signal = 1; signal <= 64; ++signal) {
      if ((mask >> (signal - 1) & 1U) != 0) blocked.push_back(signal);
    }
  }
  return blocked;
}

// The output thread of a channel, once it has its name.
int ThreadOf(std::string const& name) {
  std::vector<int> ids;
  EXPECT_TRUE(WaitUntil([&] { return (ids = ThreadsNamed(name)).size() == 1; })) << name;
  return ids.empty() ? 0 : ids.front();
}

class ChannelTest : public ::testing::Test {
 protected:
  std::string LogAfterStop() {
    channel.reset();
    return ReadFamily(setup.directory, setup.prefix);
  }

  ScratchDir const dir;
  ChannelSetup setup{dir.Path()};
  std::unique_ptr<VeltDebugInfo> channel;
};

TEST_F(ChannelTest, ADirectoryGetsItsSlash) {
  setup.directory = dir / "logs";

  EXPECT_EQ(MakeIdleChannel(setup)->LogPath(), dir.Path() + "/logs/");
}

TEST_F(ChannelTest, ADirectoryThatEndsInASlashStaysAsItIs) {
  setup.directory = dir / "logs/";
  EXPECT_EQ(MakeIdleChannel(setup)->LogPath(), dir.Path() + "/logs/");

  setup.directory = dir / "logs//";
  EXPECT_EQ(MakeIdleChannel(setup)->LogPath(), dir.Path() + "/logs//");

  setup.directory = "/";
  EXPECT_EQ(MakeIdleChannel(setup)->LogPath(), "/");
}

TEST_F(ChannelTest, ARelativeDirectoryIsUsedFromTheWorkingDirectory) {
  fs::current_path(dir.Path());
  setup.directory = "logs";
  channel = MakeChannel(setup);

  EXPECT_EQ(channel->LogPath(), "logs/");

  channel->Trace("m", VeltLogLevel{3}, "x", nullptr, false, true);
  channel.reset();
  EXPECT_EQ(CountOf(ReadFamily(dir / "logs", "t_"), " m I: x\n"), 1U);
  fs::current_path("/");
}

TEST_F(ChannelTest, AnEmptyDirectoryWithoutALogDirectoryIsBelowTheRoot) {
  unsetenv("_APP_LOG_DIR");
  setup.directory = "";

  EXPECT_EQ(MakeIdleChannel(setup)->LogPath(), "/mrblog/");
}

TEST_F(ChannelTest, AnEmptyDirectoryIsTheDefaultLogPath) {
  setenv("_APP_LOG_DIR", "/velt/log", 1);
  setup.directory = "";

  EXPECT_EQ(MakeIdleChannel(setup)->LogPath(), "/velt/log//mrblog/");
}

TEST_F(ChannelTest, BothQueuesHoldTheSameNumberOfBytes) {
  channel = MakeIdleChannel(setup);

  EXPECT_EQ(OutputQueueOf(*channel).high_water_mark(), 10'240'000U);
  EXPECT_EQ(OutputQueueOf(*channel).low_water_mark(), 10'240'000U);
  EXPECT_EQ(RingOf(*channel).high_water_mark(), 10'240'000U);
  EXPECT_EQ(RingOf(*channel).low_water_mark(), 10'240'000U);
}

TEST_F(ChannelTest, ConstructionStartsTheThreadThatOpensTheFirstFile) {
  channel = MakeChannel(setup);

  EXPECT_TRUE(WaitUntil(
      [this] { return CountOf(ReadFamily(dir.Path(), "t_"), "This is the first log file\n") == 1; }));

  auto const names = FilesOf(dir.Path(), "t_", ".log");
  ASSERT_EQ(names.size(), 1U);
  EXPECT_THAT(ReadFile(dir / names.front()),
              StartsWith(HeadOf(names.front(), setup) +
                         "This is the first log file\nThread handle output string is 0x"));
}

TEST_F(ChannelTest, InitAgainStartsNoSecondThread) {
  channel = MakeChannel(setup);
  ThreadOf("velt:t_");

  EXPECT_TRUE(channel->Init());
  EXPECT_TRUE(channel->Init());

  EXPECT_EQ(ThreadsNamed("velt:t_").size(), 1U);
  EXPECT_EQ(CountOf(LogAfterStop(), "This is the first log file\n"), 1U);
}

TEST_F(ChannelTest, InitFailsWhenNoThreadCanBeCreated) {
  channel = MakeIdleChannel(setup);
  NoNewThreads const none;

  EXPECT_FALSE(channel->Init());
  EXPECT_FALSE(channel->Init());
  EXPECT_FALSE(channel->Trace("m", VeltLogLevel{3}, "x", nullptr, false, true));
}

TEST_F(ChannelTest, ALaterInitMakesTheChannelWork) {
  channel = MakeIdleChannel(setup);
  EXPECT_EQ(ListDir(dir.Path()), std::vector<std::string>{});

  EXPECT_TRUE(channel->Init());

  EXPECT_TRUE(channel->Trace("m", VeltLogLevel{3}, "x", nullptr, false, true));
  EXPECT_EQ(CountOf(LogAfterStop(), " m I: x\n"), 1U);
}

TEST_F(ChannelTest, InitFromManyThreadsStartsOneThread) {
  channel = MakeIdleChannel(setup);
  std::vector<std::thread> callers;
  callers.reserve(8);
  for (int t = 0; t < 8; ++t) {
    callers.emplace_back([this] { EXPECT_TRUE(channel->Init()); });
  }
  for (auto& caller : callers) caller.join();

  EXPECT_TRUE(channel->Trace("m", VeltLogLevel{3}, "x", nullptr, false, true));
  std::string const log = LogAfterStop();
  EXPECT_EQ(CountOf(log, "This is the first log file\n"), 1U);
  EXPECT_EQ(CountOf(log, " m I: x\n"), 1U);
}

TEST_F(ChannelTest, TheThreadBearsTheHeadOfThePrefix) {
  setup.prefix = "abcdefghijklmnop_";
  channel = MakeChannel(setup);

  EXPECT_NE(ThreadOf("velt:abcdefghij"), 0);
}

TEST_F(ChannelTest, TheThreadOfAShortOrEmptyPrefixHasANameToo) {
  setup.prefix = "a";
  channel = MakeChannel(setup);
  EXPECT_NE(ThreadOf("velt:a"), 0);

  setup.prefix = "";
  auto const other = MakeChannel(setup);
  EXPECT_NE(ThreadOf("velt:"), 0);
}

TEST_F(ChannelTest, TheThreadIsGoneAfterTheDestruction) {
  channel = MakeChannel(setup);
  ThreadOf("velt:t_");

  channel.reset();

  EXPECT_TRUE(WaitUntil([] { return ThreadsNamed("velt:t_").empty(); }));
}

TEST_F(ChannelTest, TheThreadBlocksEverySignalButFaultsOfItsOwn) {
  channel = MakeChannel(setup);

  std::vector<int> const blocked = BlockedIn(ThreadOf("velt:t_"));

  std::vector<int> expected;
  for (int signal = 1; signal <= 64; ++signal) {
    bool const fault = signal == SIGSEGV || signal == SIGBUS || signal == SIGFPE || signal == SIGILL ||
                       signal == SIGTRAP || signal == SIGSYS || signal == SIGABRT;
    bool const unblockable =
        signal == SIGKILL || signal == SIGSTOP || signal == 32 || signal == 33;  // 32, 33: libc's
    if (!fault && !unblockable) expected.push_back(signal);
  }
  EXPECT_EQ(blocked, expected);
}

TEST_F(ChannelTest, TheCreatorsSignalMaskAndNameStayAsTheyWere) {
  sigset_t mask;
  sigemptyset(&mask);
  sigaddset(&mask, SIGUSR1);
  sigaddset(&mask, SIGSEGV);
  pthread_sigmask(SIG_SETMASK, &mask, nullptr);
  pthread_setname_np(pthread_self(), "creator");

  channel = MakeChannel(setup);
  ThreadOf("velt:t_");

  EXPECT_EQ(BlockedIn(gettid()), (std::vector<int>{SIGUSR1, SIGSEGV}));
  char name[16] = "";
  pthread_getname_np(pthread_self(), name, sizeof name);
  EXPECT_STREQ(name, "creator");
  sigemptyset(&mask);
  pthread_sigmask(SIG_SETMASK, &mask, nullptr);
}

TEST_F(ChannelTest, TheCreatorsSignalMaskStaysWhenNoThreadCanBeCreated) {
  std::vector<int> const before = BlockedIn(gettid());

  channel = MakeIdleChannel(setup);

  EXPECT_EQ(BlockedIn(gettid()), before);
}

TEST_F(ChannelTest, DequeueMsgEmptiesTheRingUnwritten) {
  setup.ring = 5;
  CaptureStdout out;
  channel = MakeChannel(setup);
  AsnText const value("value");
  for (int i = 0; i < 3; ++i) channel->Trace("m", VeltLogLevel{3}, "filtered", &value, false, false);

  channel->DequeueMsg();

  EXPECT_TRUE(RingOf(*channel).is_empty());
  EXPECT_EQ(AsnText::Live(), 1);
  channel->Trace("m", VeltLogLevel{0}, "severe", nullptr, false, true);
  std::string const log = LogAfterStop();
  EXPECT_EQ(CountOf(log, "severe"), 1U);
  EXPECT_EQ(CountOf(log, "filtered"), 0U);
  EXPECT_EQ(out.Text(), "");
}

TEST_F(ChannelTest, DequeueMsgOfAnEmptyRingDoesNothing) {
  channel = MakeIdleChannel(setup);
  ASSERT_TRUE(channel->OpenNewFile());

  channel->DequeueMsg();

  EXPECT_EQ(CountOf(LogAfterStop(), "dequeue from"), 0U);
}

TEST_F(ChannelTest, TheLastTwoArgumentsChangeNothing) {
  VeltDebugInfo one(dir.Path(), "one_", "", false, true, 0U, 1'000'000U, 30U, 0U, false);
  VeltDebugInfo two(dir.Path(), "two_", "", false, true, 0U, 1'000'000U, 30U, 4'294'967'295U, true);

  for (VeltDebugInfo* const each : {&one, &two}) {
    EXPECT_TRUE(each->Trace("m", VeltLogLevel{3}, "x", nullptr, false, false));
  }

  for (char const* const prefix : {"one_", "two_"}) {
    EXPECT_TRUE(WaitUntil([&] { return CountOf(ReadFamily(dir.Path(), prefix), " m I: x\n") == 1; }))
        << prefix;
  }
}

TEST_F(ChannelTest, ChannelsOfOneDirectoryKeepToTheirOwnFiles) {
  ChannelSetup other_setup(dir.Path());
  other_setup.prefix = "other_";
  channel = MakeChannel(setup);
  auto other = MakeChannel(other_setup);

  channel->Trace("m", VeltLogLevel{3}, "mine", nullptr, false, true);
  other->Trace("m", VeltLogLevel{3}, "yours", nullptr, false, true);
  other.reset();
  channel.reset();

  std::string const mine = ReadFamily(dir.Path(), "t_");
  std::string const yours = ReadFamily(dir.Path(), "other_");
  EXPECT_EQ(CountOf(mine, "mine"), 1U);
  EXPECT_EQ(CountOf(mine, "yours"), 0U);
  EXPECT_EQ(CountOf(yours, "yours"), 1U);
  EXPECT_EQ(CountOf(yours, "mine"), 0U);
}

}  // namespace
}  // namespace velt::test
