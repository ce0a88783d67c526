// Init: what it refuses, what it makes, which configuration and which path it takes.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/support/files.h"
#include "tests/support/manager.h"
#include "tests/support/manager_host.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

namespace fs = std::filesystem;

TEST(InitTest, InitWithAnEmptyNameIsRefusedBeforeAnythingIsMade) {
  ManagerHost const host("net_level = 1\n");
  Bits levels;
  Bits outputs;

  bool const done = host.Init("");

  EXPECT_FALSE(done);
  EXPECT_FALSE(Manager()->IsInit());
  EXPECT_FALSE(Exists(host.LogDir()));
  EXPECT_FALSE(Manager()->GetSubModuleInfo("net", levels, outputs));
}

TEST(InitTest, ARefusedInitCanBeFollowedByAGoodOne) {
  ManagerHost const host;
  ASSERT_FALSE(host.Init("", true));

  bool const done = host.Init();

  EXPECT_TRUE(done);
  EXPECT_TRUE(Manager()->Trace("net", kLevel3, "x", nullptr, false, true)) << "no longer silent";
  EXPECT_TRUE(Contains(host.StopAndRead(), " net I: x"));
}

TEST(InitTest, ASecondInitReturnsTrueAndChangesNothing) {
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

TEST(InitTest, TheMainChannelBearsNameDirectoryAndHeader) {
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

TEST(InitTest, TheMainChannelAddsNoOutputOfItsOwn) {
  ManagerHost const host;
  CaptureStdout output;
  ASSERT_TRUE(host.Init());
  ASSERT_TRUE(Manager()->Trace("net", kFiltered, "filtered", nullptr, false, false));
  ASSERT_TRUE(Manager()->Trace("net", kLevel3, "logged", nullptr, false, true));

  auto const records = host.StopAndRead();

  EXPECT_EQ(records, (std::vector<std::string>{" net I: logged"}));
  EXPECT_EQ(output.Text(), "");
}

TEST(InitTest, TheLogDirectoryIsMadeOneLevelDeepAndOpenToAll) {
  ManagerHost const host;
  umask(0);

  ASSERT_TRUE(host.Init("host_", true));

  EXPECT_EQ(ModeOf(host.LogDir()), 0755U);
}

TEST(InitTest, ALogDirectoryWhoseParentIsMissingIsNotMadeAndDestroyStillReturns) {
  ManagerHost const host;
  std::string const deep = host.Dir() / "a/b";

  bool const done = Manager()->Init("host_", "", deep, "", true, false);
  bool const queued = Manager()->Trace("net", kLevel3, "x", nullptr, false, true);
  int const destroyed = VeltDebugMgr::Destroy();

  EXPECT_TRUE(done) << "the path test refuses no missing directory";
  EXPECT_TRUE(queued);
  EXPECT_EQ(destroyed, 0);
  EXPECT_FALSE(Exists(host.Dir() / "a"));
}

TEST(InitTest, AnEmptyLogDirectoryStandsForTheDefaultOne) {
  ManagerHost const host;

  ASSERT_TRUE(Manager()->Init("host_", host.ConfigFile(), "", "", true, false));
  ASSERT_TRUE(Manager()->Trace("net", kLevel3, "x", nullptr, false, true));
  VeltDebugMgr::Destroy();

  EXPECT_EQ(Bodies(ExactFamilyText(host.Dir() / "mrblog", "host_")), (std::vector<std::string>{" net I: x"}));
}

TEST(InitTest, SilentInitRegistersTheModulesAndOpensNothing) {
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

TEST(InitTest, SilentInitSkipsThePathTest) {
  ManagerHost const host;

  EXPECT_TRUE(host.Init("a/b", true));
  EXPECT_TRUE(Manager()->IsInit());
}

TEST(InitTest, WithoutAnyConfigurationNoModuleIsRegistered) {
  ManagerHost const host;
  ASSERT_TRUE(Manager()->Init("host_", "", host.LogDir(), "", true, true));
  VeltDebugMgr::ModuleSets modules;

  bool const got = Manager()->GetAllModuleInfo(modules);

  EXPECT_TRUE(got);
  EXPECT_TRUE(modules.empty()) << "not even debug";
}

TEST(InitTest, AMissingConfigurationFileGivesWayToTheInstallationsOwn) {
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

TEST(InitTest, ANameWithASlashNeedsAPathThatExists) {
  ManagerHost const host;

  EXPECT_FALSE(host.Init("/sub/"));
  EXPECT_FALSE(Manager()->IsInit());
  EXPECT_EQ(ExactFamily(host.LogDir(), "").size(), 0U);

  fs::create_directories(host.LogDir() + "/sub");
  EXPECT_TRUE(host.Init("/sub/"));
  EXPECT_TRUE(Manager()->IsInit());
}

TEST(InitTest, ThePathIsDirectoryAndNameWithoutASeparator) {
  ManagerHost const host;
  fs::create_directories(host.LogDir() + "/sub");

  EXPECT_FALSE(host.Init("sub/x")) << "it looks for logsub/x";

  fs::create_directories(host.Dir() / "logsub/x");
  EXPECT_TRUE(host.Init("sub/x"));
}

TEST(InitTest, ANameTooLongForAPathIsRefusedAndOneThatIsMerelyAbsentIsNot) {
  ManagerHost const host;

  EXPECT_FALSE(host.Init(std::string(300, 'n')));
  EXPECT_FALSE(Manager()->IsInit());
  EXPECT_TRUE(host.Init(std::string(200, 'n')));
}

TEST(InitTest, ALogDirectoryThatIsAFileIsNoReasonToRefuse) {
  ManagerHost const host;
  WriteFile(host.LogDir(), "");

  bool const done = Manager()->Init("host_", "", host.LogDir() + "/", "", true, false);
  int const destroyed = VeltDebugMgr::Destroy();

  EXPECT_TRUE(done);
  EXPECT_EQ(destroyed, 0);
}

TEST(InitTest, AFailedPathTestLeavesTheModulesStored) {
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

// --- the sets of configured modules ---

TEST(InitTest, ConfiguredSetsAbove4369LoseAllButTheirFirstFourBits) {
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

TEST(InitTest, SetsRegisteredByTheHostAreNotMasked) {
  ManagerHost const host;
  ASSERT_TRUE(host.Init("host_", true));
  Bits levels;
  Bits outputs;

  ASSERT_TRUE(Manager()->RegSubModuleInfo("net", Bits(0xFFFFFFFFU), BitsOf({13}), false));

  ASSERT_TRUE(Manager()->GetSubModuleInfo("net", levels, outputs));
  EXPECT_EQ(levels, Bits(0xFFFFFFFFU));
  EXPECT_EQ(outputs, BitsOf({13}));
}

TEST(InitTest, AnItemWithoutAModuleNameIsSkipped) {
  ManagerHost const host("_level = 1\nnet_level = 1\n");
  VeltDebugMgr::ModuleSets modules;

  ASSERT_TRUE(host.Init("host_", true));
  ASSERT_TRUE(Manager()->GetAllModuleInfo(modules));

  EXPECT_EQ(modules.size(), 2U);
  EXPECT_EQ(modules.count(""), 0U);
}

}  // namespace
}  // namespace velt::test
