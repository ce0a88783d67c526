// What Init and ReloadModules report of the configuration.
#include <cerrno>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "velt/manager.h"
#include "velt/problem.h"

#include "tests/support/manager.h"
#include "tests/support/manager_host.h"

namespace velt::test {
namespace {

struct Told {
  VeltProblemKind kind;
  std::string sentence;
  std::string path;
  int error;
};
std::vector<Told> told;

void Keep(VeltProblem const& problem) {
  told.push_back({problem.kind, problem.sentence, problem.path, problem.error});
}

std::vector<std::string> Sentences() {
  std::vector<std::string> sentences;
  for (auto const& one : told) sentences.push_back(one.sentence);
  return sentences;
}

class ConfigProblemsTest : public ::testing::Test {
 protected:
  ConfigProblemsTest() { VeltSetProblemHandler(Keep); }
  ~ConfigProblemsTest() override { VeltSetProblemHandler(nullptr); }

  // Init with that configuration.
  static void InitWith(std::string const& configuration) {
    ManagerHost const host(configuration);
    EXPECT_TRUE(host.Init("host_", true));
    file = host.ConfigFile();
  }
  static std::string In(std::string const& key, std::string const& rest) {
    std::string sentence = key;
    return sentence.append(" in ").append(file).append(rest);
  }

  static std::string NotTaken(std::string const& path) {
    return "the modules of the configuration file " + path + " were not taken, nothing has changed";
  }

  inline static std::string file;
};

TEST_F(ConfigProblemsTest, AConfigurationThatIsInOrderTellsNothing) {
  InitWith("nEachFileMaxSize = 7\nnet_level = 1111\nnet_output = 1100\n");
  EXPECT_TRUE(told.empty()) << told.front().sentence;
}

TEST_F(ConfigProblemsTest, AFileThatIsMissingIsToldAndSoIsTheMissingDefaultModule) {
  ManagerHost const host;
  std::string const missing = host.Dir() / "host.cgf";
  ASSERT_TRUE(Manager()->Init("host_", missing, host.LogDir(), "", true, true));

  ASSERT_EQ(told.size(), 2U);
  EXPECT_EQ(told[0].kind, VeltProblemKind::kNoConfiguration);
  EXPECT_EQ(told[0].sentence, "the configuration file " + missing +
                                  " is missing, the defaults are used: No such file or directory (2)");
  EXPECT_EQ(told[0].path, missing);
  EXPECT_EQ(told[0].error, ENOENT);
  EXPECT_EQ(told[1].kind, VeltProblemKind::kNoDefaultModule);
  EXPECT_EQ(told[1].sentence, "no module \"debug\" exists, modules that are not registered reach no output");
  EXPECT_EQ(told[1].path, "");
  EXPECT_EQ(told[1].error, 0);
}

TEST_F(ConfigProblemsTest, EachNumberOutOfItsBoundsIsToldWithWhatReplacesIt) {
  InitWith(
      "nFiltLogBufSize = 1001\nnMaxFileNum = -1\nnEachFileMaxSize = 51\nnEachProcessMaxZipNum = 0\n"
      "nZipFileIncludeFileNum = 99\n");

  EXPECT_THAT(Sentences(), testing::ElementsAre(
                               In("nFiltLogBufSize", " is outside 0 to 1000 and was replaced by 100"),
                               In("nMaxFileNum", " is outside 0 to 100 and was replaced by 50"),
                               In("nEachFileMaxSize", " is outside 1 to 50 and was replaced by 5"),
                               In("nEachProcessMaxZipNum", " is outside 1 to 200 and was replaced by 30"),
                               In("nZipFileIncludeFileNum", " is outside 1 to 50 and was replaced by 10")));
  for (auto const& one : told) {
    EXPECT_EQ(one.kind, VeltProblemKind::kValueReplaced);
    EXPECT_EQ(one.path, file);
    EXPECT_EQ(one.error, 0);
  }
}

TEST_F(ConfigProblemsTest, ATextThatIsNoSetIsToldWithWhatReplacesIt) {
  InitWith("net_level = 11x0\ndb_output = 2\nok_level = 1010\n");

  EXPECT_THAT(Sentences(), testing::UnorderedElementsAre(
                               In("net_level", " is no text of 0 and 1 and was replaced by 1100"),
                               In("db_output", " is no text of 0 and 1 and was replaced by 1100")));
}

TEST_F(ConfigProblemsTest, AReloadThatIsNotTakenIsTold) {
  ManagerHost const host("net_level = 1111\n");
  ASSERT_TRUE(host.Init("host_", true));
  WriteFile(host.ConfigFile(), "net_level = 1x11\n");
  EXPECT_FALSE(Manager()->ReloadModules());
  EXPECT_FALSE(Manager()->ReloadModules());

  ASSERT_EQ(told.size(), 1U) << "the second within ten seconds is counted";
  EXPECT_EQ(told[0].kind, VeltProblemKind::kNoConfiguration);
  EXPECT_EQ(told[0].sentence, NotTaken(host.ConfigFile()) + ": net_level is no text of 0 and 1");
  EXPECT_EQ(told[0].path, host.ConfigFile());
  EXPECT_EQ(told[0].error, 0);
}

TEST_F(ConfigProblemsTest, AReloadThatIsNotTakenTellsWhatIsWrongWithTheFile) {
  std::vector<std::pair<std::string, std::string>> const faults = {
      {"ok_level = 1\nnet_output = 2\n", "net_output is no text of 0 and 1"},
      {"debug_level = 01a\nnet_level = 1\n", "debug_level is no text of 0 and 1"},
      {"nMaxFileNum = 3\n", "it names no module"},
      {"", "it names no module"}};
  for (auto const& [content, fault] : faults) {
    ManagerHost const host("net_level = 1111\n");
    ASSERT_TRUE(host.Init("host_", true));
    WriteFile(host.ConfigFile(), content);
    EXPECT_FALSE(Manager()->ReloadModules());
    ASSERT_FALSE(told.empty()) << content;
    EXPECT_EQ(told.back().sentence, NotTaken(host.ConfigFile()) + ": " + fault);
    EXPECT_EQ(told.back().error, 0);
    VeltDebugMgr::Destroy();
  }
  EXPECT_EQ(told.size(), faults.size());
}

TEST_F(ConfigProblemsTest, AReloadWithoutAFileTellsWhatIsInItsPlace) {
  ManagerHost const host("net_level = 1111\n");
  ASSERT_TRUE(host.Init("host_", true));
  std::filesystem::remove(host.ConfigFile());
  EXPECT_FALSE(Manager()->ReloadModules());
  ASSERT_EQ(told.size(), 1U);
  EXPECT_EQ(told[0].sentence, NotTaken(host.ConfigFile()) + ": No such file or directory (2)");
  EXPECT_EQ(told[0].error, ENOENT);
  VeltDebugMgr::Destroy();

  ManagerHost const other("net_level = 1111\n");
  ASSERT_TRUE(other.Init("host_", true));
  std::filesystem::remove(other.ConfigFile());
  std::filesystem::create_directory(other.ConfigFile());
  EXPECT_FALSE(Manager()->ReloadModules());
  ASSERT_EQ(told.size(), 2U);
  EXPECT_EQ(told[1].sentence, NotTaken(other.ConfigFile()) + ": it is not a regular file");
}

// Makes calls that together need all of the manager's locks.
void UseTheManager(VeltProblem const& problem) {
  Keep(problem);
  std::map<std::string, VeltTraceCounts> counts;
  (void)Manager()->GetCounts(counts);
  (void)Manager()->Flush(10);
  Manager()->SetQueueWait(1'000);
  Bits levels;
  Bits outputs;
  (void)Manager()->GetSubModuleInfo("debug", levels, outputs);
  (void)Manager()->RegSubModuleInfo("handler", BitsOf({1, 2, 3}), BitsOf({0, 1}), false);
  (void)Manager()->Trace("handler", VeltLogLevel{3}, "from the handler", nullptr, false, true);
  (void)Manager()->Init("host_", "", "", "", true, true);
}

TEST_F(ConfigProblemsTest, AHandlerMayUseTheManagerWhichIsInitialisedByThen) {
  VeltSetProblemHandler(UseTheManager);
  ManagerHost const host("nMaxFileNum = 500\nnEachProcessMaxZipNum = 500\n");
  ASSERT_TRUE(host.Init());
  EXPECT_EQ(told.size(), 2U) << "once each: the handler's own calls are not reported to it";

  EXPECT_THAT(host.StopAndRead(),
              testing::ElementsAre(" handler I: from the handler", " handler I: from the handler"));
}

TEST_F(ConfigProblemsTest, WithoutAHandlerAndWithTheEnvironmentTheyAreLinesOfStandardError) {
  VeltSetProblemHandler(nullptr);
  auto const outcome = RunInChild([] {
    setenv("VELT_PROBLEMS", "stderr", 1);
    ManagerHost const host("nMaxFileNum = 500\n");
    return host.Init("host_", true) ? 0 : 1;
  });

  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(outcome.err,
              testing::MatchesRegex("veltbaseutil: nMaxFileNum in .*/host.cfg is outside 0 to 100 and was "
                                    "replaced by 50\n"));
}

}  // namespace
}  // namespace velt::test
