// The lines that the output thread writes: records, their values, day changes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "tests/support/output.h"

namespace velt::test {
namespace {

using ::testing::StartsWith;

// First in this file: it needs a process that has written nothing yet.
using FirstRecordTest = OutputTest;

TEST_F(FirstRecordTest, TheFirstLoggedRecordOfTheProcessIsPrecededByItsDay) {
  OpenUnprepared();

  ASSERT_TRUE(Output(*channel, NewRecord(" m I: text")));

  EXPECT_EQ(Body(),
            "Current date&time:2026-11-15 08:52:13.123456\n"
            "11-15 08:52:13.123456.T4711 m I: text\n");
}

TEST_F(OutputTest, ARecordIsItsHeadItsTextAndANewline) {
  bool const done = Output(Open(), NewRecord(" m I: text"));

  EXPECT_TRUE(done);
  EXPECT_EQ(Body(), "11-15 08:52:13.123456.T4711 m I: text\n");
}

TEST_F(OutputTest, ATextThatEndsInANewlineGetsNoOther) {
  Output(Open(), NewRecord(" m I: text\n"));

  EXPECT_EQ(Body(), "11-15 08:52:13.123456.T4711 m I: text\n");
}

TEST_F(OutputTest, OnlyTheLastCharacterOfATextCounts) {
  Output(Open(), NewRecord(" m I: two\n\n"));
  Output(*channel, NewRecord(" m I: one\nmore"));

  EXPECT_EQ(Body(),
            "11-15 08:52:13.123456.T4711 m I: two\n\n"
            "11-15 08:52:13.123456.T4711 m I: one\nmore\n");
}

TEST_F(OutputTest, AnEmptyTextCountsAsEndingInANewline) {
  Output(Open(), NewRecord(""));
  Output(*channel, NewRecord(" next"));

  EXPECT_EQ(Body(), "11-15 08:52:13.123456.T471111-15 08:52:13.123456.T4711 next\n");
}

TEST_F(OutputTest, ARecordWithoutTextAndValueIsItsHead) {
  bool const done = Output(Open(), WithoutText(NewRecord("")));

  EXPECT_TRUE(done);
  EXPECT_EQ(Body(), "11-15 08:52:13.123456.T4711");
}

TEST_F(OutputTest, AValueFollowsTheText) {
  Output(Open(), WithAsn(NewRecord(" m I: text"), new AsnText("value")));

  EXPECT_EQ(Body(), "11-15 08:52:13.123456.T4711 m I: text\nASN Trace:\nvalue\n");
  EXPECT_EQ(AsnText::Live(), 0);
}

TEST_F(OutputTest, AValueWithoutTextFollowsTheHead) {
  Output(Open(), WithAsn(WithoutText(NewRecord("")), new AsnText("value")));

  EXPECT_EQ(Body(), "11-15 08:52:13.123456.T4711ASN Trace:\nvalue\n");
}

TEST_F(OutputTest, AValueThatEndsInANewlineGetsAnother) {
  Output(Open(), WithAsn(NewRecord(" text\n"), new AsnText("value\n")));

  EXPECT_EQ(Body(), "11-15 08:52:13.123456.T4711 text\nASN Trace:\nvalue\n\n");
}

TEST_F(OutputTest, AValueThatPrintsNothingLeavesItsTitle) {
  Output(Open(), WithAsn(NewRecord(" text"), new AsnText("")));

  EXPECT_EQ(Body(), "11-15 08:52:13.123456.T4711 text\nASN Trace:\n\n");
}

TEST_F(OutputTest, AValueCountsUpToItsFirstNul) {
  Output(Open(), WithAsn(NewRecord(" text"), new AsnText(std::string("be\0hind", 7))));

  EXPECT_EQ(Body(), "11-15 08:52:13.123456.T4711 text\nASN Trace:\nbe\n");
}

TEST_F(OutputTest, AValueWhosePrintThrowsLeavesWhatItPrinted) {
  bool done = false;

  EXPECT_NO_THROW(done = Output(Open(), WithAsn(NewRecord(" text"), new AsnThatBreaks("half"))));

  EXPECT_TRUE(done);
  EXPECT_EQ(Body(), "11-15 08:52:13.123456.T4711 text\nASN Trace:\nhalf\n");
}

TEST_F(OutputTest, AValueIsPrintedWithZeroAndOne) {
  Output(Open(), WithAsn(NewRecord(" text"), new AsnOfArguments));

  EXPECT_EQ(Body(), "11-15 08:52:13.123456.T4711 text\nASN Trace:\n0 and 1\n");
}

TEST_F(OutputTest, AValueOfEightMegabytesIsCutToTwoMebibytesWithItsTitle) {
  Output(Open(), WithAsn(NewRecord(" text"), new AsnText(std::string(8'000'000, 'v'))));

  std::string const body = Body();
  EXPECT_THAT(body.substr(0, 60), StartsWith("11-15 08:52:13.123456.T4711 text\nASN Trace:\nvvv"));
  EXPECT_EQ(body.size(), kLineHeadLength + 6 + kLongestWrite + 1);
  EXPECT_EQ(body.back(), '\n');
}

TEST_F(OutputTest, ATextOfThreeMillionCharactersIsCutToTwoMebibytes) {
  Output(Open(), NewRecord(std::string(3'000'000, 't')));

  EXPECT_EQ(Body().size(), kLineHeadLength + kLongestWrite + 1);
}

TEST_F(OutputTest, WhetherATextEndsInANewlineIsAskedBeforeItIsCut) {
  Output(Open(), NewRecord(std::string(2'999'999, 't') + "\n"));

  EXPECT_EQ(Body().size(), kLineHeadLength + kLongestWrite);
}

TEST_F(OutputTest, ThreadIdsArePrintedUnsigned) {
  Open();
  for (std::int64_t const id :
       {std::int64_t{0}, std::int64_t{-1}, std::numeric_limits<std::int64_t>::max()}) {
    OutDataUnit* const rec = NewRecord(" x");
    rec->m_nThreadId = id;
    Output(*channel, rec);
  }

  EXPECT_EQ(Body(),
            "11-15 08:52:13.123456.T0 x\n"
            "11-15 08:52:13.123456.T18446744073709551615 x\n"
            "11-15 08:52:13.123456.T9223372036854775807 x\n");
}

TEST_F(OutputTest, TextsAreWrittenAsTheyAre) {
  std::string const text = " 100%s %n\r\x1B[31m\xFF\xC3\x28\n01-01 00:00:00.000000.T1 forged\ttext";

  Output(Open(), NewRecord(text));

  EXPECT_EQ(Body(), "11-15 08:52:13.123456.T4711" + text + "\n");
}

TEST_F(OutputTest, AShortOrMissingTimeStampIsNotReadPastItsEnd) {
  Open();
  auto const last_line_of = [this](OutDataUnit* rec) {
    Output(*channel, rec);
    return Lines(Body()).back();
  };

  EXPECT_EQ(last_line_of(WithStamp(NewRecord(" x"), "")), ".T4711 x");
  EXPECT_EQ(last_line_of(WithStamp(NewRecord(" x"), "2")), ".T4711 x");
  EXPECT_EQ(last_line_of(WithStamp(NewRecord(" x"), "2026")), ".T4711 x");
  EXPECT_EQ(last_line_of(WithStamp(NewRecord(" x"), "2026-")), ".T4711 x");
  EXPECT_EQ(last_line_of(WithStamp(NewRecord(" x"), "2026-1")), "1.T4711 x");
  EXPECT_EQ(last_line_of(WithStamp(NewRecord(" x"), "2026-11-1")), "11-1.T4711 x");
  EXPECT_EQ(last_line_of(WithoutStamp(NewRecord(" x"))), ".T4711 x");
}

TEST_F(OutputTest, AnOverlongTimeStampIsCutInTheHeadAndInTheDayLine) {
  Open();
  std::string const stamp = "2026-11-16 " + std::string(600, 's');

  Output(*channel, WithStamp(NewRecord(" x"), stamp));

  EXPECT_EQ(Body(), "Current date&time:2026-11-16 " + std::string(482, 's') + "11-16 " +
                        std::string(505, 's') + " x\n");
}

TEST_F(OutputTest, WithoutAnOpenFileNothingIsWrittenOrPrinted) {
  channel = MakeIdleChannel(setup);
  CoutToText out;

  bool const done = Output(*channel, NewRecord(" x", 3, true, true));

  EXPECT_FALSE(done);
  EXPECT_EQ(out.Text(), "");
  EXPECT_EQ(ListDir(dir.Path()), std::vector<std::string>{});
}

TEST_F(OutputTest, ARecordForNeitherOutputIsDoneAtOnce) {
  CoutToText out;

  bool const done = Output(Open(), NewRecord(" x", 3, false, false));

  EXPECT_TRUE(done);
  EXPECT_EQ(Body(), "");
  EXPECT_EQ(out.Text(), "");
}

TEST_F(OutputTest, APrintOnlyRecordStaysOutOfTheFile) {
  CoutToText out;

  bool const done = Output(Open(), NewRecord(" x", 3, false, true));

  EXPECT_TRUE(done);
  EXPECT_EQ(Body(), "");
  EXPECT_EQ(out.Text(), "11-15 08:52:13.123456.T4711 x\n");
}

TEST_F(OutputTest, ALogOnlyRecordIsNotPrinted) {
  CoutToText out;

  Output(Open(), NewRecord(" x", 3, true, false));

  EXPECT_EQ(out.Text(), "");
}

TEST_F(OutputTest, ARecordForBothOutputsIsTheSameInBoth) {
  CoutToText out;

  Output(Open(), WithAsn(NewRecord(" x", 3, true, true), new AsnText("value")));

  EXPECT_EQ(Body(), "11-15 08:52:13.123456.T4711 x\nASN Trace:\nvalue\n");
  EXPECT_EQ(out.Text(), "11-15 08:52:13.123456.T4711 x\nASN Trace:\nvalue\n");
}

using DayChangeTest = OutputTest;

TEST_F(DayChangeTest, ASecondRecordOfTheDayHasNoDayLine) {
  Open();

  Output(*channel, NewRecord(" one"));
  Output(*channel, NewRecord(" two"));

  EXPECT_EQ(CountOf(Body(), "Current date&time"), 0U);
}

TEST_F(DayChangeTest, EitherDigitOfTheDayCounts) {
  Open();

  Output(*channel, WithStamp(NewRecord(" x"), "2026-11-16 00:00:00.000001"));
  Output(*channel, WithStamp(NewRecord(" x"), "2026-11-26 00:00:00.000002"));
  Output(*channel, WithStamp(NewRecord(" x"), "2026-12-01 00:00:00.000003"));

  EXPECT_EQ(Body(),
            "Current date&time:2026-11-16 00:00:00.000001\n"
            "11-16 00:00:00.000001.T4711 x\n"
            "Current date&time:2026-11-26 00:00:00.000002\n"
            "11-26 00:00:00.000002.T4711 x\n"
            "Current date&time:2026-12-01 00:00:00.000003\n"
            "12-01 00:00:00.000003.T4711 x\n");
}

TEST_F(DayChangeTest, TheSameDayOfAnotherMonthIsNoChange) {
  Open();

  Output(*channel, WithStamp(NewRecord(" x"), "2027-12-15 00:00:00.000001"));

  EXPECT_EQ(Body(), "12-15 00:00:00.000001.T4711 x\n");
}

TEST_F(DayChangeTest, APrintOnlyRecordTakesTheDayWithoutALine) {
  CoutToText out;
  Open();

  Output(*channel, WithStamp(NewRecord(" printed", 3, false, true), "2026-11-16 00:00:00.000001"));
  Output(*channel, WithStamp(NewRecord(" logged"), "2026-11-16 00:00:00.000002"));

  EXPECT_EQ(Body(), "11-16 00:00:00.000002.T4711 logged\n");
  EXPECT_EQ(out.Text(), "11-16 00:00:00.000001.T4711 printed\n");
}

TEST_F(DayChangeTest, TheLineIsNeverPrinted) {
  CoutToText out;
  Open();

  Output(*channel, WithStamp(NewRecord(" x", 3, true, true), "2026-11-16 00:00:00.000001"));

  EXPECT_THAT(Body(), StartsWith("Current date&time:2026-11-16 00:00:00.000001\n"));
  EXPECT_EQ(out.Text(), "11-16 00:00:00.000001.T4711 x\n");
}

TEST_F(DayChangeTest, TheDayIsSharedByAllChannels) {
  Open();
  ChannelSetup other_setup(dir.Path());
  other_setup.prefix = "other_";
  auto const other = MakeIdleChannel(other_setup);
  ASSERT_TRUE(other->OpenNewFile());

  Output(*other, WithStamp(NewRecord(" x"), "2026-11-16 00:00:00.000001"));
  Output(*channel, WithStamp(NewRecord(" y"), "2026-11-16 00:00:00.000002"));

  EXPECT_EQ(Body(), "11-16 00:00:00.000002.T4711 y\n");
}

}  // namespace
}  // namespace velt::test
