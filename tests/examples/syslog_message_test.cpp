// The datagrams of the syslog engine, letter for letter.
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "examples/engine_syslog/syslog_message.h"

namespace velt::examples {
namespace {

using testing::EndsWith;
using testing::StartsWith;

constexpr std::time_t kInstant = 1770091445;  // 2026-02-03 04:04:05 UTC

std::string const kPid = std::to_string(getpid());

SyslogRecord MakeRecord(std::string const& text, int level = 3) {
  SyslogRecord record;
  record.time = {kInstant, 298'572'999};
  record.thread = 5823;
  record.level = level;
  record.module = "net";
  record.text = text;
  return record;
}

class SyslogMessageTest : public testing::Test {
 protected:
  void SetUp() override {
    setenv("TZ", "CET-1", 1);
    tzset();
  }

  static std::string Local(SyslogRecord const& record, std::size_t most = 8192) {
    return SyslogFormatter(SyslogFormat::kLocal, "server", 16, most).Format(record);
  }

  // What follows the head.
  static std::string Body(SyslogRecord const& record, std::size_t most = 8192) {
    std::string const datagram = Local(record, most);
    std::size_t const head = datagram.find("]: ");
    return head == std::string::npos ? "no head: " + datagram : datagram.substr(head + 3);
  }
};

TEST_F(SyslogMessageTest, TheLocalFormHasTheLocalTimeTheProgramAndItsProcess) {
  EXPECT_EQ(Local(MakeRecord("12 connections")),
            "<134>Feb  3 05:04:05 server[" + kPid + "]: T5823 net I: 12 connections");
}

TEST_F(SyslogMessageTest, TheLongFormHasMicrosecondsInUtc) {
  SyslogFormatter const formatter(SyslogFormat::kRfc5424, "server", 16, 8192);

  EXPECT_EQ(formatter.Format(MakeRecord("12 connections")),
            "<134>1 2026-02-03T04:04:05.298572Z - server " + kPid + " - - T5823 net I: 12 connections");
}

TEST_F(SyslogMessageTest, EachLevelHasItsSeverityAndTheTagOfTheLogFiles) {
  EXPECT_THAT(Local(MakeRecord("x", 0)), StartsWith("<129>"));
  EXPECT_THAT(Local(MakeRecord("x", 1)), StartsWith("<131>"));
  EXPECT_THAT(Local(MakeRecord("x", 2)), StartsWith("<132>"));
  EXPECT_THAT(Local(MakeRecord("x", 3)), StartsWith("<134>"));
  EXPECT_THAT(Local(MakeRecord("x", 4)), StartsWith("<135>"));
  EXPECT_THAT(Local(MakeRecord("x", -1)), StartsWith("<135>"));
  EXPECT_EQ(Body(MakeRecord("x", 0)), "T5823 net A: x");
  EXPECT_EQ(Body(MakeRecord("x", 1)), "T5823 net E: x");
  EXPECT_EQ(Body(MakeRecord("x", 2)), "T5823 net W: x");
  EXPECT_EQ(Body(MakeRecord("x", 4)), "T5823 net x");
}

TEST_F(SyslogMessageTest, TheFacilityStaysWithinItsRange) {
  EXPECT_THAT(SyslogFormatter(SyslogFormat::kLocal, "s", 0, 8192).Format(MakeRecord("x")), StartsWith("<6>"));
  EXPECT_THAT(SyslogFormatter(SyslogFormat::kLocal, "s", 23, 8192).Format(MakeRecord("x")),
              StartsWith("<190>"));
  EXPECT_THAT(SyslogFormatter(SyslogFormat::kLocal, "s", 24, 8192).Format(MakeRecord("x")),
              StartsWith("<190>"));
  EXPECT_THAT(SyslogFormatter(SyslogFormat::kLocal, "s", -1, 8192).Format(MakeRecord("x")),
              StartsWith("<6>"));
}

TEST_F(SyslogMessageTest, ASubNameIsPartOfTheProgramsName) {
  SyslogRecord record = MakeRecord("x");
  record.sub_name = "gw";

  EXPECT_EQ(Local(record), "<134>Feb  3 05:04:05 server_gw[" + kPid + "]: T5823 net I: x");
}

TEST_F(SyslogMessageTest, AProgramNameCannotEndEarlyNorBeEmptyNorTooLong) {
  auto const name = [](std::string const& ident) {
    std::string const datagram =
        SyslogFormatter(SyslogFormat::kLocal, ident, 16, 8192).Format(MakeRecord("x"));
    return datagram.substr(21, datagram.find("[" + kPid) - 21);
  };

  EXPECT_EQ(name("a b:c[d]/e\nf\xc3\xa4"), "a_b_c_d__e_f__");
  EXPECT_EQ(name(""), "-");
  EXPECT_EQ(name(std::string(33, 'n')), std::string(32, 'n'));
}

TEST_F(SyslogMessageTest, ControlCharactersInTheTextCannotStartAnotherMessage) {
  EXPECT_EQ(Body(MakeRecord("one\n<0>two\r\x1b[2J\x7f\ttab")),
            "T5823 net I: one#012<0>two#015#033[2J#177\ttab");
  EXPECT_EQ(Body(MakeRecord("line\n")), "T5823 net I: line");
  EXPECT_EQ(Body(MakeRecord("line\n\n")), "T5823 net I: line#012");
  EXPECT_EQ(Body(MakeRecord("\n")), "T5823 net I: ");
  EXPECT_EQ(Body(MakeRecord("")), "T5823 net I: ");
}

TEST_F(SyslogMessageTest, ControlCharactersInTheModuleAreEscapedToo) {
  SyslogRecord record = MakeRecord("x");
  record.module = "a\nb";

  EXPECT_EQ(Body(record), "T5823 a#012b I: x");
}

TEST_F(SyslogMessageTest, ADatagramOfTheLargestSizeIsWholeAndOneByteMoreIsCut) {
  std::string const head = Local(MakeRecord(""));
  std::size_t const room = 500 - head.size();

  EXPECT_EQ(Local(MakeRecord(std::string(room, 'x')), 500), head + std::string(room, 'x'));
  EXPECT_EQ(Local(MakeRecord(std::string(room + 1, 'x')), 500), head + std::string(room - 3, 'x') + "...");
}

TEST_F(SyslogMessageTest, ACutDividesNoUtf8Sequence) {
  std::string const head = Local(MakeRecord(""));
  std::size_t const room = 500 - head.size() - 3;  // with "..." behind it

  // The sequence of 4 bytes crosses the end at each of its bytes.
  for (std::size_t before = 1; before <= 3; ++before) {
    std::string const plain(room - before, 'x');
    EXPECT_EQ(Local(MakeRecord(plain + "\xf0\x9f\x90\x8c" + std::string(10, 'y')), 500),
              head + plain + "...");
  }
}

TEST_F(SyslogMessageTest, BytesThatAreNoUtf8AreCutWhereTheRoomEnds) {
  std::string const head = Local(MakeRecord(""));
  std::size_t const room = 500 - head.size() - 3;

  std::string const datagram = Local(MakeRecord(std::string(1000, '\x80')), 500);

  EXPECT_EQ(datagram, head + std::string(room - 3, '\x80') + "...") << "it goes back three bytes at most";
}

TEST_F(SyslogMessageTest, ATextThatWasCutBeforeIsMarked) {
  SyslogRecord record = MakeRecord("head");
  record.cut = true;

  EXPECT_EQ(Body(record), "T5823 net I: head...");
}

TEST_F(SyslogMessageTest, ALongModuleLeavesRoomForTheTextInTheSmallestDatagram) {
  SyslogRecord record = MakeRecord("the text");
  record.module = std::string(10'000, 'm');

  std::string const datagram = Local(record, 0);

  EXPECT_LE(datagram.size(), SyslogFormatter::kFewestBytes);
  EXPECT_THAT(datagram, EndsWith(std::string(256, 'm') + " I: the text"));
}

}  // namespace
}  // namespace velt::examples
