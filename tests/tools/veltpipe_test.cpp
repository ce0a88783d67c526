// veltpipe as its users run it: what comes in on standard input is in the log family, whatever happens in
// between.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/process.h"
#include "tests/support/running_program.h"

namespace velt::test {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

std::string const kProgram = std::string(VELT_TOOLS_DIR) + "/veltpipe";

std::vector<std::string> Command(std::string const& directory, std::vector<std::string> const& options = {}) {
  std::vector<std::string> command{kProgram, "--name", "t_", "--dir", directory};
  command.insert(command.end(), options.begin(), options.end());
  return command;
}

Outcome Trace(std::string const& input, std::string const& directory,
              std::vector<std::string> const& options = {}) {
  return RunProgram(Command(directory, options), input);
}

// What follows `label` ("app I: ") in the records of a text, in order.
std::vector<std::string> MessagesIn(std::string const& text, std::string const& label = "app I: ") {
  std::vector<std::string> messages;
  for (auto const& line : Lines(text)) {
    std::size_t const thread = line.find(".T");
    std::size_t const at = line.find(" " + label);
    if (thread == 21 && at != std::string::npos) messages.push_back(line.substr(at + 1 + label.size()));
  }
  return messages;
}

std::vector<std::string> Traced(std::string const& directory, std::string const& label = "app I: ") {
  return MessagesIn(ReadFamily(directory, "t_"), label);
}

std::size_t CountLogs(std::string const& directory) { return FilesOf(directory, "t_", ".log").size(); }
std::size_t CountArchives(std::string const& directory) { return FilesOf(directory, "t_", ".log.gz").size(); }

// Numbered lines of 100 characters each, newline included.
std::string NumberedLines(int count) {
  std::string text;
  for (int i = 0; i < count; ++i) {
    std::string line = "line " + std::to_string(i) + " ";
    line.resize(99, '.');
    text += line + "\n";
  }
  return text;
}

// Empty when both hold the same lines in the same order; otherwise what the first difference is.
std::string FirstDifference(std::vector<std::string> const& expected, std::vector<std::string> const& found) {
  for (std::size_t i = 0; i < expected.size() && i < found.size(); ++i) {
    if (expected[i] != found[i]) return "expected \"" + expected[i] + "\", found \"" + found[i] + "\"";
  }
  if (expected.size() == found.size()) return {};
  return std::to_string(expected.size()) + " lines expected, " + std::to_string(found.size()) + " found";
}

std::string NameOfThisSecond() {
  std::time_t const now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char text[32];
  std::strftime(text, sizeof text, "%Y%m%d_%H%M%S", &local);
  return std::string("t_") + text + ".log";
}

Descriptor OpenInput(std::string const& path) { return Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC)); }
Descriptor OpenOutput(std::string const& path) {
  return Descriptor(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
}

// Reads on until `text` holds at least `bytes` bytes; false when the other end is closed before.
bool ReadOn(Descriptor const& from, std::string& text, std::size_t bytes) {
  char block[65536];
  while (text.size() < bytes) {
    ssize_t const count = read(from, block, sizeof block);
    if (count <= 0) return false;
    text.append(block, static_cast<std::size_t>(count));
  }
  return true;
}

void WriteAll(Descriptor const& to, std::string const& text) {
  for (std::size_t done = 0; done < text.size();) {
    ssize_t const count = write(to, text.data() + done, text.size() - done);
    if (count < 0) throw std::runtime_error("the program does not read");
    done += static_cast<std::size_t>(count);
  }
}

// Whether the program has read everything that was written into the pipe.
bool IsDrained(Descriptor const& pipe) {
  int waiting = -1;
  return ioctl(pipe, FIONREAD, &waiting) == 0 && waiting == 0;
}

// --- Command line ---

TEST(VeltpipeCommandLineTest, HelpNamesEveryOptionOnStandardOutput) {
  Outcome const outcome = RunProgram({kProgram, "--help"});

  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(outcome.err, IsEmpty());
  for (char const* const option :
       {"--name", "--dir", "--size", "--keep", "--module", "--level", "--print", "--escape", "--on-stall",
        "--config", "--stats", "--json", "--progress", "--help", "--version"}) {
    EXPECT_THAT(outcome.out, HasSubstr(std::string("\n  ") + option + " "));
  }
}

TEST(VeltpipeCommandLineTest, VersionIsOneLine) {
  Outcome const outcome = RunProgram({kProgram, "--version"});

  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.out, "veltpipe 1.0.0\n");
}

TEST(VeltpipeCommandLineTest, AnOutputThatTakesNothingOfHelpOrVersionIsExitCodeOneAndAMessage) {
  ScratchDir const scratch;
  for (char const* const option : {"--help", "--version"}) {
    SCOPED_TRACE(option);
    Descriptor const full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    Descriptor const err(open((scratch / "err").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    RunningProgram program({kProgram, option}, {-1, full, err});

    EXPECT_EQ(program.Wait(), 1);
    EXPECT_EQ(ReadFile(scratch / "err"),
              "veltpipe: cannot write to standard output: No space left on device\n");
  }
}

TEST(VeltpipeCommandLineTest, EachMistakeIsExitCodeTwoAndAMessageAndLeavesNoFile) {
  ScratchDir const scratch;
  std::string const logs = scratch / "logs";
  std::vector<std::vector<std::string>> const mistakes{{"--unknown"},
                                                       {"--size"},
                                                       {"--size", "0"},
                                                       {"--size", "51"},
                                                       {"--size", "5x"},
                                                       {"--size", ""},
                                                       {"--size", "99999999999999999999"},
                                                       {"--keep", "0"},
                                                       {"--keep", "201"},
                                                       {"--level", "-1"},
                                                       {"--level", "32"},
                                                       {"--name", ""},
                                                       {"--name", "a/b"},
                                                       {"--name", std::string(234, 'n')},
                                                       {"--dir", ""},
                                                       {"--module", "a\nb"},
                                                       {"--config", scratch / "missing.cfg"},
                                                       {"--config", scratch.Path()},
                                                       {"--on-stall", "block"},
                                                       {"--on-stall"},
                                                       {"--config", "/dev/null"},
                                                       {"server.log"}};
  for (auto const& mistake : mistakes) {
    SCOPED_TRACE(mistake.front() + " " + mistake.back());

    Outcome const outcome = Trace("line\n", logs, mistake);

    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_THAT(outcome.out, IsEmpty());
    EXPECT_THAT(outcome.err, HasSubstr("veltpipe"));
    EXPECT_FALSE(Exists(logs));
  }
}

TEST(VeltpipeCommandLineTest, NameAndDirectoryAreBothNeeded) {
  ScratchDir const scratch;

  Outcome const no_name = RunProgram({kProgram, "--dir", scratch.Path()});
  Outcome const no_directory = RunProgram({kProgram, "--name", "t_"});

  EXPECT_EQ(no_name.exit_code, 2);
  EXPECT_THAT(no_name.err, HasSubstr("--name"));
  EXPECT_EQ(no_directory.exit_code, 2);
  EXPECT_THAT(no_directory.err, HasSubstr("--dir"));
}

TEST(VeltpipeCommandLineTest, LimitsAtBothEndsOfTheirRangesAreTaken) {
  ScratchDir const scratch;

  Outcome const lowest = Trace("a\n", scratch / "low", {"--size", "1", "--keep", "1", "--level", "0"});
  Outcome const highest = Trace("b\n", scratch / "high", {"--size", "50", "--keep", "200", "--level", "31"});

  EXPECT_EQ(lowest.exit_code, 0) << lowest.err;
  EXPECT_EQ(highest.exit_code, 0) << highest.err;
}

// --- Directory ---

TEST(VeltpipeDirectoryTest, AMissingDirectoryIsMadeWithItsParents) {
  ScratchDir const scratch;

  Outcome const outcome = Trace("line\n", scratch / "a/b/c");

  EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
  EXPECT_THAT(Traced(scratch / "a/b/c"), ElementsAre("line"));
}

TEST(VeltpipeDirectoryTest, AFileInPlaceOfTheDirectoryIsExitCodeOne) {
  ScratchDir const scratch;
  WriteFile(scratch / "logs", "a file");

  Outcome const outcome = Trace("line\n", scratch / "logs");

  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_THAT(outcome.err, HasSubstr(scratch / "logs"));
  EXPECT_EQ(ReadFile(scratch / "logs"), "a file");
}

TEST(VeltpipeDirectoryTest, ADirectoryThatCannotBeMadeIsExitCodeOne) {
  ScratchDir const scratch;
  WriteFile(scratch / "file", "");

  Outcome const outcome = Trace("line\n", scratch / "file/logs");

  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_THAT(outcome.err, HasSubstr("cannot create the directory"));
}

// --- Lines and records ---

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

// --- Files ---

TEST(VeltpipeFileTest, EveryLineIsThereOnceAcrossRotationsFasterThanOneASecond) {
  ScratchDir const scratch;
  std::string const input = NumberedLines(18000);  // 2.4 MB in the files

  Outcome const outcome = Trace(input, scratch.Path(), {"--size", "1", "--stats"});

  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err, "veltpipe: lines in 18000, records out 18000, retries 0, files rotated 2\n");
  EXPECT_EQ(CountArchives(scratch.Path()), 2U);
  EXPECT_EQ(CountLogs(scratch.Path()), 1U);
  EXPECT_EQ(FirstDifference(Lines(input), Traced(scratch.Path())), "");
}

TEST(VeltpipeFileTest, ARunThatFollowsAnotherAtOnceLosesNeither) {
  ScratchDir const scratch;

  for (char const* const line : {"first", "second", "third"}) Trace(line, scratch.Path());

  EXPECT_THAT(Traced(scratch.Path()), ElementsAre("first", "second", "third"));
}

TEST(VeltpipeFileTest, ANameThatAnArchiveHasIsPassedOver) {
  ScratchDir const scratch;
  WaitForNextSecond();
  std::string const taken = NameOfThisSecond();
  WriteFile(scratch / (taken + ".gz"), "not to be touched");

  Trace("line\n", scratch.Path());

  EXPECT_FALSE(Exists(scratch / taken));
  EXPECT_EQ(ReadFile(scratch / (taken + ".gz")), "not to be touched");
  EXPECT_EQ(CountLogs(scratch.Path()), 1U);
}

TEST(VeltpipeFileTest, ManyRotationsASecondLoseNothingAndKeepTheInputAtItsPace) {
  ScratchDir const scratch;
  std::string const input = NumberedLines(150000);  // 20 MB in the files
  auto const began = std::chrono::steady_clock::now();

  Outcome const outcome = Trace(input, scratch.Path(), {"--size", "1", "--stats"});
  auto const took = std::chrono::steady_clock::now() - began;

  EXPECT_EQ(outcome.exit_code, 0);
  std::size_t const rotated = CountArchives(scratch.Path());
  EXPECT_GE(rotated, 15U);
  EXPECT_EQ(outcome.err, "veltpipe: lines in 150000, records out 150000, retries 0, files rotated " +
                             std::to_string(rotated) + "\n");
  EXPECT_EQ(FirstDifference(Lines(input), Traced(scratch.Path())), "");
  EXPECT_LT(took, std::chrono::seconds(rotated)) << "a file a second is too slow";
}

TEST(VeltpipeFileTest, KeepBoundsTheArchivesOfEarlierRuns) {
  ScratchDir const scratch;
  for (char const* const day : {"01", "02", "03"}) {
    WriteFile(scratch / (std::string("t_202001") + day + "_000000.log.gz"), "archive");
  }

  Trace("line\n", scratch.Path(), {"--keep", "2"});

  EXPECT_THAT(FilesOf(scratch.Path(), "t_2020", ".gz"),
              ElementsAre("t_20200102_000000.log.gz", "t_20200103_000000.log.gz"));
}

// --- Configuration ---

class VeltpipeConfigTest : public testing::Test {
 protected:
  // Traces 1.1 MB with a configuration of that text; the directory gets three archives of earlier runs first.
  Outcome TraceWith(std::string const& config, std::vector<std::string> options = {}) {
    for (char const* const day : {"01", "02", "03"}) {
      WriteFile(logs_ / (std::string("t_202001") + day + "_000000.log.gz"), "archive");
    }
    WriteFile(scratch_ / "debug.cfg", config);
    options.insert(options.end(), {"--config", scratch_ / "debug.cfg", "--stats"});
    return Trace(NumberedLines(8200), logs_.Path(), options);
  }

  std::size_t EarlierArchives() const { return FilesOf(logs_.Path(), "t_2020", ".gz").size(); }

  ScratchDir scratch_;
  ScratchDir logs_;
};

TEST_F(VeltpipeConfigTest, LimitsComeFromTheFile) {
  Outcome const outcome = TraceWith("nEachFileMaxSize = 1\nnEachProcessMaxZipNum = 2\n");

  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(outcome.err, HasSubstr("files rotated 1\n"));
  EXPECT_EQ(CountArchives(logs_.Path()), 2U);
}

TEST_F(VeltpipeConfigTest, NumbersOutOfRangeInTheFileAreReplacedByTheDefaults) {
  Outcome const outcome =
      TraceWith("nEachFileMaxSize = 0\nnEachProcessMaxZipNum = 201\nnFiltLogBufSize = -1\n");

  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(outcome.err, HasSubstr("files rotated 0\n"));
  EXPECT_EQ(EarlierArchives(), 3U);
}

TEST_F(VeltpipeConfigTest, AnOptionWinsOverTheFile) {
  Outcome const outcome =
      TraceWith("nEachFileMaxSize = 1\nnEachProcessMaxZipNum = 1\n", {"--size", "50", "--keep", "2"});

  EXPECT_THAT(outcome.err, HasSubstr("files rotated 0\n"));
  EXPECT_EQ(EarlierArchives(), 2U);
}

TEST_F(VeltpipeConfigTest, LevelsAndOutputsOfTheFileDoNotFilter) {
  WriteFile(scratch_ / "debug.cfg", "debug_level = 0000\napp_level = 0000\napp_output = 0000\n");

  Trace("line\n", logs_.Path(), {"--config", scratch_ / "debug.cfg"});

  EXPECT_THAT(Traced(logs_.Path()), ElementsAre("line"));
}

// --- Signals ---

class VeltpipeSignalTest : public testing::TestWithParam<int> {};

TEST_P(VeltpipeSignalTest, WhatWasReadIsTracedAnUnfinishedLineToo) {
  ScratchDir const scratch;
  PipeEnds input;
  Descriptor const err = OpenOutput(scratch / "err.txt");
  RunningProgram program(Command(scratch / "logs", {"--stats"}), {input.read, -1, err});
  WriteAll(input.write, "first\nsecond\nunfinished");
  ASSERT_TRUE(WaitUntil([&input] { return IsDrained(input.write); }));

  program.Signal(GetParam());
  int const exit_code = program.Wait();

  EXPECT_EQ(exit_code, 0);
  EXPECT_EQ(ReadFile(scratch / "err.txt"),
            "veltpipe: lines in 3, records out 3, retries 0, files rotated 0\n");
  EXPECT_THAT(Traced(scratch / "logs"), ElementsAre("first", "second", "unfinished"));
}

INSTANTIATE_TEST_SUITE_P(Each, VeltpipeSignalTest, testing::Values(SIGTERM, SIGINT, SIGHUP));

TEST(VeltpipeSignalTest, ASignalBetweenRotationsLosesNothingThatWasRead) {
  ScratchDir const scratch;
  std::string const text = NumberedLines(20000);  // 2.6 MB in the files
  PipeEnds input;
  RunningProgram program(Command(scratch / "logs", {"--size", "1"}), {input.read, -1, -1});
  WriteAll(input.write, text);
  ASSERT_TRUE(WaitUntil([&] { return CountArchives(scratch / "logs") >= 1; }));

  program.Signal(SIGTERM);
  int const exit_code = program.Wait();
  int unread = 0;
  ASSERT_EQ(ioctl(input.read, FIONREAD, &unread), 0);
  std::size_t const read = text.size() - static_cast<std::size_t>(unread);

  EXPECT_EQ(exit_code, 0);
  EXPECT_EQ(FirstDifference(Lines(text.substr(0, read)), Traced(scratch / "logs")), "");
}

// Whether the program has got as far as receiving signals instead of dying of them.
bool ReceivesSignals(RunningProgram const& program) {
  std::error_code gone;  // a descriptor may be closed between two looks
  for (auto const& entry :
       std::filesystem::directory_iterator("/proc/" + std::to_string(program.Pid()) + "/fd", gone)) {
    if (std::filesystem::read_symlink(entry.path(), gone) == "anon_inode:[signalfd]") return true;
  }
  return false;
}

// A directory that exists and in which no log file can be opened: with a file name behind it the path is too
// long.
std::string UnusableDirectory(ScratchDir const& scratch) {
  std::string directory = scratch.Path();
  while (directory.size() < 4080)
    directory += "/" + std::string(std::min<std::size_t>(200, 4080 - directory.size()), 'd');
  std::filesystem::create_directories(directory);
  return directory;
}

TEST(VeltpipeSignalTest, ASignalEndsTheWaitForAFileThatCannotBeOpened) {
  ScratchDir const scratch;
  std::string const directory = UnusableDirectory(scratch);
  Descriptor const err = OpenOutput(scratch / "err.txt");
  PipeEnds input;
  RunningProgram program(Command(directory, {"--stats"}), {input.read, -1, err});
  WriteAll(input.write, "line\n");
  ASSERT_TRUE(WaitUntil([&input] { return IsDrained(input.write); }));
  ASSERT_TRUE(WaitUntil([&program] { return ReceivesSignals(program); }));

  program.Signal(SIGTERM);
  int const exit_code = program.Wait();

  EXPECT_EQ(exit_code, 1);
  std::string const err_text = ReadFile(scratch / "err.txt");
  EXPECT_THAT(err_text, HasSubstr("veltpipe: cannot open the log file " + directory + "/t_"));
  EXPECT_THAT(err_text,
              HasSubstr(", tried again every second, records wait in the queue: File name too long"));
  EXPECT_THAT(err_text, HasSubstr("veltpipe: no log file could be opened at the end: File name too long\n"
                                  "veltpipe: 1 records were read but not written\n"
                                  "veltpipe: lines in 1, records out 0, retries 0, files rotated 0\n"));
}

TEST(VeltpipeFaultTest, WithOnStallDropAFileThatCannotBeOpenedIsNotWaitedForAtTheEnd) {
  ScratchDir const scratch;

  Outcome const outcome = Trace("one\ntwo\n", UnusableDirectory(scratch), {"--on-stall", "drop"});

  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_THAT(outcome.err, HasSubstr("veltpipe: no log file could be opened at the end: File name too long\n"
                                     "veltpipe: 2 records were read but not written\n"));
}

// --- Faults ---

TEST(VeltpipeFaultTest, AClosedStandardInputIsAnEmptyOne) {
  ScratchDir const scratch;
  RunningProgram program(Command(scratch / "logs"), {}, [] { close(0); });

  EXPECT_EQ(program.Wait(), 0);
  EXPECT_EQ(CountLogs(scratch / "logs"), 1U);
}

TEST(VeltpipeFaultTest, AnUnreadableStandardInputIsExitCodeOne) {
  ScratchDir const scratch;
  Descriptor const directory(open(scratch.Path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  Descriptor const err = OpenOutput(scratch / "err.txt");
  RunningProgram program(Command(scratch / "logs"), {directory, -1, err});

  EXPECT_EQ(program.Wait(), 1);
  EXPECT_THAT(ReadFile(scratch / "err.txt"), HasSubstr("cannot read standard input"));
}

TEST(VeltpipeFaultTest, ClosedOutputsDoNotEndUpInTheLog) {
  ScratchDir const scratch;
  WriteFile(scratch / "in.txt", "line\n");
  Descriptor const input = OpenInput(scratch / "in.txt");
  RunningProgram program(Command(scratch / "logs", {"--print", "--stats"}), {input, -1, -1}, [] {
    close(1);
    close(2);
  });

  EXPECT_EQ(program.Wait(), 0);
  EXPECT_THAT(Traced(scratch / "logs"), ElementsAre("line"));
  EXPECT_THAT(ReadFamily(scratch / "logs", "t_"), Not(HasSubstr("lines in")));
}

TEST(VeltpipeFaultTest, AReaderOfItsOutputsThatLeavesDoesNotEndTheLog) {
  ScratchDir const scratch;
  std::string const text = NumberedLines(3000);
  WriteFile(scratch / "in.txt", text);
  Descriptor const input = OpenInput(scratch / "in.txt");
  PipeEnds output;
  RunningProgram program(Command(scratch / "logs", {"--print", "--stats"}),
                         {input, output.write, output.write});
  output.write.Close();

  output.read.Close();

  EXPECT_EQ(program.Wait(), 0);
  EXPECT_EQ(FirstDifference(Lines(text), Traced(scratch / "logs")), "");
}

TEST(VeltpipeFaultTest, ARecordThatAFullQueueRefusesIsTriedAgain) {
  ScratchDir const scratch;
  PipeEnds input;
  PipeEnds output;
  Descriptor const err = OpenOutput(scratch / "err.txt");
  RunningProgram program(Command(scratch / "logs", {"--print", "--stats"}), {input.read, output.write, err});
  input.read.Close();
  output.write.Close();
  std::size_t lines = 127000;  // just fit into the queue, while standard output is not read
  WriteAll(input.write, std::string(lines, '\n'));
  auto limit = milliseconds(60'000);
  while (lines < 140000 && WaitUntil([&input] { return IsDrained(input.write); }, limit)) {
    lines += 100;
    WriteAll(input.write, std::string(100, '\n'));
    if (lines > 127200)
      limit = milliseconds(2500);  // what is read is traced at once by now; a refusal takes a second
  }

  input.write.Close();
  std::string printed;
  ReadOn(output.read, printed, std::string::npos);

  EXPECT_EQ(program.Wait(), 0);
  std::string const stats = ReadFile(scratch / "err.txt");
  EXPECT_THAT(stats, HasSubstr("records out " + std::to_string(lines) + ", retries "));
  EXPECT_THAT(stats, Not(HasSubstr("retries 0,")));
  EXPECT_EQ(CountOf(printed, " app I: \n"), lines);
  EXPECT_EQ(CountOf(ReadFamily(scratch / "logs", "t_"), " app I: \n"), lines);
}

void LimitFileSize() {
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  limit.rlim_cur = 300000;
  setrlimit(RLIMIT_FSIZE, &limit);
}

TEST(VeltpipeFaultTest, OnAStallRecordsAreDroppedAndCountedAndTheInputIsReadOn) {
  ScratchDir const scratch;
  PipeEnds input;
  PipeEnds output;
  Descriptor const err = OpenOutput(scratch / "err.txt");
  RunningProgram program(Command(scratch / "logs", {"--print", "--stats", "--on-stall", "drop"}),
                         {input.read, output.write, err});
  input.read.Close();
  output.write.Close();

  WriteAll(input.write,
           std::string(400'000, '\n'));  // three times the queue, while standard output is not read
  input.write.Close();
  std::string printed;
  ReadOn(output.read, printed, std::string::npos);

  EXPECT_EQ(program.Wait(), 1);
  std::string const stats = ReadFile(scratch / "err.txt");
  std::size_t const kept = CountOf(printed, " app I: \n");
  EXPECT_GE(kept, 128'000U);
  EXPECT_THAT(stats, HasSubstr("veltpipe: the queue of the log family " + (scratch / "logs/t_") +
                               " is full, 1 record refused\n"));
  EXPECT_THAT(stats, HasSubstr("veltpipe: " + std::to_string(400'000 - kept) +
                               " records were dropped while the log took no more\n"));
  EXPECT_THAT(stats, HasSubstr("lines in 400000, records out " + std::to_string(kept) + ", retries 0,"));
  EXPECT_EQ(CountOf(ReadFamily(scratch / "logs", "t_"), " app I: \n"), kept);
}

TEST(VeltpipeLockTest, ASecondPipeOnTheFamilyIsRefusedAndOneOnAnotherIsNot) {
  ScratchDir const scratch;
  PipeEnds input;
  RunningProgram first(Command(scratch / "logs"), {input.read, -1, -1});
  ASSERT_TRUE(WaitUntil([&scratch] { return CountLogs(scratch / "logs") == 1; }));

  Outcome const second = Trace("line\n", scratch / "logs/.");
  Outcome const other = RunProgram({kProgram, "--name", "other_", "--dir", scratch / "logs"}, "line\n");

  EXPECT_EQ(second.exit_code, 1);
  EXPECT_EQ(second.err, "veltpipe: another veltpipe writes the family t_ in " + (scratch / "logs/.") +
                            "; give another --name or another place with --dir\n");
  EXPECT_EQ(other.exit_code, 0) << other.err;
  WriteAll(input.write, "of the first\n");
  input.write.Close();
  EXPECT_EQ(first.Wait(), 0);
  EXPECT_THAT(Traced(scratch / "logs"), ElementsAre("of the first"));
}

TEST(VeltpipeLockTest, AKilledPipeLeavesTheFamilyToTheNext) {
  ScratchDir const scratch;
  PipeEnds input;
  RunningProgram first(Command(scratch / "logs"), {input.read, -1, -1});
  ASSERT_TRUE(WaitUntil([&scratch] { return CountLogs(scratch / "logs") == 1; }));
  first.Signal(SIGKILL);
  ASSERT_EQ(first.Wait(), -1);

  Outcome const next = Trace("line\n", scratch / "logs");

  EXPECT_EQ(next.exit_code, 0) << next.err;
  EXPECT_THAT(Traced(scratch / "logs"), ElementsAre("line"));
}

TEST(VeltpipeLockTest, ALockThatCannotBeHadIsSaidAndTheLogGoesOn) {
  ScratchDir const scratch;
  std::filesystem::create_directories(scratch / "logs/.t_.lock");

  Outcome const outcome = Trace("line\n", scratch / "logs");

  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.err, "veltpipe: cannot lock the family t_ in " + (scratch / "logs") +
                             ": Is a directory; a second veltpipe would not be noticed\n");
  EXPECT_THAT(Traced(scratch / "logs"), ElementsAre("line"));
}

TEST(VeltpipeFaultTest, AFileThatTakesNoMoreToTheEndIsExitCodeOneAndAMessage) {
  ScratchDir const scratch;
  WriteFile(scratch / "in.txt", NumberedLines(4000));
  Descriptor const input = OpenInput(scratch / "in.txt");
  Descriptor const err = OpenOutput(scratch / "err.txt");
  RunningProgram program(Command(scratch / "logs", {"--stats"}), {input, -1, err}, LimitFileSize);

  EXPECT_EQ(program.Wait(), 1);
  std::string const family = ReadFamily(scratch / "logs", "t_");
  EXPECT_EQ(family.size(), 300000U);
  std::size_t const whole = CountOf(family, ".\n");  // the torn line has no end
  std::string const err_text = ReadFile(scratch / "err.txt");
  EXPECT_THAT(err_text, HasSubstr("veltpipe: cannot write to the log file " + (scratch / "logs/t_2")));
  EXPECT_THAT(err_text, HasSubstr(".log, 1 record lost: File too large"));
  EXPECT_THAT(err_text, HasSubstr("veltpipe: " + std::to_string(4000 - whole) +
                                  " records could not be written: File too large\n"));
  EXPECT_THAT(err_text, HasSubstr("lines in 4000, records out " + std::to_string(whole) + ", "));
}

TEST(VeltpipeFaultTest, AFileThatTookNoMoreForAWhileCostsTheRecordsOfThatWhileAndTheyAreCounted) {
  ScratchDir const scratch;
  std::string const text = NumberedLines(12000);
  WriteFile(scratch / "in.txt", text);
  Descriptor const input = OpenInput(scratch / "in.txt");
  Descriptor const err = OpenOutput(scratch / "err.txt");
  PipeEnds output;
  RunningProgram program(Command(scratch / "logs", {"--size", "1", "--print"}), {input, output.write, err},
                         LimitFileSize);
  output.write.Close();
  std::string printed;
  ASSERT_TRUE(ReadOn(output.read, printed, 600000))
      << "twice what the file takes has been through the output thread";
  rlimit limit{};
  ASSERT_EQ(prlimit(program.Pid(), RLIMIT_FSIZE, nullptr, &limit), 0);
  limit.rlim_cur = limit.rlim_max;

  ASSERT_EQ(prlimit(program.Pid(), RLIMIT_FSIZE, &limit, nullptr), 0);
  ReadOn(output.read, printed, std::string::npos);

  EXPECT_EQ(program.Wait(), 1);
  EXPECT_EQ(FirstDifference(Lines(text), MessagesIn(printed)), "");
  std::size_t const whole = CountOf(ReadFamily(scratch / "logs", "t_"), ".\n");
  std::string const err_text = ReadFile(scratch / "err.txt");
  EXPECT_THAT(err_text, HasSubstr("takes records again, "));
  EXPECT_THAT(err_text, HasSubstr("veltpipe: " + std::to_string(12000 - whole) +
                                  " records could not be written: File too large\n"));
  std::vector<std::string> const traced = Traced(scratch / "logs");
  ASSERT_FALSE(traced.empty());
  EXPECT_EQ(traced.front(), Lines(text).front());
  EXPECT_EQ(traced.back(), Lines(text).back());
}

TEST(VeltpipeFaultTest, ADirectoryThatVanishesIsWrittenAgainFromTheNextFileOn) {
  ScratchDir const scratch;
  PipeEnds input;
  RunningProgram program(Command(scratch / "logs", {"--size", "1"}), {input.read, -1, -1});
  WriteAll(input.write, "first\n");
  ASSERT_TRUE(WaitUntil([&] { return Traced(scratch / "logs").size() == 1; }));
  std::filesystem::remove_all(scratch / "logs");

  WriteAll(input.write, NumberedLines(9000) + "last\n");
  input.write.Close();

  EXPECT_EQ(program.Wait(), 0);
  std::vector<std::string> const traced = Traced(scratch / "logs");
  ASSERT_FALSE(traced.empty());
  EXPECT_EQ(traced.back(), "last");
}

}  // namespace
}  // namespace velt::test
