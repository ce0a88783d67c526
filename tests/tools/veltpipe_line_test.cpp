// The lines that veltpipe reads and the records that it makes of them.
#include <cstddef>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/process.h"
#include "tests/tools/veltpipe.h"

namespace velt::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(VeltpipeLineTest, EachLineIsOneRecordOfTheModuleAndLevel) {
  ScratchDir const scratch;

  Outcome const outcome =
      Trace("first\nsecond 100% %s\n", scratch.Path(), {"--module", "web", "--level", "1"});

  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(outcome.out, IsEmpty());
  EXPECT_THAT(outcome.err, IsEmpty());
  EXPECT_THAT(Traced(scratch.Path(), "web E: "), ElementsAre("first", "second 100% %s"));
}

TEST(VeltpipeLineTest, ALevelAboveThreeHasNoTag) {
  ScratchDir const scratch;

  Trace("line\n", scratch.Path(), {"--level", "7"});

  EXPECT_THAT(Traced(scratch.Path(), "app "), ElementsAre("line"));
}

TEST(VeltpipeLineTest, EmptyLinesCarriageReturnsAndALastLineWithoutNewlineAreKept) {
  ScratchDir const scratch;

  Outcome const outcome = Trace("\n\ndos\r\nlast", scratch.Path(), {"--stats"});

  EXPECT_EQ(outcome.err, "veltpipe: lines in 4, records out 4, retries 0, files rotated 0\n");
  EXPECT_THAT(Traced(scratch.Path()), ElementsAre("", "", "dos\r", "last"));
}

TEST(VeltpipeLineTest, NoInputMakesAFileWithoutRecords) {
  ScratchDir const scratch;

  Outcome const outcome = Trace("", scratch.Path(), {"--stats"});

  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err, "veltpipe: lines in 0, records out 0, retries 0, files rotated 0\n");
  EXPECT_EQ(CountLogs(scratch.Path()), 1U);
  EXPECT_THAT(Traced(scratch.Path()), IsEmpty());
}

TEST(VeltpipeLineTest, ANulByteBecomesABackslashAndAZero) {
  ScratchDir const scratch;

  Trace(std::string("a\0b\n\0\n", 6), scratch.Path());

  EXPECT_THAT(Traced(scratch.Path()), ElementsAre("a\\0b", "\\0"));
}

TEST(VeltpipeLineTest, ALineOfTheLongestMessageIsOneRecordAndOneMoreByteMakesTwo) {
  ScratchDir const scratch;
  std::string const longest(2048, 'x');

  Outcome const outcome = Trace(longest + "\n" + longest + "y\n", scratch.Path(), {"--stats"});

  EXPECT_THAT(outcome.err, HasSubstr("lines in 2, records out 3"));
  EXPECT_THAT(Traced(scratch.Path()), ElementsAre(longest, longest, "y"));
}

TEST(VeltpipeLineTest, AVeryLongLineIsWholeInItsRecords) {
  ScratchDir const scratch;
  std::string line;
  for (int i = 0; line.size() < 300000; ++i) line += std::to_string(i) + ",";

  Outcome const outcome = Trace(line, scratch.Path(), {"--stats"});

  std::string joined;
  for (auto const& message : Traced(scratch.Path())) joined += message;
  EXPECT_TRUE(joined == line);
  EXPECT_THAT(outcome.err, HasSubstr("lines in 1, records out 147,"));
}

TEST(VeltpipeLineTest, ALongLineIsNotCutWithinAUtf8Sequence) {
  for (std::string const letter : {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"}) {
    for (std::size_t inside = 1; inside < letter.size(); ++inside) {
      SCOPED_TRACE(letter + " with " + std::to_string(inside) + " bytes before the limit");
      ScratchDir const scratch;
      std::string const head(2048 - inside, 'x');

      Trace(head + letter + "end\n", scratch.Path());

      EXPECT_THAT(Traced(scratch.Path()), ElementsAre(head, letter + "end"));
    }
  }
}

TEST(VeltpipeLineTest, ALetterThatEndsAtTheLimitStaysBeforeIt) {
  ScratchDir const scratch;
  std::string const head = std::string(2045, 'x') + "\xE2\x82\xAC";

  Trace(head + "end\n", scratch.Path());

  EXPECT_THAT(Traced(scratch.Path()), ElementsAre(head, "end"));
}

TEST(VeltpipeLineTest, BytesThatAreNoUtf8AreKeptAsTheyAre) {
  ScratchDir const scratch;
  std::string const bytes(5000, '\x80');

  Trace(bytes + "\n", scratch.Path());

  EXPECT_THAT(Traced(scratch.Path()),
              ElementsAre(std::string(2048, '\x80'), std::string(2048, '\x80'), std::string(904, '\x80')));
}

TEST(VeltpipeLineTest, ALongLineIsNotCutWithinAnEscapedNul) {
  ScratchDir const scratch;
  std::string const head(2047, 'x');

  Trace(head + std::string("\0z\n", 3), scratch.Path());

  EXPECT_THAT(Traced(scratch.Path()), ElementsAre(head, "\\0z"));
}

TEST(VeltpipeLineTest, EscapeWritesEachByteOfAControlCharacterInHexadecimal) {
  ScratchDir const scratch;

  Outcome const outcome = Trace(std::string("a\tb\r\n\x1b[31m\x7f\0c\n\xC2\x9B"
                                            "d \xC3\xA9 \xE2\x82\xAC \xC2\xA0\n",
                                            28),
                                scratch.Path(), {"--escape"});

  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_THAT(Traced(scratch.Path()), ElementsAre("a\\x09b\\x0d", "\\x1b[31m\\x7f\\x00c",
                                                  "\\xc2\\x9bd \xC3\xA9 \xE2\x82\xAC \xC2\xA0"));
}

TEST(VeltpipeLineTest, ALongLineIsNotCutWithinAnEscapedCharacter) {
  ScratchDir const scratch;

  Outcome const outcome = Trace(std::string(2045, 'a') + "\x1b\n", scratch.Path(), {"--escape"});

  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_THAT(Traced(scratch.Path()), ElementsAre(std::string(2045, 'a'), "\\x1b"));
}

TEST(VeltpipeLineTest, WithoutEscapeControlCharactersStay) {
  ScratchDir const scratch;

  Trace("a\t\x1b\xC2\x9B\n", scratch.Path());

  EXPECT_THAT(Traced(scratch.Path()), ElementsAre("a\t\x1b\xC2\x9B"));
}

TEST(VeltpipeLineTest, PrintCopiesEveryRecordToStandardOutput) {
  ScratchDir const scratch;

  Outcome const outcome = Trace("one\ntwo\n", scratch.Path(), {"--print"});

  EXPECT_THAT(MessagesIn(outcome.out), ElementsAre("one", "two"));
  EXPECT_THAT(Traced(scratch.Path()), ElementsAre("one", "two"));
}

}  // namespace
}  // namespace velt::test
