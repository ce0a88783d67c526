// What veltpipe is told: its command line, its directory, its configuration file.
#include <fcntl.h>

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/process.h"
#include "tests/support/running_program.h"
#include "tests/tools/veltpipe.h"

namespace velt::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

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

}  // namespace
}  // namespace velt::test
