// The debug configuration: keys, defaults, the order of files, and the module table made of it.
#include <bitset>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/support/manager_host.h"

namespace velt::test {
namespace {

using Sets = std::pair<Bits, Bits>;
using ModuleSets = VeltDebugMgr::ModuleSets;

struct NumberReader {
  char const* key;
  bool (*read)(int&, std::string const&, std::string const&, bool);
  int found_7;   // what the value 7 in a file becomes
  int fallback;  // what an absent key becomes
};

NumberReader const kNumberReaders[] = {
    {"nFiltLogBufSize", &VeltDebugMgr::GetFiltLogBufSize, 7, 100},
    {"nMaxFileNum", &VeltDebugMgr::GetMaxFileNum, 7, 50},
    {"nEachFileMaxSize", &VeltDebugMgr::GetMaxFileSize, 7340032, 5242880},
    {"nEachProcessMaxZipNum", &VeltDebugMgr::GetEachProcessMaxZipNum, 7, 30},
    {"nZipFileIncludeFileNum", &VeltDebugMgr::GetZipFileIncludeFileNum, 7, 10},
};

struct TextReader {
  char const* key;
  void (*read)(std::string&, char*, int&, std::string const&, std::string const&, bool);
  char const* fallback;
};

TextReader const kTextReaders[] = {
    {"debug_level", &VeltDebugMgr::GetStrlevel, "1100"},
    {"debug_output", &VeltDebugMgr::GetStroutput, "0100"},
};

// What GetCfgItem gave, from values that no reader would produce.
struct Items {
  int ring = -7;
  int channels = -7;
  int file_size = -7;
  int archives = -7;
  int files_per_archive = -7;
  ModuleSets modules;

  std::vector<int> Numbers() const { return {ring, channels, file_size, archives, files_per_archive}; }
};

std::vector<int> const kDefaultNumbers{100, 50, 5242880, 30, 10};

class DebugConfigTest : public ::testing::Test {
 protected:
  void SetUp() override {
    unsetenv("APP_ROOT");
    unsetenv("COMMON_LIB_PATH");
    std::filesystem::create_directories(dir_ / "root/conf");
    std::filesystem::create_directories(dir_ / "lib/conf");
  }
  void TearDown() override { VeltDebugMgr::Destroy(); }

  void UseRoot() const { setenv("APP_ROOT", (dir_ / "root").c_str(), 1); }
  void UseLib() const { setenv("COMMON_LIB_PATH", (dir_ / "lib").c_str(), 1); }

  std::string Write(std::string const& name, std::string const& content) const {
    WriteFile(dir_ / name, content);
    return dir_ / name;
  }
  std::string Missing() const { return dir_ / "missing.cfg"; }
  std::string DefaultDebugFile(std::string const& content) const {
    return Write("root/conf/default_debug.cfg", content);
  }
  std::string DefaultFile(std::string const& content) const { return Write("root/conf/velt.cfg", content); }

  static Items Read(std::string const& file) {
    Items items;
    VeltDebugMgr::Instance()->GetCfgItem(file, items.ring, items.channels, items.file_size, items.archives,
                                         items.files_per_archive, items.modules);
    return items;
  }

  // The module table of one primary file without an installation around it.
  ModuleSets Modules(std::string const& content) const { return Read(Write("primary.cfg", content)).modules; }

  ScratchDir dir_;
};

// --- the five numbers ---

TEST_F(DebugConfigTest, ANumberComesFromThePrimaryFileFirst) {
  for (auto const& reader : kNumberReaders) {
    SCOPED_TRACE(reader.key);
    std::string const primary = Write("p.cfg", std::string(reader.key) + " = 7\n");
    std::string const secondary = Write("s.cfg", std::string(reader.key) + " = 9\n");
    for (bool const primary_only : {true, false}) {
      int value = -7;
      EXPECT_TRUE(reader.read(value, primary, secondary, primary_only));
      EXPECT_EQ(value, reader.found_7);
    }
  }
}

TEST_F(DebugConfigTest, ANumberComesFromTheSecondaryFileWhenThePrimaryHasNone) {
  for (auto const& reader : kNumberReaders) {
    SCOPED_TRACE(reader.key);
    std::string const primary = Write("p.cfg", "other = 1\n");
    std::string const secondary = Write("s.cfg", std::string(reader.key) + " = 7\n");
    int value = -7;

    bool const found = reader.read(value, primary, secondary, false);

    EXPECT_TRUE(found);
    EXPECT_EQ(value, reader.found_7);
  }
}

TEST_F(DebugConfigTest, ThePrimaryFileAloneIsReadWhenItShallBe) {
  for (auto const& reader : kNumberReaders) {
    SCOPED_TRACE(reader.key);
    std::string const primary = Write("p.cfg", "other = 1\n");
    std::string const secondary = Write("s.cfg", std::string(reader.key) + " = 7\n");
    int value = -7;

    bool const found = reader.read(value, primary, secondary, true);

    EXPECT_FALSE(found);
    EXPECT_EQ(value, reader.fallback);
  }
}

TEST_F(DebugConfigTest, AnAbsentNumberIsFalseAndTheDefaultInItsFinalUnit) {
  for (auto const& reader : kNumberReaders) {
    SCOPED_TRACE(reader.key);
    std::string const empty = Write("empty.cfg", "");
    for (auto const& file : {empty, Missing(), std::string(), dir_.Path()}) {
      int value = -7;
      EXPECT_FALSE(reader.read(value, file, file, false)) << file;
      EXPECT_EQ(value, reader.fallback) << file;
    }
  }
}

TEST_F(DebugConfigTest, TheKeyOfANumberIsComparedByteForByteAndTheFirstLineCounts) {
  for (auto const& reader : kNumberReaders) {
    SCOPED_TRACE(reader.key);
    std::string const key = reader.key;
    std::string const primary = Write("p.cfg", key + "x = 1\nx" + key + " = 2\nN" + key.substr(1) + " = 3\n" +
                                                   key + " = 7\n" + key + " = 8\n");
    int value = -7;

    ASSERT_TRUE(reader.read(value, primary, "", true));

    EXPECT_EQ(value, reader.found_7);
  }
}

TEST_F(DebugConfigTest, ATextThatIsNoNumberIsReadAsStrtolReadsIt) {
  struct Row {
    char const* text;
    int value;
  };
  for (Row const& row : {Row{"-1", -1}, Row{"0", 0}, Row{"2147483647", 2147483647},
                         Row{"2147483648", std::numeric_limits<int>::min()}, Row{"99999999999999999999", -1},
                         Row{"0x10", 0}, Row{"10MB", 10}, Row{"ten", 0}, Row{"", 0}, Row{"  12  ", 12}}) {
    SCOPED_TRACE(row.text);
    std::string const primary = Write("p.cfg", "nMaxFileNum = " + std::string(row.text) + "\n");
    int value = -7;

    ASSERT_TRUE(VeltDebugMgr::GetMaxFileNum(value, primary, "", true));

    EXPECT_EQ(value, row.value);
  }
}

TEST_F(DebugConfigTest, TheFileSizeIsMegabytesShiftedIn32Bits) {
  struct Row {
    char const* megabytes;
    int bytes;
  };
  for (Row const& row :
       {Row{"0", 0}, Row{"1", 1048576}, Row{"5", 5242880}, Row{"8", 8388608}, Row{"50", 52428800},
        Row{"100", 104857600}, Row{"2047", 2146435072}, Row{"2048", std::numeric_limits<int>::min()},
        Row{"2049", -2146435072}, Row{"4096", 0}, Row{"4097", 1048576}, Row{"-1", -1048576}, Row{"ten", 0}}) {
    SCOPED_TRACE(row.megabytes);
    std::string const file = Write("p.cfg", "nEachFileMaxSize = " + std::string(row.megabytes) + "\n");
    int from_primary = -7;
    int from_secondary = -7;

    ASSERT_TRUE(VeltDebugMgr::GetMaxFileSize(from_primary, file, "", true));
    ASSERT_TRUE(VeltDebugMgr::GetMaxFileSize(from_secondary, Missing(), file, false));

    EXPECT_EQ(from_primary, row.bytes);
    EXPECT_EQ(from_secondary, row.bytes);
  }
}

// --- the two texts ---

TEST_F(DebugConfigTest, ATextOfThePrimaryFileIsTaken) {
  for (auto const& reader : kTextReaders) {
    SCOPED_TRACE(reader.key);
    std::string const primary = Write("p.cfg", std::string(reader.key) + " = 0011\n");
    std::string const secondary = Write("s.cfg", std::string(reader.key) + " = 1\n");
    for (bool const primary_only : {true, false}) {
      std::string text = "before";
      char buffer[2048] = {};
      int length = 2048;

      reader.read(text, buffer, length, primary, secondary, primary_only);

      EXPECT_EQ(text, "0011");
      EXPECT_STREQ(buffer, "0011");
      EXPECT_EQ(length, 4);
    }
  }
}

TEST_F(DebugConfigTest, ATextThatStandsOnlyInTheSecondaryFileStaysInTheBuffer) {
  for (auto const& reader : kTextReaders) {
    SCOPED_TRACE(reader.key);
    std::string const secondary = Write("s.cfg", std::string(reader.key) + " = 0011\n");
    std::string text = "before";
    char buffer[2048] = {};
    int length = 2048;

    reader.read(text, buffer, length, Missing(), secondary, false);

    EXPECT_EQ(text, "before");
    EXPECT_STREQ(buffer, "0011");
  }
}

TEST_F(DebugConfigTest, ATextOfTheSecondaryFileIsNotLookedForWhenThePrimaryStandsAlone) {
  for (auto const& reader : kTextReaders) {
    SCOPED_TRACE(reader.key);
    std::string const secondary = Write("s.cfg", std::string(reader.key) + " = 0011\n");
    std::string text = "before";
    char buffer[2048] = {};
    int length = 2048;

    reader.read(text, buffer, length, Missing(), secondary, true);

    EXPECT_EQ(text, reader.fallback);
    EXPECT_STREQ(buffer, "");
    EXPECT_EQ(length, 2048) << "set back after the failed look-up";
  }
}

TEST_F(DebugConfigTest, AnAbsentTextIsTheDefault) {
  for (auto const& reader : kTextReaders) {
    SCOPED_TRACE(reader.key);
    for (bool const primary_only : {true, false}) {
      std::string text = "before";
      char buffer[2048] = {};
      int length = 2048;

      reader.read(text, buffer, length, Missing(), Missing(), primary_only);

      EXPECT_EQ(text, reader.fallback);
    }
  }
}

TEST_F(DebugConfigTest, AnEmptyTextIsAValueToo) {
  for (auto const& reader : kTextReaders) {
    SCOPED_TRACE(reader.key);
    std::string const primary = Write("p.cfg", std::string(reader.key) + " =\n");
    std::string text = "before";
    char buffer[2048] = {};
    int length = 2048;

    reader.read(text, buffer, length, primary, "", true);

    EXPECT_EQ(text, "");
  }
}

TEST_F(DebugConfigTest, ATextThatDoesNotFitTheCallersBufferCountsAsAbsent) {
  for (auto const& reader : kTextReaders) {
    SCOPED_TRACE(reader.key);
    std::string const primary = Write("p.cfg", std::string(reader.key) + " = 0011\n");
    std::string fits = "before";
    std::string too_long = "before";
    char buffer[2048] = {};
    int five = 5;
    int four = 4;

    reader.read(fits, buffer, five, primary, "", true);
    reader.read(too_long, buffer, four, primary, "", true);

    EXPECT_EQ(fits, "0011");
    EXPECT_EQ(too_long, reader.fallback);
  }
}

TEST_F(DebugConfigTest, ANullBufferIsAnAbsentText) {
  for (auto const& reader : kTextReaders) {
    SCOPED_TRACE(reader.key);
    std::string const primary = Write("p.cfg", std::string(reader.key) + " = 0011\n");
    std::string text = "before";
    int length = 2048;

    reader.read(text, nullptr, length, primary, "", true);

    EXPECT_EQ(text, reader.fallback);
  }
}

// --- the module table ---

TEST_F(DebugConfigTest, AFileWithoutItemsGivesModuleDebugItsDefaults) {
  ModuleSets const modules = Modules("# nothing\n");

  EXPECT_EQ(modules, (ModuleSets{{"debug", Sets{BitsOf({0, 1}), BitsOf({1})}}}));
}

TEST_F(DebugConfigTest, ModuleDebugTakesItsLevelAndItsOutput) {
  ModuleSets const modules = Modules("debug_level = 0011\ndebug_output = 1\n");

  EXPECT_EQ(modules, (ModuleSets{{"debug", Sets{BitsOf({2, 3}), BitsOf({0})}}}));
}

TEST_F(DebugConfigTest, ALevelOfDebugAloneComesWithTheDefaultOutput) {
  ModuleSets const modules = Modules("debug_level = 0011\n");

  EXPECT_EQ(modules, (ModuleSets{{"debug", Sets{BitsOf({2, 3}), BitsOf({1})}}}));
}

TEST_F(DebugConfigTest, AnOutputOfDebugAloneComesWithTheDefaultLevel) {
  ModuleSets const modules = Modules("debug_output = 11\n");

  EXPECT_EQ(modules, (ModuleSets{{"debug", Sets{BitsOf({0, 1}), BitsOf({0, 1})}}}));
}

TEST_F(DebugConfigTest, ALevelItemAloneGivesAModuleTheLogFile) {
  ModuleSets const modules = Modules("net_level = 1\n");

  EXPECT_EQ(modules.at("net"), (Sets{BitsOf({0}), BitsOf({1})}));
  EXPECT_EQ(modules.size(), 2U) << "net and debug";
}

TEST_F(DebugConfigTest, AnOutputItemAloneGivesAModuleTheFirstTwoLevels) {
  ModuleSets const modules = Modules("net_output = 1000\n");

  EXPECT_EQ(modules.at("net"), (Sets{BitsOf({0, 1}), BitsOf({0})}));
  EXPECT_EQ(modules.size(), 2U) << "net and debug";
}

TEST_F(DebugConfigTest, LevelAndOutputOfOneModuleMeetInEitherOrder) {
  ModuleSets const modules = Modules("a_output = 1\na_level = 0001\nb_level = 0001\nb_output = 1\n");

  EXPECT_EQ(modules.at("a"), (Sets{BitsOf({3}), BitsOf({0})}));
  EXPECT_EQ(modules.at("b"), (Sets{BitsOf({3}), BitsOf({0})}));
}

TEST_F(DebugConfigTest, EmptyTextsGiveEmptySets) {
  ModuleSets const modules = Modules("net_level =\nnet_output =\ndebug_level =\ndebug_output =\n");

  EXPECT_EQ(modules.at("net"), (Sets{BitsOf({}), BitsOf({})}));
  EXPECT_EQ(modules.at("debug"), (Sets{BitsOf({}), BitsOf({})}));
}

TEST_F(DebugConfigTest, InvalidTextsBecomeTheLevelDefaultForOutputsToo) {
  ModuleSets const modules = Modules("net_level = abc\nweb_output = abc\n");

  EXPECT_EQ(modules.at("net"), (Sets{BitsOf({0, 1}), BitsOf({1})}));
  EXPECT_EQ(modules.at("web"), (Sets{BitsOf({0, 1}), BitsOf({0, 1})}));
}

TEST_F(DebugConfigTest, AnInvalidLevelOfDebugBecomesTheFirstTwoLevels) {
  ModuleSets const modules = Modules("debug_level = abc\n");

  EXPECT_EQ(modules.at("debug"), (Sets{BitsOf({0, 1}), BitsOf({1})}));
}

TEST_F(DebugConfigTest, AnInvalidOutputOfDebugEndsAsTheModuleItemMakesIt) {
  ModuleSets const modules = Modules("debug_output = abc\n");

  EXPECT_EQ(modules.at("debug"), (Sets{BitsOf({0, 1}), BitsOf({0, 1})}));
}

TEST_F(DebugConfigTest, ADuplicateItemEndsAsItsLastLine) {
  ModuleSets const modules = Modules(
      "debug_level = 1\ndebug_level = 01\nnet_level = 1\nnet_level = 0001\n"
      "debug_output = 1\ndebug_output = 001\nnet_output = 1\nnet_output = 0001\n");

  EXPECT_EQ(modules.at("debug"), (Sets{BitsOf({1}), BitsOf({2})}));
  EXPECT_EQ(modules.at("net"), (Sets{BitsOf({3}), BitsOf({3})}));
}

TEST_F(DebugConfigTest, AModuleIsNamedByWhatStandsBeforeTheFirstSuffix) {
  ModuleSets const modules = Modules(
      "a_level_b = 1\nc_level_level = 01\nd_level_output = 001\n_level = 0001\n_LEVEL = 1\nlevel = "
      "1\ne_levels = 00001\n");

  EXPECT_EQ(modules.at("a").first, BitsOf({0}));
  EXPECT_EQ(modules.at("c").first, BitsOf({1}));
  EXPECT_EQ(modules.at("d"), (Sets{BitsOf({2}), BitsOf({1})}));
  EXPECT_EQ(modules.at("d_level"), (Sets{BitsOf({0, 1}), BitsOf({2})})) << "an output item by its own suffix";
  EXPECT_EQ(modules.at("").first, BitsOf({3}));
  EXPECT_EQ(modules.at("e").first, BitsOf({4}));
  EXPECT_EQ(modules.size(), 7U) << "these six and debug";
}

TEST_F(DebugConfigTest, EntriesThatTheCallerHasAlreadyStayOrAreOverwritten) {
  std::string primary = Write("p.cfg", "net_output = 1\nweb_level = 1\n");
  ModuleSets modules{{"mine", Sets{BitsOf({9}), BitsOf({8})}},
                     {"net", Sets{BitsOf({7}), BitsOf({6})}},
                     {"web", Sets{BitsOf({5}), BitsOf({4})}},
                     {"debug", Sets{BitsOf({3}), BitsOf({2})}}};
  Bits levels = BitsOf({10});
  Bits outputs = BitsOf({11});
  std::string level_text;
  std::string output_text;

  VeltDebugMgr::GetParams(levels, outputs, level_text, output_text, primary, modules);

  EXPECT_EQ(modules, (ModuleSets{{"debug", Sets{BitsOf({10}), BitsOf({11})}},
                                 {"mine", Sets{BitsOf({9}), BitsOf({8})}},
                                 {"net", Sets{BitsOf({7}), BitsOf({0})}},
                                 {"web", Sets{BitsOf({0}), BitsOf({1})}}}));
}

TEST_F(DebugConfigTest, AMissingOrEmptyPrimaryNameStillEntersDebug) {
  for (auto const& name : {Missing(), std::string()}) {
    std::string primary = name;
    ModuleSets modules;
    Bits levels = BitsOf({10});
    Bits outputs = BitsOf({11});
    std::string level_text;
    std::string output_text;

    VeltDebugMgr::GetParams(levels, outputs, level_text, output_text, primary, modules);

    EXPECT_EQ(modules, (ModuleSets{{"debug", Sets{BitsOf({10}), BitsOf({11})}}})) << name;
  }
}

TEST_F(DebugConfigTest, TenThousandModulesAreAllThere) {
  std::string content;
  for (int i = 0; i < 10'000; ++i) content += "m" + std::to_string(i) + "_level = 01\n";

  ModuleSets const modules = Modules(content);

  EXPECT_EQ(modules.size(), 10'001U);
  EXPECT_EQ(modules.at("m9999").first, BitsOf({1}));
}

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
  EXPECT_EQ(items.file_size, 5242880) << "the main configuration file is not asked";
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
  UseLib();  // its conf directory is empty: the name is given unchecked
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

// --- odd files ---

TEST_F(DebugConfigTest, BinaryAndOddFilesAreParsedAsFarAsTheyGo) {
  std::string const long_line(3000, 'x');
  ModuleSets const crlf = Modules("net_level = 0001\r\nnet_output = 1\r\n");
  ModuleSets const nul = Modules(std::string("net_level = 1\0 rest\nweb_level = 01\n", 35));
  ModuleSets const cut = Modules("net_level = 1\n" + long_line + "\nweb_level = 1\n");
  ModuleSets const no_newline = Modules("net_level = 0001");

  EXPECT_EQ(crlf.at("net"), (Sets{BitsOf({3}), BitsOf({0})}));
  EXPECT_EQ(nul.at("net").first, BitsOf({0}));
  EXPECT_EQ(nul.at("web").first, BitsOf({1}));
  EXPECT_EQ(cut.count("net"), 1U);
  EXPECT_EQ(cut.count("web"), 0U) << "an over-long line ends the scan";
  EXPECT_EQ(no_newline.at("net").first, BitsOf({3}));
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
