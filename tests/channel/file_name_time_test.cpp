// The time in file names, to seconds and back.
#include "debug/channel/file_name_time.h"

#include <cstdint>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

namespace velt::test {
namespace {

constexpr std::int64_t kDay = 86'400;

// -1 for a text that is refused; the variable must then be unchanged.
std::int64_t Read(std::string const& text) {
  std::int64_t seconds = -1;
  bool const read = SecondsOfNameTime(text, seconds);
  EXPECT_EQ(read, seconds != -1) << text;
  return seconds;
}

TEST(FileNameTimeTest, KnownSecondsAreKnownTexts) {
  EXPECT_EQ(NameTimeOf(0), "19700101_000000");
  EXPECT_EQ(NameTimeOf(86'399), "19700101_235959");
  EXPECT_EQ(NameTimeOf(951'782'400), "20000229_000000");
  EXPECT_EQ(NameTimeOf(1'709'647'629), "20240305_140709");
  EXPECT_EQ(NameTimeOf(2'147'483'648), "20380119_031408");
  EXPECT_EQ(NameTimeOf(-1), "19691231_235959");
  EXPECT_EQ(NameTimeOf(253'402'300'799), "99991231_235959");
}

TEST(FileNameTimeTest, KnownTextsAreKnownSeconds) {
  EXPECT_EQ(Read("19700101_000000"), 0);
  EXPECT_EQ(Read("20000229_000000"), 951'782'400);
  EXPECT_EQ(Read("20240305_140709"), 1'709'647'629);
  EXPECT_EQ(Read("99991231_235959"), 253'402'300'799);
}

TEST(FileNameTimeTest, EveryDayOfSixHundredYearsComesBackAndIsTheCLibrarys) {
  for (std::int64_t day = -73'048; day < 146'097; ++day) {  // 1770-01-01 to 2369-12-31
    std::int64_t const seconds = day * kDay + (day & 0xffff);
    std::string const text = NameTimeOf(seconds);
    std::int64_t back = 0;
    ASSERT_TRUE(SecondsOfNameTime(text, back)) << text;
    ASSERT_EQ(back, seconds) << text;
    std::time_t const at = seconds;
    std::tm fields{};
    gmtime_r(&at, &fields);
    char expected[32];
    std::strftime(expected, sizeof expected, "%Y%m%d_%H%M%S", &fields);
    ASSERT_EQ(text, expected);
    ASSERT_EQ(SecondsOf(fields), seconds) << text;
  }
}

TEST(FileNameTimeTest, ASecondAfterTheLastOfAMonthIsTheNextMonths) {
  EXPECT_EQ(NameTimeOf(Read("20240228_235959") + 1), "20240229_000000");
  EXPECT_EQ(NameTimeOf(Read("20240229_235959") + 1), "20240301_000000");
  EXPECT_EQ(NameTimeOf(Read("20230228_235959") + 1), "20230301_000000");
  EXPECT_EQ(NameTimeOf(Read("21000228_235959") + 1), "21000301_000000");
  EXPECT_EQ(NameTimeOf(Read("20001231_235959") + 1), "20010101_000000");
  EXPECT_EQ(NameTimeOf(Read("20261025_025959") + 1), "20261025_030000");
}

TEST(FileNameTimeTest, ALeapSecondIsTheNextMinutesFirst) {
  EXPECT_EQ(Read("20161231_235960"), Read("20170101_000000"));
}

TEST(FileNameTimeTest, WhatIsNoTimeIsRefused) {
  for (char const* text :
       {"", "20240305_14070", "20240305_1407090", "20240305-140709", "20240305 140709", "2024030a_140709",
        "20240305_1407x9", "20240005_140709", "20241305_140709", "20240300_140709", "20240332_140709",
        "20240305_240709", "20240305_146009", "20240305_140761", "-0240305_140709", "+0240305_140709"}) {
    EXPECT_EQ(Read(text), -1) << text;
  }
}

}  // namespace
}  // namespace velt::test
