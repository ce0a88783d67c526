// The module table made from a debug configuration.
#include <string>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/manager/debug_config.h"
#include "tests/support/manager_host.h"

namespace velt::test {
namespace {

using DebugConfigModulesTest = DebugConfigTest;

TEST_F(DebugConfigModulesTest, AFileWithoutItemsGivesModuleDebugItsDefaults) {
  ModuleSets const modules = Modules("# nothing\n");

  EXPECT_EQ(modules, (ModuleSets{{"debug", Sets{BitsOf({0, 1}), BitsOf({1})}}}));
}

TEST_F(DebugConfigModulesTest, ModuleDebugTakesItsLevelAndItsOutput) {
  ModuleSets const modules = Modules("debug_level = 0011\ndebug_output = 1\n");

  EXPECT_EQ(modules, (ModuleSets{{"debug", Sets{BitsOf({2, 3}), BitsOf({0})}}}));
}

TEST_F(DebugConfigModulesTest, ALevelOfDebugAloneComesWithTheDefaultOutput) {
  ModuleSets const modules = Modules("debug_level = 0011\n");

  EXPECT_EQ(modules, (ModuleSets{{"debug", Sets{BitsOf({2, 3}), BitsOf({1})}}}));
}

TEST_F(DebugConfigModulesTest, AnOutputOfDebugAloneComesWithTheDefaultLevel) {
  ModuleSets const modules = Modules("debug_output = 11\n");

  EXPECT_EQ(modules, (ModuleSets{{"debug", Sets{BitsOf({0, 1}), BitsOf({0, 1})}}}));
}

TEST_F(DebugConfigModulesTest, ALevelItemAloneGivesAModuleTheLogFile) {
  ModuleSets const modules = Modules("net_level = 1\n");

  EXPECT_EQ(modules.at("net"), (Sets{BitsOf({0}), BitsOf({1})}));
  EXPECT_EQ(modules.size(), 2U) << "net and debug";
}

TEST_F(DebugConfigModulesTest, AnOutputItemAloneGivesAModuleTheFirstTwoLevels) {
  ModuleSets const modules = Modules("net_output = 1000\n");

  EXPECT_EQ(modules.at("net"), (Sets{BitsOf({0, 1}), BitsOf({0})}));
  EXPECT_EQ(modules.size(), 2U) << "net and debug";
}

TEST_F(DebugConfigModulesTest, LevelAndOutputOfOneModuleMeetInEitherOrder) {
  ModuleSets const modules = Modules("a_output = 1\na_level = 0001\nb_level = 0001\nb_output = 1\n");

  EXPECT_EQ(modules.at("a"), (Sets{BitsOf({3}), BitsOf({0})}));
  EXPECT_EQ(modules.at("b"), (Sets{BitsOf({3}), BitsOf({0})}));
}

TEST_F(DebugConfigModulesTest, EmptyTextsGiveEmptySets) {
  ModuleSets const modules = Modules("net_level =\nnet_output =\ndebug_level =\ndebug_output =\n");

  EXPECT_EQ(modules.at("net"), (Sets{BitsOf({}), BitsOf({})}));
  EXPECT_EQ(modules.at("debug"), (Sets{BitsOf({}), BitsOf({})}));
}

TEST_F(DebugConfigModulesTest, InvalidTextsBecomeTheLevelDefaultForOutputsToo) {
  ModuleSets const modules = Modules("net_level = abc\nweb_output = abc\n");

  EXPECT_EQ(modules.at("net"), (Sets{BitsOf({0, 1}), BitsOf({1})}));
  EXPECT_EQ(modules.at("web"), (Sets{BitsOf({0, 1}), BitsOf({0, 1})}));
}

TEST_F(DebugConfigModulesTest, AnInvalidLevelOfDebugBecomesTheFirstTwoLevels) {
  ModuleSets const modules = Modules("debug_level = abc\n");

  EXPECT_EQ(modules.at("debug"), (Sets{BitsOf({0, 1}), BitsOf({1})}));
}

TEST_F(DebugConfigModulesTest, AnInvalidOutputOfDebugEndsAsTheModuleItemMakesIt) {
  ModuleSets const modules = Modules("debug_output = abc\n");

  EXPECT_EQ(modules.at("debug"), (Sets{BitsOf({0, 1}), BitsOf({0, 1})}));
}

TEST_F(DebugConfigModulesTest, ADuplicateItemEndsAsItsLastLine) {
  ModuleSets const modules = Modules(
      "debug_level = 1\ndebug_level = 01\nnet_level = 1\nnet_level = 0001\n"
      "debug_output = 1\ndebug_output = 001\nnet_output = 1\nnet_output = 0001\n");

  EXPECT_EQ(modules.at("debug"), (Sets{BitsOf({1}), BitsOf({2})}));
  EXPECT_EQ(modules.at("net"), (Sets{BitsOf({3}), BitsOf({3})}));
}

TEST_F(DebugConfigModulesTest, AModuleIsNamedByWhatStandsBeforeTheFirstSuffix) {
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

TEST_F(DebugConfigModulesTest, EntriesThatTheCallerHasAlreadyStayOrAreOverwritten) {
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

TEST_F(DebugConfigModulesTest, AMissingOrEmptyPrimaryNameStillEntersDebug) {
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

TEST_F(DebugConfigModulesTest, TenThousandModulesAreAllThere) {
  std::string content;
  for (int i = 0; i < 10'000; ++i) content += "m" + std::to_string(i) + "_level = 01\n";

  ModuleSets const modules = Modules(content);

  EXPECT_EQ(modules.size(), 10'001U);
  EXPECT_EQ(modules.at("m9999").first, BitsOf({1}));
}

// --- odd files ---

TEST_F(DebugConfigModulesTest, BinaryAndOddFilesAreParsedAsFarAsTheyGo) {
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

}  // namespace
}  // namespace velt::test
