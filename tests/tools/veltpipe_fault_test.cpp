// veltpipe under signals, with streams that are closed, and with files that take no more.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/process.h"
#include "tests/support/running_program.h"
#include "tests/tools/veltpipe.h"

namespace velt::test {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

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

// Whether the program receives signals by now: before that they would end it.
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

// --- Faults ---

TEST(VeltpipeFaultTest, WithOnStallDropAFileThatCannotBeOpenedIsNotWaitedForAtTheEnd) {
  ScratchDir const scratch;

  Outcome const outcome = Trace("one\ntwo\n", UnusableDirectory(scratch), {"--on-stall", "drop"});

  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_THAT(outcome.err, HasSubstr("veltpipe: no log file could be opened at the end: File name too long\n"
                                     "veltpipe: 2 records were read but not written\n"));
}

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
  std::size_t lines = 127000;  // these just fit into the queue while standard output is not read
  WriteAll(input.write, std::string(lines, '\n'));
  auto limit = milliseconds(60'000);
  while (lines < 140000 && WaitUntil([&input] { return IsDrained(input.write); }, limit)) {
    lines += 100;
    WriteAll(input.write, std::string(100, '\n'));
    if (lines > 127200)
      limit = milliseconds(2500);  // by now a line that is accepted is read at once; a refusal takes a second
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

  // Three times the queue, while standard output is not read.
  WriteAll(input.write, std::string(400'000, '\n'));
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
  ASSERT_TRUE(ReadOn(output.read, printed, 600000)) << "twice what the file takes";
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
