// Channels under faults: files and directories that vanish, limits of the process, signals, forks, stalls.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "velt/channel.h"

#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace fs = std::filesystem;

namespace {

// While set, no stream or directory can be opened: no descriptor is left. The attempts are counted.
std::atomic<bool> no_descriptors{false};
std::atomic<int> refused_opens{0};
std::atomic<bool> device_stalls{false};  // while set, writes to log files wait

template <typename Function>
Function Next(char const* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

bool IsLogFile(int descriptor) {
  std::array<char, 40> link{};
  std::array<char, 512> path{};
  std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", descriptor);
  ssize_t const length = readlink(link.data(), path.data(), path.size() - 1);
  return length > 4 && std::strcmp(path.data() + length - 4, ".log") == 0;
}

}  // namespace

// These replace the system's functions in this whole program. The limit itself is not lowered: sanitizers
// need descriptors, too.
extern "C" int open(char const* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  mode_t const mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if (!no_descriptors) return Next<int (*)(char const*, int, ...)>("open")(path, flags, mode);
  ++refused_opens;
  errno = EMFILE;
  return -1;
}

extern "C" DIR* opendir(char const* path) {
  if (!no_descriptors) return Next<DIR* (*)(char const*)>("opendir")(path);
  ++refused_opens;
  errno = EMFILE;
  return nullptr;
}

extern "C" ssize_t write(int descriptor, void const* bytes, size_t count) {
  while (device_stalls && IsLogFile(descriptor)) usleep(1'000);
  return Next<ssize_t (*)(int, void const*, size_t)>("write")(descriptor, bytes, count);
}

namespace velt::test {
namespace {

using Clock = std::chrono::steady_clock;

// Lowers the soft value of a limit of this process while it lives.
class LoweredLimit {
 public:
  LoweredLimit(__rlimit_resource resource, rlim_t value) : resource_(resource) {
    getrlimit(resource_, &before_);
    rlimit const lowered{value, before_.rlim_max};
    EXPECT_EQ(setrlimit(resource_, &lowered), 0);
  }
  ~LoweredLimit() { setrlimit(resource_, &before_); }
  LoweredLimit(LoweredLimit const&) = delete;
  LoweredLimit& operator=(LoweredLimit const&) = delete;

 private:
  __rlimit_resource resource_;
  rlimit before_{};
};

class ChannelFaultTest : public ::testing::Test {
 protected:
  ChannelFaultTest() { setup.directory = dir / "logs"; }

  bool Trace(std::string const& text) const {
    return channel->Trace("m", VeltLogLevel{3}, text.c_str(), nullptr, false, true);
  }
  // Returns how many of `count` records were accepted.
  int TraceMany(std::string const& text, int count) const {
    int accepted = 0;
    for (int i = 0; i < count; ++i) accepted += Trace(text) ? 1 : 0;
    return accepted;
  }
  // Traces logged and filtered records; counts the logged ones that were accepted.
  void TraceUntil(std::atomic<bool> const& stop, std::atomic<std::size_t>& accepted) const {
    while (!stop) {
      if (Trace("of the parent")) ++accepted;
      channel->Trace("m", VeltLogLevel{3}, "filtered", nullptr, false, false);
      std::this_thread::yield();
    }
  }
  // What the calls of a forked child return; 0 when every one is refused at once.
  int UseInherited(std::string const& module, OutDataUnit* rec) const {
    auto const start = Clock::now();
    for (int i = 0; i < 20; ++i) {
      if (channel->Trace(module, VeltLogLevel{0}, "of the child", nullptr, true, true)) return 1;
      if (channel->Trace(module, VeltLogLevel{3}, "of the child", nullptr, false, false)) return 2;
    }
    if (channel->TraceInner(rec) || rec != nullptr) return 3;
    if (channel->Init()) return 4;
    // If every call waited its second, these would be forty.
    return Clock::now() - start < std::chrono::seconds(15) ? 0 : 5;
  }
  std::string Log() const { return ReadFamily(setup.directory, "t_"); }
  bool WaitForRecord(std::string const& text) const {
    return WaitUntil([&] { return CountOf(Log(), " m I: " + text + "\n") == 1; });
  }
  bool WaitForFile() const {
    return WaitUntil([this] { return CountOf(Log(), "Thread handle output string is") == 1; });
  }
  std::string OpenLog() const {
    auto const logs = FilesOf(setup.directory, "t_", ".log");
    return logs.empty() ? "" : setup.directory + "/" + logs.back();
  }

  ScratchDir const dir;
  ChannelSetup setup{dir.Path()};
  std::unique_ptr<VeltDebugInfo> channel;
};

TEST_F(ChannelFaultTest, WhileItsFileNamesAreTakenRecordsWait) {
  auto const taken = ComingNames("t_", 1);
  for (auto const& name : taken) fs::create_directories(setup.directory + "/" + name);
  channel = MakeChannel(setup);

  EXPECT_TRUE(Trace("early"));

  EXPECT_TRUE(WaitUntil([this] {
    for (auto const& name : FilesOf(setup.directory, "t_", ".log")) {
      if (CountOf(ReadFile(setup.directory + "/" + name), " m I: early\n") == 1) return true;
    }
    return false;
  }));
  for (auto const& name : taken) EXPECT_TRUE(fs::is_directory(setup.directory + "/" + name)) << name;
}

TEST_F(ChannelFaultTest, ADirectoryThatCannotBeMadeYetIsTriedAgain) {
  setup.directory = dir / "missing/logs";
  channel = MakeChannel(setup);
  EXPECT_TRUE(Trace("early"));

  fs::create_directory(dir / "missing");

  EXPECT_TRUE(WaitForRecord("early"));
}

TEST_F(ChannelFaultTest, ARemovedDirectoryComesBackWithTheNextFile) {
  setup.max_bytes = 0;
  channel = MakeChannel(setup);
  ASSERT_TRUE(WaitForFile());
  fs::remove_all(setup.directory);
  EXPECT_TRUE(Trace("lost with its file"));
  EXPECT_TRUE(WaitUntil([this] { return !OpenLog().empty(); }));

  EXPECT_TRUE(Trace("after"));

  EXPECT_TRUE(WaitForRecord("after"));
  EXPECT_EQ(CountOf(Log(), "lost with its file"), 0U);
}

TEST_F(ChannelFaultTest, WhileAFileStandsInTheDirectorysPlaceRecordsWait) {
  setup.max_bytes = 0;
  channel = MakeChannel(setup);
  ASSERT_TRUE(WaitForFile());
  fs::rename(setup.directory, dir / "away");
  WriteFile(setup.directory, "in the way");
  EXPECT_TRUE(Trace("goes on in the moved file"));
  EXPECT_TRUE(WaitUntil([this] { return CountOf(ReadFamily(dir / "away", "t_"), "File close at ") == 1; }));
  EXPECT_TRUE(Trace("waits"));

  fs::remove(setup.directory);

  EXPECT_TRUE(WaitForRecord("waits"));
  EXPECT_EQ(CountOf(ReadFamily(dir / "away", "t_"), " m I: goes on in the moved file\n"), 1U);
}

TEST_F(ChannelFaultTest, AnUnlinkedFileIsFollowedByANewOneAtTheNextRotation) {
  setup.max_bytes = 0;
  channel = MakeChannel(setup);
  ASSERT_TRUE(WaitForFile());
  fs::remove(OpenLog());
  EXPECT_TRUE(Trace("lost with its file"));
  EXPECT_TRUE(WaitUntil([this] { return !OpenLog().empty(); }));

  EXPECT_TRUE(Trace("after"));

  EXPECT_TRUE(WaitForRecord("after"));
}

TEST_F(ChannelFaultTest, ARenamedFileTakesWhatIsLeftOfItsRecords) {
  channel = MakeChannel(setup);
  ASSERT_TRUE(WaitForFile());
  fs::rename(OpenLog(), dir / "renamed");

  EXPECT_TRUE(Trace("after"));

  EXPECT_TRUE(WaitUntil([this] { return CountOf(ReadFile(dir / "renamed"), " m I: after\n") == 1; }));
}

TEST_F(ChannelFaultTest, ATruncatedFileTakesTheNextRecords) {
  channel = MakeChannel(setup);
  ASSERT_TRUE(WaitForFile());
  fs::resize_file(OpenLog(), 0);

  EXPECT_TRUE(Trace("after"));

  EXPECT_TRUE(WaitForRecord("after"));
}

TEST_F(ChannelFaultTest, AFileWithoutPermissionsTakesTheNextRecords) {
  channel = MakeChannel(setup);
  ASSERT_TRUE(WaitForFile());
  std::string const log = OpenLog();
  chmod(log.c_str(), 0);

  EXPECT_TRUE(Trace("after"));
  channel.reset();

  chmod(log.c_str(), 0640);
  EXPECT_EQ(CountOf(Log(), " m I: after\n"), 1U);
}

TEST_F(ChannelFaultTest, ASecondChannelOfTheFamilyCompressesTheFirstOnesFile) {
  channel = MakeChannel(setup);
  EXPECT_TRUE(Trace("of the first"));
  ASSERT_TRUE(WaitForRecord("of the first"));
  std::string const first = OpenLog();
  WaitForNextSecond();

  auto const second = MakeChannel(setup);
  EXPECT_TRUE(second->Trace("m", VeltLogLevel{3}, "of the second", nullptr, false, true));

  EXPECT_TRUE(WaitForRecord("of the second"));
  EXPECT_FALSE(Exists(first));
  EXPECT_EQ(CountOf(ReadGzip(first + ".gz"), " m I: of the first\n"), 1U);
  EXPECT_TRUE(Trace("into a file without a name"));
}

TEST_F(ChannelFaultTest, AStalledFileHoldsRecordsBackAndLosesNone) {
  constexpr int kThreads = 4;
  constexpr int kRecords = 50;
  device_stalls = true;
  channel = MakeChannel(setup);  // its thread waits at its first write
  std::atomic<int> accepted{0};
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([this, &accepted] { accepted += TraceMany("stalled", kRecords); });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(OutputQueueOf(*channel).message_count(), 200U);

  device_stalls = false;
  channel.reset();

  EXPECT_EQ(accepted, 200);
  EXPECT_EQ(CountOf(Log(), " m I: stalled\n"), 200U);
}

TEST_F(ChannelFaultTest, ModesDoNotDependOnTheUmask) {
  for (mode_t const mask : {0U, 022U, 077U}) {
    mode_t const before = umask(mask);
    ScratchDir const own;
    ChannelSetup own_setup(own / "logs");
    own_setup.max_bytes = 0;
    channel = MakeChannel(own_setup);
    EXPECT_TRUE(WaitUntil([&] { return FilesOf(own / "logs", "t_", ".log").size() == 1; }));
    WaitForNextSecond();  // so that the archive does not share its name with the next file
    EXPECT_TRUE(Trace("rotates"));
    EXPECT_TRUE(WaitUntil([&] { return CountOf(ReadFamily(own / "logs", "t_"), "File create at ") == 2; }));
    channel.reset();
    umask(before);

    EXPECT_EQ(ModeOf(own / "logs"), 0755U & ~mask) << mask;
    for (auto const& name : FilesOf(own / "logs", "t_", ".log"))
      EXPECT_EQ(ModeOf(own / ("logs/" + name)), 0640U);
    auto const archives = FilesOf(own / "logs", "t_", ".log.gz");
    ASSERT_EQ(archives.size(), 1U);
    EXPECT_EQ(ModeOf(own / ("logs/" + archives.front())), 0440U) << mask;
  }
}

TEST_F(ChannelFaultTest, WithoutDescriptorsAtItsStartItTriesAgain) {
  no_descriptors = true;
  channel = MakeChannel(setup);
  EXPECT_TRUE(Trace("early"));
  EXPECT_TRUE(WaitUntil([] { return refused_opens >= 2; })) << "the directory and the file";

  no_descriptors = false;

  EXPECT_TRUE(WaitForRecord("early"));
}

TEST_F(ChannelFaultTest, WithoutDescriptorsAtARotationItTriesAgain) {
  setup.max_bytes = 0;
  channel = MakeChannel(setup);
  ASSERT_TRUE(WaitForFile());
  WaitForNextSecond();
  no_descriptors = true;
  EXPECT_TRUE(Trace("closes its file"));
  EXPECT_TRUE(WaitUntil([] { return refused_opens >= 2; }));
  EXPECT_TRUE(Trace("waits"));

  no_descriptors = false;

  EXPECT_TRUE(WaitForRecord("waits"));
  EXPECT_TRUE(WaitForRecord("closes its file"));
}

TEST_F(ChannelFaultTest, AFileSizeLimitNeitherKillsTheHostNorSilencesTheChannel) {
  channel = MakeChannel(setup);
  ASSERT_TRUE(WaitForFile());
  Gate gate;
  {
    LoweredLimit const small(RLIMIT_FSIZE, 20'000);
    for (int i = 0; i < 100; ++i) EXPECT_TRUE(Trace(std::to_string(1000 + i) + std::string(996, 'x')));
    StallAt(gate, *channel);  // behind all of them
  }
  gate.Open();

  EXPECT_TRUE(Trace("room again"));

  EXPECT_TRUE(WaitForRecord("room again"));
  channel.reset();
  std::string const log = Log();
  int whole = 0;
  for (int i = 0; i < 100; ++i) {
    auto const count = CountOf(log, " m I: " + std::to_string(1000 + i) + std::string(996, 'x') + "\n");
    EXPECT_LE(count, 1U) << "never twice";
    if (count == 1) ++whole;
  }
  EXPECT_GE(whole, 15) << "what fits into 20,000 bytes is there";
  EXPECT_LE(whole, 20) << "what was refused is not written later";
  EXPECT_EQ(CountOf(log, "File close at "), 1U);
}

TEST_F(ChannelFaultTest, AFileSizeLimitDoesNotKillTheHostThatDestroysTheChannel) {
  channel = MakeChannel(setup);
  ASSERT_TRUE(WaitForFile());
  LoweredLimit const none(RLIMIT_FSIZE, 1);

  channel.reset();  // writes its last lines on this thread, whose SIGXFSZ is not blocked

  sigset_t pending;
  ASSERT_EQ(sigpending(&pending), 0);
  EXPECT_EQ(sigismember(&pending, SIGXFSZ), 0);
  sigset_t mask;
  ASSERT_EQ(pthread_sigmask(SIG_BLOCK, nullptr, &mask), 0);
  EXPECT_EQ(sigismember(&mask, SIGXFSZ), 0) << "the mask is as before";
}

TEST_F(ChannelFaultTest, AReadOnlyDirectoryStopsTheNextFileUntilItIsWritable) {
  chmod(dir.Path().c_str(), 0777);
  auto const body = [this] {  // an ordinary user's
    if (geteuid() == 0 && setuid(65534) != 0) return 2;
    setup.max_bytes = 0;
    channel = MakeChannel(setup);
    if (!WaitForFile()) return 3;
    WaitForNextSecond();
    chmod(setup.directory.c_str(), 0555);
    if (!Trace("closes its file")) return 4;
    if (!WaitUntil([this] { return CountOf(Log(), "File close at ") == 1; })) return 5;
    if (!Trace("waits")) return 6;
    chmod(setup.directory.c_str(), 0755);
    if (!WaitForRecord("waits")) return 7;
    if (!WaitForRecord("closes its file")) return 8;
    channel.reset();
    return 0;
  };

  EXPECT_EQ(RunInChild(body).exit_code, 0);
}

TEST_F(ChannelFaultTest, ASignalToTheProcessWaitsForTheHost) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGUSR1);
  channel = MakeChannel(setup);  // before the mask: the output thread has not inherited it
  ASSERT_TRUE(WaitForFile());
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  for (int i = 0; i < 100; ++i) {  // a signal that the output thread received would end this process
    kill(getpid(), SIGTERM);
    kill(getpid(), SIGUSR1);
    EXPECT_TRUE(Trace("goes on"));
  }

  timespec const no_time{0, 0};
  EXPECT_EQ(sigtimedwait(&signals, nullptr, &no_time), SIGUSR1);
  EXPECT_EQ(sigtimedwait(&signals, nullptr, &no_time), SIGTERM);
  pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
  channel.reset();
  EXPECT_EQ(CountOf(Log(), " m I: goes on\n"), 100U);
}

std::atomic<int> handled{0};
std::atomic<int> handled_elsewhere{0};
std::atomic<int> main_thread{0};

void CountSignal(int /*signal*/) {
  ++handled;
  if (gettid() != main_thread) ++handled_elsewhere;
}

TEST_F(ChannelFaultTest, AHandlerOfTheHostNeverRunsOnAnOutputThread) {
  main_thread = gettid();
  auto const before = std::signal(SIGUSR2, CountSignal);
  channel = MakeChannel(setup);

  for (int i = 0; i < 200; ++i) {
    kill(getpid(), SIGUSR2);
    EXPECT_TRUE(Trace("goes on"));
  }
  EXPECT_TRUE(WaitUntil([] { return handled > 0; }));
  channel.reset();
  std::signal(SIGUSR2, before);

  EXPECT_EQ(handled_elsewhere, 0);
  EXPECT_EQ(CountOf(Log(), " m I: goes on\n"), 200U);
}

TEST_F(ChannelFaultTest, AChildForkedWhileThreadsTraceRefusesAtOnceAndWritesNothing) {
  constexpr int kForks = 20;
  setup.ring = 5;
  channel = MakeChannel(setup);
  std::atomic<bool> stop{false};
  std::atomic<std::size_t> accepted{0};
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int t = 0; t < 4; ++t) threads.emplace_back([&] { TraceUntil(stop, accepted); });
  std::string const module = "child";
  OutDataUnit* const rec = NewRecord(" of the child");
  std::vector<int> codes;
  codes.reserve(kForks);

  for (int i = 0; i < kForks; ++i) codes.push_back(InFork([&] { return UseInherited(module, rec); }));

  stop = true;
  for (auto& thread : threads) thread.join();
  delete rec;
  channel.reset();
  EXPECT_EQ(codes, std::vector<int>(kForks, 0));
  std::string const log = Log();
  EXPECT_EQ(CountOf(log, " m I: of the parent\n"), accepted);
  EXPECT_EQ(CountOf(log, "of the child"), 0U);
  EXPECT_EQ(CountOf(log, "File close at "), 1U);
  EXPECT_EQ(FilesOf(setup.directory, "t_", "").size(), 1U);
}

}  // namespace
}  // namespace velt::test
