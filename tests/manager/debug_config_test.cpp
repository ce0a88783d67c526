// The debug configuration as a whole: which files are read, in which order, and under which keys.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/manager/debug_config.h"
#include "tests/support/manager_host.h"

namespace velt::test {
namespace {

// --- which files are read ---

TEST_F(DebugConfigTest, WithoutAnyFileTheNumbersAreTheDefaultsAndNoModuleIsEntered) {
  for (auto const& file : {std::string(), Missing()}) {
    Items const items = Read(file);

    EXPECT_EQ(items.Numbers(), kDefaultNumbers) << file;
    EXPECT_TRUE(items.modules.empty()) << file;
  }
}

TEST_F(DebugConfigTest, AMainConfigurationAloneDoesNotCountWithoutADefaultDebugFile) {
  DefaultFile("nMaxFileNum = 7\n");
  UseRoot();

  Items const items = Read("");

  EXPECT_EQ(items.Numbers(), kDefaultNumbers);
  EXPECT_TRUE(items.modules.empty());
}

TEST_F(DebugConfigTest, WithoutADefaultDebugFileTheGivenOneIsReadAlone) {
  DefaultFile("nMaxFileNum = 7\nnEachFileMaxSize = 7\ndebug_level = 1\n");
  UseRoot();
  std::string const given = Write("given.cfg", "nMaxFileNum = 9\n");

  Items const items = Read(given);

  EXPECT_EQ(items.channels, 9);
  EXPECT_EQ(items.file_size, 5242880) << "the main configuration file is not read";
  EXPECT_EQ(items.modules, (ModuleSets{{"debug", Sets{BitsOf({0, 1}), BitsOf({1})}}}));
}

TEST_F(DebugConfigTest, WithoutAnInstallationTheGivenFileIsReadAlone) {
  std::string const given = Write("given.cfg",
                                  "nFiltLogBufSize = 1\nnMaxFileNum = 2\nnEachFileMaxSize = 3\n"
                                  "nEachProcessMaxZipNum = 4\nnZipFileIncludeFileNum = 5\nnet_level = 1\n");

  Items const items = Read(given);

  EXPECT_EQ(items.Numbers(), (std::vector<int>{1, 2, 3145728, 4, 5}));
  EXPECT_EQ(items.modules.at("net").first, BitsOf({0}));
}

TEST_F(DebugConfigTest, TheDefaultDebugFileStandsInForNoFileAndForAMissingOne) {
  DefaultDebugFile("nMaxFileNum = 7\nnet_level = 0001\n");
  UseRoot();
  for (auto const& file : {std::string(), Missing()}) {
    Items const items = Read(file);

    EXPECT_EQ(items.channels, 7) << file;
    EXPECT_EQ(items.modules.at("net").first, BitsOf({3})) << file;
  }
}

TEST_F(DebugConfigTest, TheMainConfigurationIsSecondForNumbersAndNeverGivesModules) {
  DefaultDebugFile("nMaxFileNum = 7\n");
  DefaultFile("nMaxFileNum = 8\nnEachProcessMaxZipNum = 9\nnEachFileMaxSize = 2\nnet_level = 1\n");
  UseRoot();

  Items const items = Read("");

  EXPECT_EQ(items.Numbers(), (std::vector<int>{100, 7, 2097152, 9, 10}));
  EXPECT_EQ(items.modules.count("net"), 0U);
}

TEST_F(DebugConfigTest, AGivenFileReplacesTheDefaultDebugFileAndKeepsTheMainConfigurationSecond) {
  DefaultDebugFile("nMaxFileNum = 7\nnFiltLogBufSize = 7\nweb_level = 1\n");
  DefaultFile("nMaxFileNum = 8\nnEachProcessMaxZipNum = 9\n");
  UseRoot();
  std::string const given = Write("given.cfg", "nMaxFileNum = 3\nnet_level = 1\n");

  Items const items = Read(given);

  EXPECT_EQ(items.Numbers(), (std::vector<int>{100, 3, 5242880, 9, 10}));
  EXPECT_EQ(items.modules.count("net"), 1U);
  EXPECT_EQ(items.modules.count("web"), 0U);
}

TEST_F(DebugConfigTest, TheMainConfigurationGivenAsTheFileIsReadOnce) {
  DefaultDebugFile("nMaxFileNum = 7\n");
  std::string const main = DefaultFile("nMaxFileNum = 8\nnet_level = 1\n");
  UseRoot();

  Items const items = Read((dir_ / "root") + "/conf/velt.cfg");

  ASSERT_EQ(main, (dir_ / "root") + "/conf/velt.cfg");
  EXPECT_EQ(items.channels, 8);
  EXPECT_EQ(items.modules.at("debug"), (Sets{BitsOf({0, 1}), BitsOf({1})}));
  EXPECT_EQ(items.modules.at("net").first, BitsOf({0}));
}

TEST_F(DebugConfigTest, ADefaultDebugFileThatIsOnlyNamedButMissingStillCountsAsNamed) {
  UseRoot();
  UseLib();  // its conf directory is empty: the file is named without being there
  Items const items = Read("");

  EXPECT_EQ(items.Numbers(), kDefaultNumbers);
  EXPECT_EQ(items.modules, (ModuleSets{{"debug", Sets{BitsOf({0, 1}), BitsOf({1})}}}));
}

TEST_F(DebugConfigTest, TheSharedInstallationIsUsedWhereTheRootHasNoFile) {
  DefaultDebugFile("nMaxFileNum = 7\n");
  Write("lib/conf/velt.cfg", "nEachProcessMaxZipNum = 9\n");
  UseRoot();
  UseLib();

  Items const items = Read("");

  EXPECT_EQ(items.Numbers(), (std::vector<int>{100, 7, 5242880, 9, 10}));
}

TEST_F(DebugConfigTest, ADirectoryGivenAsTheFileExistsAndHoldsNothing) {
  DefaultDebugFile("nMaxFileNum = 7\nnet_level = 1\n");
  UseRoot();

  Items const items = Read(dir_.Path());

  EXPECT_EQ(items.Numbers(), kDefaultNumbers);
  EXPECT_EQ(items.modules, (ModuleSets{{"debug", Sets{BitsOf({0, 1}), BitsOf({1})}}}));
}

// --- texts of module debug over two files ---

TEST_F(DebugConfigTest, ALevelOfDebugOnlyInTheSecondaryFileLeavesTheEmptyLevelSet) {
  DefaultDebugFile("# none\n");
  DefaultFile("debug_level = 0011\n");
  UseRoot();

  Items const items = Read("");

  EXPECT_EQ(items.modules.at("debug"), (Sets{BitsOf({}), BitsOf({1})}));
}

TEST_F(DebugConfigTest, AnOutputOfDebugOnlyInTheSecondaryFileLeavesTheEmptyOutputSet) {
  DefaultDebugFile("# none\n");
  DefaultFile("debug_output = 11\n");
  UseRoot();

  Items const items = Read("");

  EXPECT_EQ(items.modules.at("debug"), (Sets{BitsOf({0, 1}), BitsOf({})}));
}

TEST_F(DebugConfigTest, ALevelOfDebugInThePrimaryFileResetsTheOutputsToTheLogFile) {
  DefaultDebugFile("debug_level = 0011\n");
  DefaultFile("debug_output = 1\n");
  UseRoot();

  Items const items = Read("");

  EXPECT_EQ(items.modules.at("debug"), (Sets{BitsOf({2, 3}), BitsOf({1})}));
}

TEST_F(DebugConfigTest, ALevelAndAnOutputOfDebugInThePrimaryFileBothHold) {
  DefaultDebugFile("debug_level = 0011\ndebug_output = 1\n");
  DefaultFile("debug_output = 01\n");
  UseRoot();

  Items const items = Read("");

  EXPECT_EQ(items.modules.at("debug"), (Sets{BitsOf({2, 3}), BitsOf({0})}));
}

TEST_F(DebugConfigTest, AnOutputOfDebugInThePrimaryFileKeepsTheEmptyLevelSetOfTheSecondary) {
  DefaultDebugFile("debug_output = 1\n");
  DefaultFile("debug_level = 0011\n");
  UseRoot();

  Items const items = Read("");

  EXPECT_EQ(items.modules.at("debug"), (Sets{BitsOf({}), BitsOf({0})}));
}

// --- the exported keys ---

// Points an exported key somewhere else for one test.
class KeyChange {
 public:
  KeyChange(char const*& key, char const* text) : key_(key), before_(key) { key_ = text; }
  ~KeyChange() { key_ = before_; }
  KeyChange(KeyChange const&) = delete;
  KeyChange& operator=(KeyChange const&) = delete;

 private:
  char const*& key_;
  char const* before_;
};

TEST_F(DebugConfigTest, TheExportedKeysHoldTheKeysOfTheFile) {
  EXPECT_STREQ(DEBUGLEVELITEM, "debug_level");
  EXPECT_STREQ(DEBUGOUPUTTITEM, "debug_output");
  EXPECT_STREQ(MAXLOGSIZEITEM, "nEachFileMaxSize");
  EXPECT_STREQ(MAXFILENUMITEM, "nMaxFileNum");
  EXPECT_STREQ(NFILTLOGBUFSIZE, "nFiltLogBufSize");
  EXPECT_STREQ(MAXZIPNUMINPROCITEM, "nEachProcessMaxZipNum");
  EXPECT_STREQ(FILENUMINZIPITEM, "nZipFileIncludeFileNum");
}

TEST_F(DebugConfigTest, EveryLookUpReadsThroughItsExportedKey) {
  KeyChange const keys[] = {{NFILTLOGBUFSIZE, "k1"},     {MAXFILENUMITEM, "k2"},   {MAXLOGSIZEITEM, "k3"},
                            {MAXZIPNUMINPROCITEM, "k4"}, {FILENUMINZIPITEM, "k5"}, {DEBUGLEVELITEM, "k6"},
                            {DEBUGOUPUTTITEM, "k7"}};
  std::string const file = Write("p.cfg",
                                 "nFiltLogBufSize = 91\nnMaxFileNum = 92\nnEachFileMaxSize = 93\n"
                                 "nEachProcessMaxZipNum = 94\nnZipFileIncludeFileNum = 95\n"
                                 "k1 = 1\nk2 = 2\nk3 = 3\nk4 = 4\nk5 = 5\nk6 = 000001\nk7 = 0000001\n");

  Items const items = Read(file);

  EXPECT_EQ(items.Numbers(), (std::vector<int>{1, 2, 3145728, 4, 5}));
  EXPECT_EQ(items.modules.at("debug"), (Sets{BitsOf({5}), BitsOf({6})}));
}

TEST_F(DebugConfigTest, ANullKeyIsFoundNowhere) {
  KeyChange const keys[] = {{NFILTLOGBUFSIZE, nullptr},  {MAXFILENUMITEM, nullptr},
                            {MAXLOGSIZEITEM, nullptr},   {MAXZIPNUMINPROCITEM, nullptr},
                            {FILENUMINZIPITEM, nullptr}, {DEBUGLEVELITEM, nullptr},
                            {DEBUGOUPUTTITEM, nullptr}};
  std::string const file = Write("p.cfg", "nMaxFileNum = 92\n= 3\n");

  Items const items = Read(file);

  EXPECT_EQ(items.Numbers(), kDefaultNumbers);
  EXPECT_EQ(items.modules.at("debug"), (Sets{BitsOf({0, 1}), BitsOf({1})}));
}

}  // namespace
}  // namespace velt::test
