// VeltGetCfgInt: the number of one item.
#include <climits>
#include <string>

#include <gtest/gtest.h>

#include "velt/config.h"

#include "tests/config/config_file.h"

namespace velt::test {
namespace {

int NumberOf(std::string const& text) {
  ConfigFile const file("n = " + text + "\n");
  int value = -77;
  VeltGetCfgInt("n", value, file.Path());
  return value;
}

TEST(CfgIntTest, ReadsDecimalNumbers) {
  EXPECT_EQ(NumberOf("0"), 0);
  EXPECT_EQ(NumberOf("42"), 42);
  EXPECT_EQ(NumberOf("-1"), -1);
  EXPECT_EQ(NumberOf("+7"), 7);
  EXPECT_EQ(NumberOf("007"), 7);
  EXPECT_EQ(NumberOf("2147483647"), 2147483647);
  EXPECT_EQ(NumberOf("-2147483648"), INT_MIN);
}

TEST(CfgIntTest, ReadsTheDigitsInFrontOfOtherText) {
  EXPECT_EQ(NumberOf("10MB"), 10);
  EXPECT_EQ(NumberOf("0x10"), 0);
  EXPECT_EQ(NumberOf("1e3"), 1);
  EXPECT_EQ(NumberOf("3.9"), 3);
  EXPECT_EQ(NumberOf("5 # five"), 5);
}

TEST(CfgIntTest, TextWithoutDigitsIsZero) {
  EXPECT_EQ(NumberOf("ten"), 0);
  EXPECT_EQ(NumberOf(""), 0);
  EXPECT_EQ(NumberOf("-"), 0);
  EXPECT_EQ(NumberOf("--1"), 0);
}

TEST(CfgIntTest, NumbersBeyondIntAreCutToTheirLowBits) {
  EXPECT_EQ(NumberOf("2147483648"), INT_MIN);
  EXPECT_EQ(NumberOf("4294967295"), -1);
  EXPECT_EQ(NumberOf("4294967296"), 0);
  EXPECT_EQ(NumberOf("4294967303"), 7);
  EXPECT_EQ(NumberOf("99999999999999999999"), -1) << "strtol stops at the largest long";
  EXPECT_EQ(NumberOf("-99999999999999999999"), 0) << "and at the smallest";
}

TEST(CfgIntTest, TheFirstLineOfANameCounts) {
  ConfigFile const file("n=1\nn=2\n");
  int value = -77;

  EXPECT_TRUE(VeltGetCfgInt("n", value, file.Path()));

  EXPECT_EQ(value, 1);
}

TEST(CfgIntTest, WhatCannotBeReadLeavesTheValueUntouched) {
  ConfigFile const file("n=1\n");
  int value = -77;

  EXPECT_FALSE(VeltGetCfgInt("absent", value, file.Path()));
  EXPECT_FALSE(VeltGetCfgInt("n", value, "/nonexistent/file.cfg"));
  EXPECT_FALSE(VeltGetCfgInt(nullptr, value, file.Path()));
  EXPECT_FALSE(VeltGetCfgInt("n", value, nullptr));

  EXPECT_EQ(value, -77);
}

TEST(CfgIntTest, AValueOf1791CharactersFitsAndOneMoreDoesNot) {
  EXPECT_EQ(NumberOf(std::string(1790, '0') + "5"), 5);
  EXPECT_EQ(NumberOf(std::string(1791, '0') + "5"), -77);
}

}  // namespace
}  // namespace velt::test
