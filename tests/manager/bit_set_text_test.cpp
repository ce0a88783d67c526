// The text form of level and output sets.
#include <bitset>
#include <string>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "debug/manager/bit_set_text.h"
#include "tests/support/manager_host.h"

namespace velt::test {
namespace {

struct Case {
  char const* what;
  std::string text;
  Bits bits;
};

std::vector<Case> ValidTexts() {
  std::string const zeros32(32, '0');
  std::string const ones32(32, '1');
  return {
      {"empty", "", BitsOf({})},
      {"one zero", "0", BitsOf({})},
      {"one one", "1", BitsOf({0})},
      {"first two", "1100", BitsOf({0, 1})},
      {"second only", "0100", BitsOf({1})},
      {"first four", "1111", BitsOf({0, 1, 2, 3})},
      {"last of four", "0001", BitsOf({3})},
      {"no symmetry", "0010110", BitsOf({2, 4, 5})},
      {"31 characters", std::string(30, '0') + "1", BitsOf({30})},
      {"32 characters", std::string(31, '0') + "1", BitsOf({31})},
      {"32 ones", ones32, Bits(0xFFFFFFFFU)},
      {"33 characters, only the first is one", "1" + zeros32, BitsOf({})},
      {"33 characters, the second is one", "01" + std::string(31, '0'), BitsOf({0})},
      {"33 characters, the last is one", zeros32 + "1", BitsOf({31})},
      {"64 characters, ones in front", ones32 + zeros32, BitsOf({})},
      {"64 characters, ones behind", zeros32 + ones32, Bits(0xFFFFFFFFU)},
      {"a letter that does not count", "x1" + std::string(31, '0'), BitsOf({0})},
  };
}

std::vector<std::string> InvalidTexts() {
  std::string const zeros31(31, '0');
  return {"10x1",
          "x",
          "abc",
          "2",
          "-1",
          "1 0",
          "0x1",
          "1100.",
          "x" + zeros31,
          zeros31 + "x",
          "0x" + zeros31,
          std::string("1\0"
                      "1",
                      3)};
}

// The level set that an item of the configuration file gives a module.
Bits LevelsFromFile(std::string const& text) {
  ScratchDir const dir;
  WriteFile(dir / "a.cfg", "net_level = " + text + "\n");
  std::string primary = dir / "a.cfg";
  Bits levels;
  Bits outputs;
  std::string level_text;
  std::string output_text;
  VeltDebugMgr::ModuleSets modules;
  VeltDebugMgr::GetParams(levels, outputs, level_text, output_text, primary, modules);
  return modules.at("net").first;
}

TEST(BitSetTextTest, TheFirstCharacterIsBitZeroAndTheLast32Count) {
  for (auto const& row : ValidTexts()) {
    SCOPED_TRACE(row.what);
    std::string text = row.text;
    Bits set(0xA5U);

    bool const valid = BitSetFromText(text, set);

    EXPECT_TRUE(valid);
    EXPECT_EQ(set, row.bits);
  }
}

TEST(BitSetTextTest, TheTextIsLeftReversed) {
  std::string text = "0010110";
  Bits set;

  ASSERT_TRUE(BitSetFromText(text, set));

  EXPECT_EQ(text, "0110100");
}

TEST(BitSetTextTest, ALongTextIsReversedWhole) {
  std::string text = "1" + std::string(40, '0');
  Bits set;

  ASSERT_TRUE(BitSetFromText(text, set));

  EXPECT_EQ(text, std::string(40, '0') + "1");
}

TEST(BitSetTextTest, AnyOtherCharacterThatCountsIsRefusedAndLeavesTheSet) {
  for (auto const& invalid : InvalidTexts()) {
    SCOPED_TRACE(invalid);
    std::string text = invalid;
    Bits set(0xA5U);

    bool const valid = BitSetFromText(text, set);

    EXPECT_FALSE(valid);
    EXPECT_EQ(set, Bits(0xA5U));
  }
}

TEST(BitSetTextTest, AModuleItemOfTheConfigurationReadsTheSameText) {
  for (auto const& row : ValidTexts()) {
    SCOPED_TRACE(row.what);

    Bits const levels = LevelsFromFile(row.text);

    EXPECT_EQ(levels, row.bits);
  }
}

TEST(BitSetTextTest, AnInvalidModuleItemOfTheConfigurationIsReplacedByTheFirstTwoBits) {
  for (auto const& invalid : {"10x1", "abc", "2", "0x1", "1 0"}) {
    SCOPED_TRACE(invalid);

    Bits const levels = LevelsFromFile(invalid);

    EXPECT_EQ(levels, BitsOf({0, 1}));
  }
}

}  // namespace
}  // namespace velt::test
