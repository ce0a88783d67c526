#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/process.h"
#include "velt/config.h"

namespace velt::test {
namespace {

void Set(char const* name, std::string const& value) { setenv(name, value.c_str(), 1); }

// Starts every test without the four variables.
class PathsTest : public testing::Test {
 protected:
  PathsTest() {
    for (char const* const name : {"APP_ROOT", "COMMON_LIB_PATH", "_APP_LOG_DIR", "_APP_TMP_DIR"})
      unsetenv(name);
  }

  // An installation root with an empty conf directory.
  static void MakeConf(ScratchDir const& root) { ASSERT_EQ(mkdir((root / "conf").c_str(), 0755), 0); }
};

struct DirectoryCase {
  char const* value;
  char const* path;
};

constexpr DirectoryCase kDirectoryCases[] = {
    {"/opt/x", "/opt/x/"},
    {"/opt/x/", "/opt/x/"},
    {"/opt/x//", "/opt/x//"},
    {"  /opt/x \t", "/opt/x/"},
    {"\r\n/opt/x\r\n", "/opt/x/"},
    {"/opt/my app", "/opt/my app/"},
    {"/", "/"},
    {" / ", "/"},
    {"relative", "relative/"},
    {".", "./"},
    {"/a/../b/./c", "/a/../b/./c/"},
    {"${HOME}", "${HOME}/"},
    {"/opt/\xff\xfe", "/opt/\xff\xfe/"},
    {"/a\n/b", "/a\n/b/"},
    {"", ""},
    {" ", ""},
    {" \t\r\n ", ""},
};

TEST_F(PathsTest, TheRootPathIsTheTrimmedVariableWithASlash) {
  for (auto const& row : kDirectoryCases) {
    Set("APP_ROOT", row.value);
    EXPECT_EQ(VeltGetRootPath(), row.path) << '[' << row.value << ']';
  }
}

TEST_F(PathsTest, TheLogPathIsTheTrimmedVariableWithASlash) {
  for (auto const& row : kDirectoryCases) {
    Set("_APP_LOG_DIR", row.value);
    EXPECT_EQ(VeltGetLogPath(), row.path) << '[' << row.value << ']';
  }
}

TEST_F(PathsTest, TheTemporaryPathIsTheTrimmedVariableWithASlash) {
  for (auto const& row : kDirectoryCases) {
    Set("_APP_TMP_DIR", row.value);
    EXPECT_EQ(VeltGetDefaultTempPath(), row.path) << '[' << row.value << ']';
  }
}

TEST_F(PathsTest, UnsetVariablesGiveEmptyPaths) {
  EXPECT_EQ(VeltGetRootPath(), "");
  EXPECT_EQ(VeltGetLogPath(), "");
  EXPECT_EQ(VeltGetDefaultTempPath(), "");
  EXPECT_EQ(VeltGetTraceDir(), "");
}

TEST_F(PathsTest, EachPathHasAVariableOfItsOwn) {
  Set("APP_ROOT", "/r");
  Set("_APP_LOG_DIR", "/l");
  Set("_APP_TMP_DIR", "/t");
  Set("COMMON_LIB_PATH", "/c");

  EXPECT_EQ(VeltGetRootPath(), "/r/");
  EXPECT_EQ(VeltGetLogPath(), "/l/");
  EXPECT_EQ(VeltGetDefaultTempPath(), "/t/");
  EXPECT_EQ(VeltGetTraceDir(), "/l/");
}

TEST_F(PathsTest, AVariableOf5000CharactersIsTakenWhole) {
  std::string const directory = "/" + std::string(4999, 'd');
  Set("APP_ROOT", directory);

  EXPECT_EQ(VeltGetRootPath(), directory + "/");
  EXPECT_EQ(VeltGetDefaultCfgFile(), "") << "no file has a name that long";
}

TEST_F(PathsTest, PathsFollowTheEnvironmentAtEveryCall) {
  Set("APP_ROOT", "/one");
  ASSERT_EQ(VeltGetRootPath(), "/one/");

  Set("APP_ROOT", "/two");

  EXPECT_EQ(VeltGetRootPath(), "/two/");
}

TEST_F(PathsTest, TheDefaultLogPathHasTwoSlashesInTheMiddle) {
  Set("_APP_LOG_DIR", "/var/log/app");

  EXPECT_EQ(VeltGetTraceDir(), "/var/log/app/");
  EXPECT_EQ(VeltGetDefaultLogPath(), "/var/log/app//mrblog/");
}

TEST_F(PathsTest, TheDefaultLogPathIsAbsoluteWithoutALogDirectory) {
  EXPECT_EQ(VeltGetDefaultLogPath(), "/mrblog/");

  Set("_APP_LOG_DIR", " \t");

  EXPECT_EQ(VeltGetDefaultLogPath(), "/mrblog/");
}

TEST_F(PathsTest, TheTraceDirectoryIsKeptOnceItIsKnown) {
  Set("_APP_LOG_DIR", "/first");
  ASSERT_EQ(VeltGetTraceDir(), "/first/");

  Set("_APP_LOG_DIR", "/second");
  EXPECT_EQ(VeltGetTraceDir(), "/first/");
  EXPECT_EQ(VeltGetDefaultLogPath(), "/first//mrblog/");
  EXPECT_EQ(VeltGetLogPath(), "/second/") << "only the trace directory is kept";

  unsetenv("_APP_LOG_DIR");
  EXPECT_EQ(VeltGetTraceDir(), "/first/");
}

TEST_F(PathsTest, AnEmptyTraceDirectoryIsNotKept) {
  ASSERT_EQ(VeltGetTraceDir(), "");
  Set("_APP_LOG_DIR", "  ");
  ASSERT_EQ(VeltGetTraceDir(), "");

  Set("_APP_LOG_DIR", "/late");

  EXPECT_EQ(VeltGetTraceDir(), "/late/");
}

TEST_F(PathsTest, ThreadsThatAskAtOnceGetTheSameTraceDirectory) {
  Set("_APP_LOG_DIR", "/var/log/app");
  std::atomic<int> wrong{0};
  std::atomic<int> arrived{0};

  std::vector<std::thread> threads;
  threads.reserve(8);
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&wrong, &arrived] {
      ++arrived;
      while (arrived < 8) std::this_thread::yield();
      for (int n = 0; n < 200; ++n) {
        if (VeltGetTraceDir() != "/var/log/app/") ++wrong;
      }
    });
  }
  for (auto& thread : threads) thread.join();

  EXPECT_EQ(wrong, 0);
}

TEST_F(PathsTest, TheDefaultConfigurationPathIsRelativeWithoutARoot) {
  EXPECT_EQ(VeltGetDefaultCfgPath(), "conf/");

  Set("APP_ROOT", " /r ");

  EXPECT_EQ(VeltGetDefaultCfgPath(), "/r/conf/");
}

TEST_F(PathsTest, AConfigurationFileOfTheRootComesFirst) {
  ScratchDir const root;
  MakeConf(root);
  WriteFile(root / "conf/velt.cfg", "");
  Set("APP_ROOT", root.Path());
  Set("COMMON_LIB_PATH", "/c");

  EXPECT_EQ(VeltGetDefaultCfgFile(), root.Path() + "/conf/velt.cfg");
  EXPECT_EQ(VeltGetConfFullPath("velt.cfg"), root.Path() + "/conf/velt.cfg");
}

TEST_F(PathsTest, AFileThatMayNotBeReadExistsAllTheSame) {
  ScratchDir const root;
  MakeConf(root);
  WriteFile(root / "conf/velt.cfg", "");
  ASSERT_EQ(chmod(root.Path().c_str(), 0755), 0);
  ASSERT_EQ(chmod((root / "conf/velt.cfg").c_str(), 0), 0);
  Set("APP_ROOT", root.Path());
  Set("COMMON_LIB_PATH", "/c");

  Outcome const ordinary_user = RunInChild([&root] {
    constexpr unsigned kNobody = 65534;
    if (geteuid() == 0 && (setgid(kNobody) != 0 || setuid(kNobody) != 0)) return 99;
    return VeltGetDefaultCfgFile() == root.Path() + "/conf/velt.cfg" ? 0 : 1;
  });

  EXPECT_EQ(ordinary_user.exit_code, 0);
}

TEST_F(PathsTest, TheSharedInstallationStandsInUnchecked) {
  ScratchDir const root;
  Set("APP_ROOT", root.Path());
  Set("COMMON_LIB_PATH", "/c");

  EXPECT_EQ(VeltGetDefaultCfgFile(), "/c/conf/velt.cfg");
  EXPECT_EQ(VeltGetDefaultDebugCfgFile(), "/c/conf/default_debug.cfg");
  EXPECT_EQ(VeltGetDefaultSslPath(), "/c/conf/ssl");
  EXPECT_EQ(VeltGetConfFullPath("other"), "/c/conf/other");
}

TEST_F(PathsTest, WithoutASharedInstallationAMissingFileIsEmpty) {
  ScratchDir const root;
  Set("APP_ROOT", root.Path());

  EXPECT_EQ(VeltGetDefaultCfgFile(), "");
  EXPECT_EQ(VeltGetDefaultDebugCfgFile(), "");
  EXPECT_EQ(VeltGetDefaultSslPath(), "");
}

TEST_F(PathsTest, WithoutARootTheSharedInstallationIsNotLookedAt) {
  ScratchDir const shared;
  MakeConf(shared);
  WriteFile(shared / "conf/velt.cfg", "");
  Set("COMMON_LIB_PATH", shared.Path());

  EXPECT_EQ(VeltGetDefaultCfgFile(), "");
  EXPECT_EQ(VeltGetDefaultDebugCfgFile(), "");
  EXPECT_EQ(VeltGetDefaultSslPath(), "");
}

TEST_F(PathsTest, AnEmptyRootIsSetAllTheSame) {
  Set("APP_ROOT", "");
  Set("COMMON_LIB_PATH", "");

  EXPECT_EQ(VeltGetConfFullPath("no_such_file.cfg"), "/conf/no_such_file.cfg");
}

TEST_F(PathsTest, ConfigurationFilesUseTheVariablesUntrimmed) {
  Set("APP_ROOT", "/nonexistent");
  Set("COMMON_LIB_PATH", " /c/ ");

  EXPECT_EQ(VeltGetDefaultCfgFile(), " /c/ /conf/velt.cfg");
}

TEST_F(PathsTest, ARootThatEndsInASlashGivesTwo) {
  ScratchDir const root;
  MakeConf(root);
  WriteFile(root / "conf/default_debug.cfg", "");
  Set("APP_ROOT", root.Path() + "/");

  EXPECT_EQ(VeltGetDefaultDebugCfgFile(), root.Path() + "//conf/default_debug.cfg");
}

TEST_F(PathsTest, ABlankInFrontOfTheRootHidesItsFiles) {
  ScratchDir const root;
  MakeConf(root);
  WriteFile(root / "conf/velt.cfg", "");
  Set("APP_ROOT", " " + root.Path());

  EXPECT_EQ(VeltGetDefaultCfgFile(), "");
}

TEST_F(PathsTest, TheSslPathHasNoSlashAtItsEnd) {
  ScratchDir const root;
  MakeConf(root);
  ASSERT_EQ(mkdir((root / "conf/ssl").c_str(), 0755), 0);
  Set("APP_ROOT", root.Path());

  EXPECT_EQ(VeltGetDefaultSslPath(), root.Path() + "/conf/ssl");
}

TEST_F(PathsTest, AnEmptyFileNameIsTheConfigurationDirectory) {
  ScratchDir const root;
  MakeConf(root);
  Set("APP_ROOT", root.Path());

  EXPECT_EQ(VeltGetConfFullPath(""), root.Path() + "/conf/");
}

}  // namespace
}  // namespace velt::test
