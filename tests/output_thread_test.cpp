// What the output thread writes: lines, day changes, the ring before a level-0 record, rotation, standard
// output, and its loop. Where no thread has to wait, the test itself does the thread's work on a channel that
// has none.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <filesystem>
#include <iostream>
#include <limits>
#include <memory>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <utility>
#include <vector>

#include <ace/Message_Block.h>

#include "velt/channel.h"

#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace fs = std::filesystem;

namespace velt::test {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr std::size_t kLongestWrite = 2'097'152;
constexpr std::size_t kLineHeadLength = 27;  // of kLineHead

// Takes the place of standard output behind std::cout, and counts flushes.
class CoutToText : public std::streambuf {
 public:
  CoutToText() : before_(std::cout.rdbuf(this)) {}
  ~CoutToText() override { std::cout.rdbuf(before_); }  // which makes the stream good again
  CoutToText(CoutToText const&) = delete;
  CoutToText& operator=(CoutToText const&) = delete;

  std::string const& Text() const { return text_; }
  int Flushes() const { return flushes_; }

 protected:
  int_type overflow(int_type c) override {
    if (c != traits_type::eof()) text_ += static_cast<char>(c);
    return traits_type::not_eof(c);
  }
  std::streamsize xsputn(char const* s, std::streamsize n) override {
    text_.append(s, static_cast<std::size_t>(n));
    return n;
  }
  int sync() override {
    ++flushes_;
    return 0;
  }

 private:
  std::streambuf* before_;
  std::string text_;
  int flushes_ = 0;
};

// Prints `head`, then throws.
class AsnThatBreaks : public AsnType {
 public:
  explicit AsnThatBreaks(std::string head) : head_(std::move(head)) {}
  AsnType* Clone() const override { return new AsnThatBreaks(head_); }
  void Print(std::ostream& out, int, int) const override {
    out << head_;
    throw std::runtime_error("cannot print the rest");
  }

 private:
  std::string head_;
};

// Prints the two numbers that it is called with.
class AsnOfArguments : public AsnType {
 public:
  AsnType* Clone() const override { return new AsnOfArguments; }
  void Print(std::ostream& out, int first, int second) const override { out << first << " and " << second; }
};

OutDataUnit* WithAsn(OutDataUnit* rec, AsnType* value) {
  rec->m_pAsn = value;
  return rec;
}

OutDataUnit* WithStamp(OutDataUnit* rec, std::string const& stamp) {
  delete[] rec->m_pTimeStamp;
  rec->m_pTimeStamp = NewText(stamp);
  return rec;
}

OutDataUnit* WithoutText(OutDataUnit* rec) {
  delete[] rec->m_pText;
  rec->m_pText = nullptr;
  return rec;
}

OutDataUnit* WithoutStamp(OutDataUnit* rec) {
  delete[] rec->m_pTimeStamp;
  rec->m_pTimeStamp = nullptr;
  return rec;
}

class OutputTest : public ::testing::Test {
 protected:
  // A channel with an open file, in a process that has seen a record of the 15th.
  VeltDebugInfo& Open() {
    OpenUnprepared();
    SeeDay("2026-11-15 00:00:00.000000");
    return *channel;
  }
  VeltDebugInfo& OpenUnprepared() {
    channel = MakeIdleChannel(setup);
    EXPECT_TRUE(channel->OpenNewFile());
    return *channel;
  }
  void SeeDay(std::string const& stamp) const {
    EXPECT_TRUE(Output(*channel, WithStamp(NewRecord("", 3, false, false), stamp)));
  }

  // What stands behind the head of the newest log file.
  std::string Body() const {
    auto const logs = FilesOf(setup.directory, setup.prefix, ".log");
    if (logs.empty()) return "no log file";
    std::string const content = ReadFile(setup.directory + "/" + logs.back());
    std::string const head = HeadOf(logs.back(), setup);
    return content.compare(0, head.size(), head) == 0 ? content.substr(head.size()) : "no head: " + content;
  }
  std::vector<std::string> Archives() const { return FilesOf(setup.directory, setup.prefix, ".log.gz"); }

  ScratchDir const dir;
  ChannelSetup setup{dir.Path()};
  std::unique_ptr<VeltDebugInfo> channel;
};

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

class RingTest : public OutputTest {
 protected:
  RingTest() { setup.ring = 3; }

  void Filter(std::string const& text, int level = 3) const {
    OutDataUnit* rec = NewRecord(text, level, false, false);
    EXPECT_TRUE(channel->TraceInner(rec));
  }
};

TEST_F(RingTest, TheNewestFilteredRecordsComeBeforeALevelZeroRecord) {
  CoutToText out;
  Open();
  for (char const* const text : {" f1", " f2", " f3", " f4", " f5"}) Filter(text);

  Output(*channel, NewRecord(" severe", 0));

  EXPECT_EQ(Body(),
            "11-15 08:52:13.123456.T4711 f3\n"
            "11-15 08:52:13.123456.T4711 f4\n"
            "11-15 08:52:13.123456.T4711 f5\n"
            "11-15 08:52:13.123456.T4711 severe\n");
  EXPECT_EQ(out.Text(),
            "11-15 08:52:13.123456.T4711 f3\n"
            "11-15 08:52:13.123456.T4711 f4\n"
            "11-15 08:52:13.123456.T4711 f5\n")
      << "the ring is printed as well as logged, the other record as it asks";
}

TEST_F(RingTest, IsEmptyAfterItWasWritten) {
  CoutToText out;
  Open();
  Filter(" f1");
  Output(*channel, NewRecord(" severe", 0));

  Output(*channel, NewRecord(" again", 0));

  EXPECT_EQ(CountOf(Body(), " f1\n"), 1U);
  EXPECT_TRUE(RingOf(*channel).is_empty());
}

TEST_F(RingTest, OtherLevelsLeaveItAlone) {
  Open();
  Filter(" f1");

  for (int const level : {-1, 1, 2, 3, 32}) Output(*channel, NewRecord(" x", level));

  EXPECT_EQ(CountOf(Body(), " f1"), 0U);
  EXPECT_EQ(RingOf(*channel).message_count(), 1U);
}

TEST_F(RingTest, APrintOnlyLevelZeroRecordBringsItOut) {
  CoutToText out;
  Open();
  Filter(" f1");

  Output(*channel, NewRecord(" severe", 0, false, true));

  EXPECT_EQ(Body(), "11-15 08:52:13.123456.T4711 f1\n");
  EXPECT_EQ(out.Text(), "11-15 08:52:13.123456.T4711 f1\n11-15 08:52:13.123456.T4711 severe\n");
}

TEST_F(RingTest, ALevelZeroRecordOutOfTheRingDoesNotDrainIt) {
  Open();
  Filter(" f1");

  Output(*channel, NewRecord(" severe", 0), true);

  EXPECT_EQ(Body(), "11-15 08:52:13.123456.T4711 severe\n");
  EXPECT_EQ(RingOf(*channel).message_count(), 1U);
}

TEST_F(RingTest, AFilteredLevelZeroRecordGoesIntoItAndTriggersNothing) {
  CoutToText out;
  Open();
  Filter(" f1");

  Filter(" filtered severe", 0);

  EXPECT_EQ(Body(), "");
  EXPECT_EQ(RingOf(*channel).message_count(), 2U);
  Output(*channel, NewRecord(" severe", 0));
  EXPECT_EQ(Body(),
            "11-15 08:52:13.123456.T4711 f1\n"
            "11-15 08:52:13.123456.T4711 filtered severe\n"
            "11-15 08:52:13.123456.T4711 severe\n");
}

TEST_F(RingTest, ItsRecordsCarryTheirValuesAndTheirDays) {
  CoutToText out;
  Open();
  OutDataUnit* rec = WithStamp(WithAsn(NewRecord(" f1", 3, false, false), new AsnText("value")),
                               "2026-11-14 23:59:59.999999");
  ASSERT_TRUE(channel->TraceInner(rec));

  Output(*channel, NewRecord(" severe", 0));

  EXPECT_EQ(Body(),
            "Current date&time:2026-11-14 23:59:59.999999\n"
            "11-14 23:59:59.999999.T4711 f1\nASN Trace:\nvalue\n"
            "Current date&time:2026-11-15 08:52:13.123456\n"
            "11-15 08:52:13.123456.T4711 severe\n");
  EXPECT_EQ(AsnText::Live(), 0);
}

TEST_F(RingTest, DrainingAnEmptyRingDoesNothing) {
  Open();

  channel->OutputDiscardQueue();

  EXPECT_EQ(Body(), "");
}

TEST_F(RingTest, DrainingWithoutAFileLosesTheRing) {
  channel = MakeIdleChannel(setup);
  Filter(" f1");

  channel->OutputDiscardQueue();

  EXPECT_TRUE(RingOf(*channel).is_empty());
}

TEST_F(RingTest, ABlockWithoutARecordIsSkipped) {
  CoutToText out;
  Open();
  RingOf(*channel).enqueue(new ACE_Message_Block);
  Filter(" f1");

  channel->OutputDiscardQueue();

  EXPECT_EQ(Body(), "11-15 08:52:13.123456.T4711 f1\n");
}

class RotationTest : public OutputTest {
 protected:
  // Bytes on disk of the open file.
  std::size_t Size() const { return fs::file_size(dir / FilesOf(dir.Path(), setup.prefix, ".log").back()); }
  // A record whose line brings the open file to `size` bytes.
  OutDataUnit* RecordUpTo(std::size_t size) const {
    return NewRecord(std::string(size - Size() - kLineHeadLength - 1, 'r'));
  }
};

TEST_F(RotationTest, AFileThatEndsAtTheLimitStaysOpen) {
  setup.max_bytes = 2000;
  Open();

  Output(*channel, RecordUpTo(2000));

  EXPECT_EQ(Size(), 2000U);
  EXPECT_EQ(Archives(), std::vector<std::string>{});
  EXPECT_EQ(CountOf(Body(), "File close at"), 0U);
}

TEST_F(RotationTest, AFileOneByteBeyondTheLimitIsClosedAndCompressed) {
  setup.max_bytes = 2000;
  Open();
  std::string const name = FilesOf(dir.Path(), "t_", ".log").front();
  OutDataUnit* const rec = RecordUpTo(2001);
  std::string const line = kLineHead + std::string(rec->m_pText) + "\n";
  WaitForNextSecond();

  bool const done = Output(*channel, rec);

  EXPECT_TRUE(done);
  ASSERT_EQ(Archives(), std::vector<std::string>{name + ".gz"});
  EXPECT_EQ(ModeOf(dir / (name + ".gz")), 0440U);
  std::string const archived = ReadGzip(dir / (name + ".gz"));
  EXPECT_THAT(archived, StartsWith(HeadOf(name, setup) + line + "File close at "));
  EXPECT_EQ(archived.find("File close at "), 2001U);
  EXPECT_EQ(Body(), "") << "the new file has its head only";
}

TEST_F(RotationTest, TheNextRecordGoesIntoTheNewFile) {
  setup.max_bytes = 2000;
  Open();
  OutDataUnit* const rec = RecordUpTo(2001);
  WaitForNextSecond();
  Output(*channel, rec);

  Output(*channel, NewRecord(" next"));

  EXPECT_EQ(Body(), "11-15 08:52:13.123456.T4711 next\n");
  EXPECT_EQ(CountOf(ReadGzip(dir / Archives().front()), " next"), 0U);
}

TEST_F(RotationTest, ARecordLargerThanTheLimitStaysWhole) {
  setup.max_bytes = 100;
  Open();
  WaitForNextSecond();

  Output(*channel, NewRecord(std::string(100'000, 'r')));

  ASSERT_EQ(Archives().size(), 1U);
  EXPECT_THAT(ReadGzip(dir / Archives().front()),
              HasSubstr(kLineHead + std::string(100'000, 'r') + "\nFile close"));
}

TEST_F(RotationTest, ValuesAndDayLinesCountAgainstTheLimit) {
  setup.max_bytes = 2000;
  Open();
  WaitForNextSecond();

  Output(*channel, WithAsn(NewRecord(" x"), new AsnText(std::string(2000, 'v'))));

  ASSERT_EQ(Archives().size(), 1U);
  EXPECT_THAT(ReadGzip(dir / Archives().front()),
              HasSubstr(" x\nASN Trace:\n" + std::string(2000, 'v') + "\nFile close"));
}

TEST_F(RotationTest, APrintOnlyRecordRotatesNothing) {
  CoutToText out;
  setup.max_bytes = 0;
  Open();

  Output(*channel, NewRecord(" x", 3, false, true));

  EXPECT_EQ(Archives(), std::vector<std::string>{});
}

TEST_F(RotationTest, LimitsThatAreNotPositiveAsSignedRotateAfterEveryRecord) {
  for (unsigned const limit : {0U, 2'147'483'648U, 4'294'967'295U}) {
    ScratchDir const own;
    ChannelSetup own_setup(own.Path());
    own_setup.max_bytes = limit;
    auto const rotating = MakeIdleChannel(own_setup);
    ASSERT_TRUE(rotating->OpenNewFile());
    WaitForNextSecond();

    Output(*rotating, NewRecord(" x"));

    auto const archives = FilesOf(own.Path(), "t_", ".log.gz");
    ASSERT_EQ(archives.size(), 1U) << limit;
    EXPECT_EQ(CountOf(ReadGzip(own / archives.front()), " x\nFile close at "), 1U) << limit;
  }
}

TEST_F(RotationTest, TheLargestSignedLimitDoesNotRotate) {
  setup.max_bytes = 2'147'483'647U;
  Open();

  Output(*channel, NewRecord(std::string(100'000, 'r')));

  EXPECT_EQ(Archives(), std::vector<std::string>{});
}

TEST_F(RotationTest, ItCompressesWhatOthersLeftAndPrunes) {
  setup.max_bytes = 0;
  setup.keep = 2;
  Open();
  WriteFile(dir / "t_19990101_000001.log", "left");
  WriteFile(dir / "t_19990101_000002.log", "left");
  WaitForNextSecond();

  Output(*channel, NewRecord(" x"));

  ASSERT_EQ(Archives().size(), 2U);
  EXPECT_EQ(Archives().front(), "t_19990101_000002.log.gz");
  EXPECT_EQ(CountOf(ReadGzip(dir / Archives().back()), " x\n"), 1U);
}

using StandardOutputTest = OutputTest;

TEST_F(StandardOutputTest, ATextWithoutNewlineIsPrintedWithOneAndFlushed) {
  Open();
  CoutToText out;

  Output(*channel, NewRecord(" m I: text", 3, false, true));

  EXPECT_EQ(out.Text(), "11-15 08:52:13.123456.T4711 m I: text\n");
  EXPECT_EQ(out.Flushes(), 1);
}

TEST_F(StandardOutputTest, ATextThatEndsInANewlineIsNotFlushed) {
  Open();
  CoutToText out;

  Output(*channel, NewRecord(" m I: text\n", 3, false, true));

  EXPECT_EQ(out.Text(), "11-15 08:52:13.123456.T4711 m I: text\n");
  EXPECT_EQ(out.Flushes(), 0);
}

TEST_F(StandardOutputTest, AnEmptyTextPrintsTheHeadWithoutAFlush) {
  Open();
  CoutToText out;

  Output(*channel, NewRecord("", 3, false, true));

  EXPECT_EQ(out.Text(), "11-15 08:52:13.123456.T4711");
  EXPECT_EQ(out.Flushes(), 0);
}

TEST_F(StandardOutputTest, AValueIsPrintedWithANewlineAndFlushed) {
  Open();
  CoutToText out;

  Output(*channel, WithAsn(NewRecord(" text\n", 3, false, true), new AsnText("value")));

  EXPECT_EQ(out.Text(), "11-15 08:52:13.123456.T4711 text\nASN Trace:\nvalue\n");
  EXPECT_GE(out.Flushes(), 1);
}

TEST_F(StandardOutputTest, AValueIsNotCutThere) {
  Open();
  CoutToText out;

  Output(*channel, WithAsn(NewRecord(" text", 3, false, true), new AsnText(std::string(3'000'000, 'v'))));

  EXPECT_EQ(out.Text().size(), kLineHeadLength + 6 + 11 + 3'000'000 + 1);
}

TEST_F(StandardOutputTest, ANullTextPutsTheStreamIntoItsBadState) {
  Open();
  CoutToText out;

  bool const done =
      Output(*channel, WithAsn(WithoutText(NewRecord("", 3, false, true)), new AsnText("value")));

  EXPECT_TRUE(done);
  EXPECT_TRUE(std::cout.bad());
  EXPECT_EQ(out.Text(), kLineHead);
}

TEST_F(StandardOutputTest, ABadStreamTakesNothingUntilTheHostClearsIt) {
  Open();
  CoutToText out;
  std::cout.setstate(std::ios_base::badbit);
  Output(*channel, NewRecord(" lost", 3, true, true));
  std::cout.clear();

  Output(*channel, NewRecord(" printed", 3, true, true));

  EXPECT_EQ(out.Text(), "11-15 08:52:13.123456.T4711 printed\n");
  EXPECT_EQ(Body(), "11-15 08:52:13.123456.T4711 lost\n11-15 08:52:13.123456.T4711 printed\n");
}

TEST_F(StandardOutputTest, AStreamThatThrowsDoesNotReachTheCaller) {
  Open();
  CoutToText out;
  std::cout.exceptions(std::ios_base::badbit);
  bool done = false;

  EXPECT_NO_THROW(done = Output(*channel, WithoutText(NewRecord("", 3, true, true))));
  std::cout.exceptions(std::ios_base::goodbit);

  EXPECT_TRUE(done);
}

// The thread's loop, run by the test on a channel without a thread.
class LoopTest : public OutputTest {
 protected:
  LoopTest() { channel = MakeIdleChannel(setup); }

  void Queue(OutDataUnit* rec) const { EXPECT_TRUE(channel->TraceInner(rec)); }
  // Runs until a stop marker behind everything that is queued; returns the body of the file behind the start
  // lines.
  std::string Run() const {
    Queue(NewStopMarker());
    EXPECT_EQ(VeltDebugInfo::HandleOutputStringLoop(channel.get()), nullptr);
    std::string const body = Body();
    std::size_t const second = body.find('\n', body.find('\n') + 1);
    return second == std::string::npos ? body : body.substr(second + 1);
  }
};

TEST_F(LoopTest, ANullChannelIsNothingToDo) {
  char before[16] = "";
  char after[16] = "";
  pthread_getname_np(pthread_self(), before, sizeof before);

  EXPECT_EQ(VeltDebugInfo::HandleOutputStringLoop(nullptr), nullptr);

  pthread_getname_np(pthread_self(), after, sizeof after);
  EXPECT_STREQ(before, after);
}

TEST_F(LoopTest, TheFirstFileBearsTheStartLinesAndTheEndLine) {
  char id[16];
  std::snprintf(id, sizeof id, "%x", static_cast<unsigned>(pthread_self()));
  Queue(NewStopMarker());

  VeltDebugInfo::HandleOutputStringLoop(channel.get());
  channel->CloseFile();

  EXPECT_THAT(Body(), StartsWith("This is the first log file\nThread handle output string is 0x" +
                                 std::string(id) + "\nthread handle output string exit\nFile close at "));
}

TEST_F(LoopTest, RecordsAreWrittenInTheirOrder) {
  std::string expected;
  for (int i = 0; i < 100; ++i) {
    Queue(NewRecord(" record " + std::to_string(i)));
    expected += "11-15 08:52:13.123456.T4711 record " + std::to_string(i) + "\n";
  }

  std::string const body = Run();
  channel->CloseFile();

  EXPECT_THAT(body, HasSubstr(expected + "thread handle output string exit\n"));
}

TEST_F(LoopTest, ARecordBehindTheStopMarkerIsNotWritten) {
  Queue(NewRecord(" before"));
  Queue(NewStopMarker());
  Queue(NewRecord(" behind"));

  std::string const body = Run();

  EXPECT_EQ(CountOf(body, " before\n"), 1U);
  EXPECT_EQ(CountOf(body, " behind"), 0U);
  EXPECT_EQ(OutputQueueOf(*channel).message_count(), 2U) << "with the marker of Run";
}

TEST_F(LoopTest, RecordsThatLackPartsAreReported) {
  Queue(WithoutText(NewRecord("")));  // a stamp alone
  Queue(WithoutStamp(NewRecord(" text alone")));
  Queue(WithAsn(WithoutStamp(WithoutText(NewRecord(""))), new AsnText("value alone")));
  Queue(WithAsn(WithoutStamp(NewRecord(" both without stamp")), new AsnText("value")));

  std::string const body = Run();

  EXPECT_EQ(body,
            "can't get output data\ncan't get output data\ncan't get output data\ncan't get output data\n"
            "thread handle output string exit\n");
  EXPECT_EQ(AsnText::Live(), 0);
}

TEST_F(LoopTest, AStampWithAValueIsEnough) {
  Queue(WithAsn(WithoutText(NewRecord("")), new AsnText("value")));

  EXPECT_THAT(Run(),
              EndsWith("11-15 08:52:13.123456.T4711ASN Trace:\nvalue\nthread handle output string exit\n"));
}

TEST_F(LoopTest, ABlockWithoutARecordIsReported) {
  OutputQueueOf(*channel).enqueue(new ACE_Message_Block);
  Queue(NewRecord(" after"));

  std::string const body = Run();

  EXPECT_THAT(body, StartsWith("can't get message block's base\n"));
  EXPECT_EQ(CountOf(body, " after\n"), 1U);
}

TEST_F(LoopTest, AValueWhosePrintThrowsDoesNotEndIt) {
  Queue(WithAsn(NewRecord(" breaks"), new AsnThatBreaks("half")));
  Queue(NewRecord(" after"));

  std::string const body = Run();

  EXPECT_THAT(body, HasSubstr(" breaks\nASN Trace:\nhalf\n"));
  EXPECT_EQ(CountOf(body, " after\n"), 1U);
}

TEST_F(LoopTest, WhatEarlierRunsLeftIsCompressedAndPrunedBeforeTheFirstFile) {
  setup.keep = 2;
  channel = MakeIdleChannel(setup);
  for (int n = 1; n <= 4; ++n) WriteFile(dir / ("t_19990101_00000" + std::to_string(n) + ".log"), "left");

  Run();

  EXPECT_EQ(Archives(), (std::vector<std::string>{"t_19990101_000003.log.gz", "t_19990101_000004.log.gz"}));
  EXPECT_EQ(FilesOf(dir.Path(), "t_", ".log").size(), 1U);
}

TEST_F(LoopTest, ARotatedFileHasNoStartLines) {
  setup.max_bytes = 0;
  channel = MakeIdleChannel(setup);
  Queue(NewRecord(" x"));
  Queue(NewStopMarker());

  VeltDebugInfo::HandleOutputStringLoop(channel.get());

  EXPECT_EQ(Body(), "thread handle output string exit\n");
}

TEST_F(OutputTest, AThreadThatIsWokenWithoutABlockSaysSoAndWorksOn) {
  channel = MakeChannel(setup);
  auto const log = [this] { return ReadFamily(dir.Path(), "t_"); };

  bool const said = WaitUntil([this, &log] {
    OutputQueueOf(*channel).pulse();  // wakes who waits
    return CountOf(log(), "can't get message block\n") > 0;
  });
  OutputQueueOf(*channel).activate();
  channel->Trace("m", VeltLogLevel{3}, "after", nullptr, false, true);
  channel.reset();

  EXPECT_TRUE(said);
  EXPECT_EQ(CountOf(log(), " m I: after\n"), 1U);
}

}  // namespace
}  // namespace velt::test
