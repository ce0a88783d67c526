// The log family of veltpipe: rotations, names, archives, and one program at a time that writes it.
#include <chrono>
#include <csignal>
#include <cstddef>
#include <ctime>
#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/faults/scale.h"
#include "tests/support/files.h"
#include "tests/support/process.h"
#include "tests/support/running_program.h"
#include "tests/tools/veltpipe.h"

namespace velt::test {
namespace {

using testing::ElementsAre;

std::string NameOfThisSecond() {
  std::time_t const now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char text[32];
  std::strftime(text, sizeof text, "%Y%m%d_%H%M%S", &local);
  return std::string("t_") + text + ".log";
}

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
  // A sanitizer's build needs as long to write a file on a busy machine.
  if (!faults::kSanitized) {
    EXPECT_LT(took, std::chrono::seconds(rotated)) << "a file a second is too slow";
  }
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

}  // namespace
}  // namespace velt::test
