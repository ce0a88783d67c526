// What the MRB functions pass to the manager.
#include <cstddef>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "velt/process.h"

#include "tests/process/mrb.h"

namespace velt::test {
namespace {

constexpr wchar_t const kNotInTheCLocale[] = {0x20AC, 0};  // a euro sign

// Called through pointers of plain types, so that the compiler does not refuse the bad formats on purpose.
void (*const volatile output_unchecked)(char const*, ...) = &VeltOutputFrmtString;
void (*const volatile log_unchecked)(VeltLogLevel, char const*, ...) = &VeltOutputMrbLog;

TEST_F(MrbTest, AFormattedTextIsTracedUnderMrbAtLevelTwoAndLoggedByDefault) {
  StartWithEngine();

  VeltOutputFrmtString("%s is %d%%", "load", 42);

  ASSERT_EQ(calls_.size(), 1U);
  EXPECT_EQ(calls_[0].module, "MRB");
  EXPECT_EQ(calls_[0].level, 2);
  EXPECT_EQ(calls_[0].text, "load is 42%");
  EXPECT_FALSE(calls_[0].asn);
  EXPECT_FALSE(calls_[0].print);
  EXPECT_TRUE(calls_[0].log);
}

TEST_F(MrbTest, AReadyTextIsTracedUnderMrbAtLevelTwoAndLoggedByDefault) {
  StartWithEngine();

  VeltOutputString_i("ready");

  ASSERT_EQ(calls_.size(), 1U);
  EXPECT_EQ(calls_[0].module, "MRB");
  EXPECT_EQ(calls_[0].level, 2);
  EXPECT_EQ(calls_[0].text, "ready");
  EXPECT_FALSE(calls_[0].asn);
  EXPECT_FALSE(calls_[0].print);
  EXPECT_TRUE(calls_[0].log);
}

TEST_F(MrbTest, ALeveledTextIsTracedAtItsOwnLevel) {
  StartWithEngine();

  for (int const level : {0, 1, 2, 5, 31, 32, 99, -1}) VeltOutputMrbLog(VeltLogLevel(level), "at %d", level);

  ASSERT_EQ(calls_.size(), 8U);
  int const levels[] = {0, 1, 2, 5, 31, 32, 99, -1};
  char const* const texts[] = {"at 0", "at 1", "at 2", "at 5", "at 31", "at 32", "at 99", "at -1"};
  for (std::size_t i = 0; i < 8; ++i) {
    EXPECT_EQ(calls_[i].module, "MRB");
    EXPECT_EQ(calls_[i].level, levels[i]);
    EXPECT_EQ(calls_[i].text, texts[i]);
    EXPECT_FALSE(calls_[i].asn);
    EXPECT_FALSE(calls_[i].print);
    EXPECT_TRUE(calls_[i].log);
  }
}

TEST_F(MrbTest, TheCallersSwitchesAreOnWhenTheyAreNotZero) {
  StartWithEngine();

  VeltMrbTrace("a", 0, 0);
  VeltMrbTrace("b", 1, 0);
  VeltMrbTrace("c", 0, 1);
  VeltMrbTrace("d", -1, 256);

  ASSERT_EQ(calls_.size(), 4U);
  std::pair<bool, bool> const expected[] = {{false, false}, {true, false}, {false, true}, {true, true}};
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(calls_[i].module, "MRB");
    EXPECT_EQ(calls_[i].level, 2);
    EXPECT_EQ(calls_[i].print, expected[i].first) << calls_[i].text;
    EXPECT_EQ(calls_[i].log, expected[i].second) << calls_[i].text;
  }
}

TEST_F(MrbTest, FormattedMessagesAreCutAt2047Characters) {
  StartWithEngine();

  for (std::size_t const length : {2046U, 2047U, 2048U, 5000U}) {
    std::string const text(length, 'x');
    VeltOutputFrmtString("%s", text.c_str());
    VeltOutputMrbLog(VeltLogLevel(5), "%s", text.c_str());
  }

  ASSERT_EQ(calls_.size(), 8U);
  std::size_t const kept[] = {2046, 2046, 2047, 2047, 2047, 2047, 2047, 2047};
  for (std::size_t i = 0; i < 8; ++i) EXPECT_EQ(calls_[i].text, std::string(kept[i], 'x'));
}

TEST_F(MrbTest, AReadyTextIsPassedOnWhole) {
  StartWithEngine();
  std::string const text(5000, 'x');

  VeltOutputString_i(text.c_str());
  VeltMrbTrace(text.c_str(), 0, 1);

  ASSERT_EQ(calls_.size(), 2U);
  EXPECT_EQ(calls_[0].text, text);
  EXPECT_EQ(calls_[1].text, text);
}

TEST_F(MrbTest, AReadyTextIsNotReadAsAFormat) {
  StartWithEngine();

  VeltOutputString_i("100% %s %n %d");
  VeltMrbTrace("%s%s%s", 0, 1);
  VeltOutputFrmtString("%s", "%n");

  ASSERT_EQ(calls_.size(), 3U);
  EXPECT_EQ(calls_[0].text, "100% %s %n %d");
  EXPECT_EQ(calls_[1].text, "%s%s%s");
  EXPECT_EQ(calls_[2].text, "%n");
}

TEST_F(MrbTest, AnEmptyMessageIsTracedToo) {
  StartWithEngine();

  VeltOutputFrmtString("%s", "");
  VeltOutputMrbLog(VeltLogLevel(1), "%s", "");
  VeltOutputString_i("");

  ASSERT_EQ(calls_.size(), 3U);
  for (auto const& call : calls_) {
    EXPECT_EQ(call.text, "");
    EXPECT_FALSE(call.null_text);
  }
}

TEST_F(MrbTest, AFormatThatCannotBeExpandedIsTracedAllTheSame) {
  StartWithEngine();

  for (char const* const format : {"ab%ls", "ab%2147483648d"}) {
    output_unchecked(format, kNotInTheCLocale);
    log_unchecked(VeltLogLevel(5), format, kNotInTheCLocale);
  }

  ASSERT_EQ(calls_.size(), 4U);
  for (auto const& call : calls_) {
    EXPECT_EQ(call.module, "MRB");
    EXPECT_FALSE(call.null_text);
    EXPECT_LE(call.text.size(), 2047U);
  }
}

TEST_F(MrbTest, ANullFormatIsAnEmptyMessage) {
  StartWithEngine();

  output_unchecked(nullptr);
  log_unchecked(VeltLogLevel(5), nullptr);

  ASSERT_EQ(calls_.size(), 2U);
  for (auto const& call : calls_) {
    EXPECT_EQ(call.text, "");
    EXPECT_FALSE(call.null_text);
  }
}

TEST_F(MrbTest, ANullTextIsPassedOnAsItIs) {
  StartWithEngine();

  VeltOutputString_i(nullptr);
  VeltMrbTrace(nullptr, 1, 1);

  ASSERT_EQ(calls_.size(), 2U);
  EXPECT_TRUE(calls_[0].null_text);
  EXPECT_TRUE(calls_[1].null_text);
}

}  // namespace
}  // namespace velt::test
