// The life of the manager: made, initialised in all variants, destroyed; and its helper that runs commands.
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/support/manager_host.h"

namespace velt::test {
namespace {

namespace fs = std::filesystem;

constexpr VeltLogLevel kLevel0{0};
constexpr VeltLogLevel kLevel3{3};
constexpr VeltLogLevel kFiltered{9};

VeltDebugMgr* Manager() { return VeltDebugMgr::Instance(); }

std::string NumberedArchive(std::string const& prefix, int number) {
  std::string const digits = std::to_string(1'000'000 + number).substr(1);
  return prefix + "20200101_" + digits + ".log.gz";
}

// Puts archives of earlier runs, the oldest first by name, into the log directory.
void LayArchives(std::string const& directory, std::string const& prefix, int count) {
  fs::create_directories(directory);
  for (int i = 0; i < count; ++i) WriteFile(directory + "/" + NumberedArchive(prefix, i), "x");
}

// How many of `laid` archives a manager of this name and configuration keeps at its start.
std::size_t ArchivesKept(std::string const& configuration, std::string const& name, int laid) {
  ManagerHost const host(configuration);
  LayArchives(host.LogDir(), name, laid);
  EXPECT_TRUE(host.Init(name));
  EXPECT_TRUE(host.WaitForFile(name));
  VeltDebugMgr::Destroy();
  if (!FilesOf(host.LogDir(), NumberedArchive(name, laid - 1), "").empty()) {
    return FilesOf(host.LogDir(), name + "20200101_", ".log.gz").size();
  }
  ADD_FAILURE() << "the newest archive went first";
  return 0;
}

// Traces `count` filtered records and one of level 0; gives how many filtered ones came out, the newest last.
std::vector<std::string> RingAfter(std::string const& configuration, int count) {
  ManagerHost const host(configuration);
  CaptureStdout silence;  // what comes out of the ring is printed as well
  EXPECT_TRUE(host.Init());
  for (int i = 1; i <= count; ++i) {
    EXPECT_TRUE(Manager()->Trace("net", kFiltered, std::to_string(i).c_str(), nullptr, false, false));
  }
  EXPECT_TRUE(Manager()->Trace("net", kLevel0, "end", nullptr, false, true));
  auto records = host.StopAndRead();
  EXPECT_EQ(records.empty() ? "" : records.back(), " net A: end");
  if (!records.empty()) records.pop_back();
  return records;
}

// How many log files a manager has begun after about `kilobytes` of records.
std::size_t FilesAfter(std::string const& configuration, int kilobytes) {
  ManagerHost const host(configuration);
  EXPECT_TRUE(host.Init());
  EXPECT_TRUE(host.WaitForFile());
  WaitForNextSecond();  // a second file must not share the name of the first
  std::string const text(2000, 'x');
  for (int i = 0; i * 2 < kilobytes; ++i) {
    EXPECT_TRUE(Manager()->Trace("net", kLevel3, text.c_str(), nullptr, false, true));
  }
  VeltDebugMgr::Destroy();
  return ExactFamily(host.LogDir(), "host_").size();
}

// Counts, in a process that ends without stopping them, how many channels on demand are admitted. Stopping
// each of a hundred channels would cost a poll of 100 ms.
int ChannelsAdmitted(std::string const& configuration, int asked) {
  ManagerHost const host(configuration);
  Outcome const outcome = RunInChild([&] {
    if (!host.Init()) return 250;
    int admitted = 0;
    for (int i = 0; i < asked; ++i) {
      if (!Manager()->AppTrace("net", kLevel3, "x", nullptr, false, true, "s" + std::to_string(i))) break;
      ++admitted;
    }
    return admitted;
  });
  EXPECT_EQ(outcome.signal, 0) << outcome.err;
  return outcome.exit_code;
}

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
  EXPECT_FALSE(was_init) << "the first thing to go is the mark";
}

// --- Init ---

TEST(ManagerTest, InitWithAnEmptyNameIsRefusedBeforeAnythingIsMade) {
  ManagerHost const host("net_level = 1\n");
  Bits levels;
  Bits outputs;

  bool const done = host.Init("");

  EXPECT_FALSE(done);
  EXPECT_FALSE(Manager()->IsInit());
  EXPECT_FALSE(Exists(host.LogDir()));
  EXPECT_FALSE(Manager()->GetSubModuleInfo("net", levels, outputs));
}

TEST(ManagerTest, ARefusedInitCanBeFollowedByAGoodOne) {
  ManagerHost const host;
  ASSERT_FALSE(host.Init("", true));

  bool const done = host.Init();

  EXPECT_TRUE(done);
  EXPECT_TRUE(Manager()->Trace("net", kLevel3, "x", nullptr, false, true)) << "no longer silent";
  EXPECT_TRUE(Contains(host.StopAndRead(), " net I: x"));
}

TEST(ManagerTest, ASecondInitReturnsTrueAndChangesNothing) {
  ManagerHost const host("debug_level = 0001\n");
  ASSERT_TRUE(host.Init());
  std::string const other_config = host.Dir() / "other.cfg";
  WriteFile(other_config, "web_level = 1\n");
  Bits levels;
  Bits outputs;

  bool const again =
      Manager()->Init("other_", other_config, host.Dir() / "other", "other header\n", false, true);
  bool const nameless = Manager()->Init("", "", "", "", false, false);

  EXPECT_TRUE(again);
  EXPECT_TRUE(nameless);
  EXPECT_FALSE(Exists(host.Dir() / "other"));
  EXPECT_FALSE(Manager()->GetSubModuleInfo("web", levels, outputs));
  EXPECT_TRUE(Manager()->Trace("net", kLevel3, "x", nullptr, false, false)) << "not silent";
  EXPECT_TRUE(Contains(host.StopAndRead(), " net I: x"));
}

TEST(ManagerTest, TheMainChannelBearsNameDirectoryAndHeader) {
  ManagerHost const host;

  ASSERT_TRUE(Manager()->Init("svc_", host.ConfigFile(), host.LogDir(), "header without end", true, false));
  ASSERT_TRUE(host.WaitForFile("svc_"));
  VeltDebugMgr::Destroy();

  std::string const text = host.Text("svc_");
  EXPECT_EQ(text.substr(0, 23),
            "\xEF\xBB\xBF"
            "File create at time ");
  EXPECT_NE(text.find(". Current ospid is " + std::to_string(getpid()) +
                      "\nheader without endThis is the first log file\nThread handle output string is 0x"),
            std::string::npos)
      << text;
  EXPECT_EQ(ExactFamily(host.LogDir(), "svc_").size(), 1U);
}

TEST(ManagerTest, TheMainChannelAddsNoOutputOfItsOwn) {
  ManagerHost const host;
  CaptureStdout output;
  ASSERT_TRUE(host.Init());
  ASSERT_TRUE(Manager()->Trace("net", kFiltered, "filtered", nullptr, false, false));
  ASSERT_TRUE(Manager()->Trace("net", kLevel3, "logged", nullptr, false, true));

  auto const records = host.StopAndRead();

  EXPECT_EQ(records, (std::vector<std::string>{" net I: logged"}));
  EXPECT_EQ(output.Text(), "");
}

TEST(ManagerTest, TheLogDirectoryIsMadeOneLevelDeepAndOpenToAll) {
  ManagerHost const host;
  umask(0);

  ASSERT_TRUE(host.Init("host_", true));

  EXPECT_EQ(ModeOf(host.LogDir()), 0755U);
}

TEST(ManagerTest, ALogDirectoryWhoseParentIsMissingIsNotMadeAndDestroyStillReturns) {
  ManagerHost const host;
  std::string const deep = host.Dir() / "a/b";

  bool const done = Manager()->Init("host_", "", deep, "", true, false);
  bool const queued = Manager()->Trace("net", kLevel3, "x", nullptr, false, true);
  int const destroyed = VeltDebugMgr::Destroy();

  EXPECT_TRUE(done) << "the path test fails with an error that does not count";
  EXPECT_TRUE(queued);
  EXPECT_EQ(destroyed, 0);
  EXPECT_FALSE(Exists(host.Dir() / "a"));
}

TEST(ManagerTest, AnEmptyLogDirectoryStandsForTheDefaultOne) {
  ManagerHost const host;

  ASSERT_TRUE(Manager()->Init("host_", host.ConfigFile(), "", "", true, false));
  ASSERT_TRUE(Manager()->Trace("net", kLevel3, "x", nullptr, false, true));
  VeltDebugMgr::Destroy();

  EXPECT_EQ(Bodies(ExactFamilyText(host.Dir() / "mrblog", "host_")), (std::vector<std::string>{" net I: x"}));
}

TEST(ManagerTest, SilentInitRegistersTheModulesAndOpensNothing) {
  ManagerHost const host("net_level = 0001\n");
  Manager();
  std::size_t const threads = ThreadCount();
  Bits levels;
  Bits outputs;

  bool const done = host.Init("host_", true);

  EXPECT_TRUE(done);
  EXPECT_TRUE(Manager()->IsInit());
  EXPECT_EQ(ThreadCount(), threads);
  EXPECT_TRUE(ListDir(host.LogDir()).empty());
  EXPECT_TRUE(Manager()->GetSubModuleInfo("net", levels, outputs));
  EXPECT_EQ(levels, BitsOf({3}));
  EXPECT_TRUE(Manager()->GetSubModuleInfo("debug", levels, outputs));
}

TEST(ManagerTest, SilentInitSkipsThePathTest) {
  ManagerHost const host;

  EXPECT_TRUE(host.Init("a/b", true));
  EXPECT_TRUE(Manager()->IsInit());
}

TEST(ManagerTest, WithoutAnyConfigurationNoModuleIsRegistered) {
  ManagerHost const host;
  ASSERT_TRUE(Manager()->Init("host_", "", host.LogDir(), "", true, true));
  VeltDebugMgr::ModuleSets modules;

  bool const got = Manager()->GetAllModuleInfo(modules);

  EXPECT_TRUE(got);
  EXPECT_TRUE(modules.empty()) << "not even debug";
}

TEST(ManagerTest, AMissingConfigurationFileGivesWayToTheInstallationsOwn) {
  ManagerHost const host;
  fs::create_directories(host.Dir() / "root/conf");
  WriteFile(host.Dir() / "root/conf/default_debug.cfg", "web_level = 0001\n");
  setenv("APP_ROOT", (host.Dir() / "root").c_str(), 1);
  Bits levels;
  Bits outputs;

  ASSERT_TRUE(Manager()->Init("host_", host.Dir() / "missing.cfg", host.LogDir(), "", true, true));

  ASSERT_TRUE(Manager()->GetSubModuleInfo("web", levels, outputs));
  EXPECT_EQ(levels, BitsOf({3}));
}

// --- the path test ---

TEST(ManagerTest, ANameWithASlashNeedsAPathThatExists) {
  ManagerHost const host;

  EXPECT_FALSE(host.Init("/sub/"));
  EXPECT_FALSE(Manager()->IsInit());
  EXPECT_EQ(ExactFamily(host.LogDir(), "").size(), 0U);

  fs::create_directories(host.LogDir() + "/sub");
  EXPECT_TRUE(host.Init("/sub/"));
  EXPECT_TRUE(Manager()->IsInit());
}

TEST(ManagerTest, ThePathIsDirectoryAndNameWithoutASeparator) {
  ManagerHost const host;
  fs::create_directories(host.LogDir() + "/sub");

  EXPECT_FALSE(host.Init("sub/x")) << "logsub/x is looked for";

  fs::create_directories(host.Dir() / "logsub/x");
  EXPECT_TRUE(host.Init("sub/x"));
}

TEST(ManagerTest, ANameTooLongForAPathIsRefusedAndOneThatIsMerelyAbsentIsNot) {
  ManagerHost const host;

  EXPECT_FALSE(host.Init(std::string(300, 'n')));
  EXPECT_FALSE(Manager()->IsInit());
  EXPECT_TRUE(host.Init(std::string(200, 'n')));
}

TEST(ManagerTest, ALogDirectoryThatIsAFileIsNoReasonToRefuse) {
  ManagerHost const host;
  WriteFile(host.LogDir(), "");

  bool const done = Manager()->Init("host_", "", host.LogDir() + "/", "", true, false);
  int const destroyed = VeltDebugMgr::Destroy();

  EXPECT_TRUE(done);
  EXPECT_EQ(destroyed, 0);
}

TEST(ManagerTest, AFailedPathTestLeavesTheModulesStored) {
  ManagerHost const host("net_level = 0001\n");
  Bits levels;
  Bits outputs;

  ASSERT_FALSE(host.Init(std::string(300, 'n')));

  EXPECT_FALSE(Manager()->IsInit());
  ASSERT_TRUE(Manager()->GetSubModuleInfo("net", levels, outputs));
  EXPECT_EQ(levels, BitsOf({3}));
  EXPECT_TRUE(Manager()->SetLogLevel("", VeltLogLevel{4}, true)) << "debug is there too";
  EXPECT_FALSE(Manager()->RegSubModuleInfo("web", levels, outputs, false)) << "not initialised";
  EXPECT_FALSE(Manager()->Trace("net", kLevel3, "x", nullptr, true, true));
  EXPECT_TRUE(Manager()->Init("host_", "", host.LogDir(), "", true, true));
  EXPECT_TRUE(Manager()->GetSubModuleInfo("net", levels, outputs)) << "stored by the first Init";
}

// --- bounds ---

TEST(ManagerBoundsTest, TheRingHoldsUpToAThousandRecordsAndElseAHundred) {
  EXPECT_EQ(RingAfter("nFiltLogBufSize = 3\n", 5), (std::vector<std::string>{" net 3", " net 4", " net 5"}));
  EXPECT_EQ(RingAfter("nFiltLogBufSize = 1000\n", 1003).size(), 1000U);
  EXPECT_EQ(RingAfter("nFiltLogBufSize = 1001\n", 1003).size(), 100U);
  EXPECT_EQ(RingAfter("nFiltLogBufSize = -1\n", 1003).size(), 100U);
  EXPECT_EQ(RingAfter("# absent\n", 1003).size(), 100U);
}

TEST(ManagerBoundsTest, ARingOfZeroRecordsIsKeptAsNoRing) {
  EXPECT_EQ(RingAfter("nFiltLogBufSize = 0\n", 5), std::vector<std::string>{});
}

TEST(ManagerBoundsTest, TheFileSizeIsBetweenOneAndFiftyMegabytesAndElseFive) {
  EXPECT_EQ(FilesAfter("nEachFileMaxSize = 1\n", 1'100), 2U);
  EXPECT_EQ(FilesAfter("nEachFileMaxSize = 0\n", 1'100), 1U);
  EXPECT_EQ(FilesAfter("nEachFileMaxSize = 0\n", 5'400), 2U);
  EXPECT_EQ(FilesAfter("nEachFileMaxSize = 50\n", 5'400), 1U);
  EXPECT_EQ(FilesAfter("nEachFileMaxSize = 51\n", 5'400), 2U);
  EXPECT_EQ(FilesAfter("nEachFileMaxSize = 2048\n", 5'400), 2U) << "negative in bytes";
}

TEST(ManagerBoundsTest, OneToTwoHundredArchivesAreKeptAndElseThirty) {
  EXPECT_EQ(ArchivesKept("nEachProcessMaxZipNum = 1\n", "host_", 3), 1U);
  EXPECT_EQ(ArchivesKept("nEachProcessMaxZipNum = 200\n", "host_", 203), 200U);
  EXPECT_EQ(ArchivesKept("nEachProcessMaxZipNum = 201\n", "host_", 203), 30U);
  EXPECT_EQ(ArchivesKept("nEachProcessMaxZipNum = 0\n", "host_", 33), 30U);
  EXPECT_EQ(ArchivesKept("nEachProcessMaxZipNum = -1\n", "host_", 33), 30U);
}

TEST(ManagerBoundsTest, OneProcessNameKeepsFiveTimesTheArchives) {
  EXPECT_EQ(ArchivesKept("nEachProcessMaxZipNum = 2\n", "VELTMrb_p2_", 13), 10U);
  EXPECT_EQ(ArchivesKept("nEachProcessMaxZipNum = 201\n", "VELTMrb_p2_", 153), 150U) << "after the bound";
  EXPECT_EQ(ArchivesKept("nEachProcessMaxZipNum = 200\n", "VELTMrb_p2_", 1003), 1000U);
  EXPECT_EQ(ArchivesKept("nEachProcessMaxZipNum = 2\n", "VELTMrb_p2", 13), 2U) << "another name";
  EXPECT_EQ(ArchivesKept("nEachProcessMaxZipNum = 2\n", "VELTMrb_p2_x", 13), 2U) << "another name";
}

TEST(ManagerBoundsTest, TheChannelCapIsUpToAHundredAndElseFifty) {
  EXPECT_EQ(ChannelsAdmitted("nMaxFileNum = 100\n", 101), 100);
  EXPECT_EQ(ChannelsAdmitted("nMaxFileNum = 101\n", 52), 50);
  EXPECT_EQ(ChannelsAdmitted("nMaxFileNum = -1\n", 52), 50);
  EXPECT_EQ(ChannelsAdmitted("# absent\n", 52), 50);
  EXPECT_EQ(ChannelsAdmitted("nMaxFileNum = 0\n", 2), 0);
}

// --- the sets of configured modules ---

TEST(ManagerTest, ConfiguredSetsAbove4369LoseAllButTheirFirstFourBits) {
  struct Row {
    char const* text;
    Bits kept;
  };
  Row const rows[] = {
      {"1111", BitsOf({0, 1, 2, 3})},
      {"00001111", BitsOf({4, 5, 6, 7})},
      {"0000000000001", BitsOf({12})},           // 4096
      {"1000100010001", BitsOf({0, 4, 8, 12})},  // 4369
      {"0100100010001", BitsOf({1})},            // 4370
      {"00000000000001", BitsOf({})},            // 8192
      {"11000000000001", BitsOf({0, 1})},        // 8195
      {"00000000000000000000000000000001", BitsOf({})},
      {"11111111111111111111111111111111", BitsOf({0, 1, 2, 3})},
  };
  for (auto const& row : rows) {
    SCOPED_TRACE(row.text);
    std::string const text = row.text;
    std::string configuration;
    for (char const* const key : {"net_level", "web_output", "debug_level"}) {
      configuration.append(key).append(" = ").append(text).append("\n");
    }
    ManagerHost const host(configuration);
    ASSERT_TRUE(host.Init("host_", true));
    Bits levels;
    Bits outputs;

    ASSERT_TRUE(Manager()->GetSubModuleInfo("net", levels, outputs));
    EXPECT_EQ(levels, row.kept);
    EXPECT_EQ(outputs, BitsOf({1}));
    ASSERT_TRUE(Manager()->GetSubModuleInfo("web", levels, outputs));
    EXPECT_EQ(levels, BitsOf({0, 1}));
    EXPECT_EQ(outputs, row.kept);
    ASSERT_TRUE(Manager()->GetSubModuleInfo("debug", levels, outputs));
    EXPECT_EQ(levels, row.kept);
  }
}

TEST(ManagerTest, SetsRegisteredByTheHostAreNotMasked) {
  ManagerHost const host;
  ASSERT_TRUE(host.Init("host_", true));
  Bits levels;
  Bits outputs;

  ASSERT_TRUE(Manager()->RegSubModuleInfo("net", Bits(0xFFFFFFFFU), BitsOf({13}), false));

  ASSERT_TRUE(Manager()->GetSubModuleInfo("net", levels, outputs));
  EXPECT_EQ(levels, Bits(0xFFFFFFFFU));
  EXPECT_EQ(outputs, BitsOf({13}));
}

TEST(ManagerTest, AnItemWithoutAModuleNameIsSkipped) {
  ManagerHost const host("_level = 1\nnet_level = 1\n");
  VeltDebugMgr::ModuleSets modules;

  ASSERT_TRUE(host.Init("host_", true));
  ASSERT_TRUE(Manager()->GetAllModuleInfo(modules));

  EXPECT_EQ(modules.size(), 2U);
  EXPECT_EQ(modules.count(""), 0U);
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
  ASSERT_TRUE(WaitUntil([&] { return (threads = ThreadCount()) <= 2; })) << "this one, and a sanitizer's own";
  std::size_t const descriptors = DescriptorCount();

  for (int life = 1; life < 100; ++life) live();

  EXPECT_TRUE(WaitUntil([&] { return ThreadCount() <= threads; })) << ThreadCount();
  EXPECT_EQ(DescriptorCount(), descriptors);
}

// --- system ---

class SystemTest : public ::testing::Test {
 protected:
  void SetUp() override {
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    sigaddset(&blocked, SIGTERM);
    ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &blocked, nullptr), 0);
  }

  static bool Blocked(int signal) {
    sigset_t mask;
    sigemptyset(&mask);
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, signal) == 1;
  }

  ScratchDir dir_;
};

volatile std::sig_atomic_t signals_seen = 0;
void CountSignal(int) { signals_seen = signals_seen + 1; }

TEST_F(SystemTest, TheStatusIsThatOfTheShell) {
  EXPECT_EQ(VeltDebugMgr::system("true"), 0);
  EXPECT_EQ(VeltDebugMgr::system(""), 0);
  EXPECT_EQ(VeltDebugMgr::system("exit 3"), 3 << 8);
  EXPECT_EQ(VeltDebugMgr::system("/nonexistent/command 2>/dev/null"), 127 << 8);
  EXPECT_EQ(VeltDebugMgr::system("kill -9 $$"), SIGKILL);
}

TEST_F(SystemTest, ItWaitsForTheCommandWhoseInputIsEmpty) {
  std::string const command = "cat > '" + (dir_ / "out") + "'; echo done >> '" + (dir_ / "out") + "'";

  int const status = VeltDebugMgr::system(command.c_str());

  EXPECT_EQ(status, 0);
  EXPECT_EQ(ReadFile(dir_ / "out"), "done\n");
}

TEST_F(SystemTest, TheCommandRunsWithNoSignalBlockedAndTheCallersMaskComesBack) {
  std::string const command = "grep SigBlk /proc/self/status > '" + (dir_ / "mask") + "'";

  int const status = VeltDebugMgr::system(command.c_str());

  EXPECT_EQ(status, 0);
  EXPECT_EQ(ReadFile(dir_ / "mask"), "SigBlk:\t0000000000000000\n");
  EXPECT_TRUE(Blocked(SIGUSR1));
  EXPECT_TRUE(Blocked(SIGTERM));
  EXPECT_FALSE(Blocked(SIGUSR2));
}

TEST_F(SystemTest, ASignalThatWasHeldBackArrivesMeanwhile) {
  struct sigaction action {};
  action.sa_handler = CountSignal;
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
  signals_seen = 0;
  ASSERT_EQ(raise(SIGUSR1), 0);
  ASSERT_EQ(signals_seen, 0);

  VeltDebugMgr::system("true");

  EXPECT_EQ(signals_seen, 1);
}

TEST_F(SystemTest, ACommandThatCannotBeStartedIsMinusOneAndLeavesTheMaskEmpty) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit none = before;
  none.rlim_cur = 0;  // no descriptor for the pipe

  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  int const status = VeltDebugMgr::system("true");
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);

  EXPECT_EQ(status, -1);
  EXPECT_FALSE(Blocked(SIGUSR1));
  EXPECT_FALSE(Blocked(SIGTERM));
}

TEST_F(SystemTest, NoCommandIsMinusOneAndLeavesTheMaskAlone) {
  EXPECT_EQ(VeltDebugMgr::system(nullptr), -1);
  EXPECT_TRUE(Blocked(SIGUSR1));
}

}  // namespace
}  // namespace velt::test
