// veltpipe on devices that refuse: each error is named in the words of the system.
#include <cstdlib>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

using testing::HasSubstr;

// Runs veltpipe with calls that fail as `rules` say (tests/faults/shim/shim.h). It gets SIGTERM after
// `seconds`.
Outcome TraceWith(std::string const& rules, std::string const& directory, std::string const& seconds = "2") {
  return RunProgram(
      {"/usr/bin/env", std::string("LD_PRELOAD=") + VELT_FAULT_SHIM, "VELT_SHIM=" + rules, "/usr/bin/timeout",
       "-s", "TERM", seconds, std::string(VELT_TOOLS_DIR) + "/veltpipe", "--name", "t_", "--dir", directory},
      "line\n");
}

TEST(VeltpipeDeviceTest, AReadOnlyDiskIsNamedWhereTheDirectoryIsMissing) {
  ScratchDir const scratch;

  Outcome const outcome =
      TraceWith("mkdir,first=1,count=0,errno=EROFS,path=*/logs*", scratch / "logs/deep/er");

  EXPECT_EQ(outcome.err, "veltpipe: cannot create the directory " + (scratch / "logs/deep/er") +
                             ": Read-only file system; give another place with --dir\n");
}

TEST(VeltpipeDeviceTest, ADiskWithoutRoomIsNamedWhileAFileIsWaitedForAndAtTheEnd) {
  ScratchDir const scratch;

  Outcome const outcome = TraceWith("open,first=1,count=0,errno=ENOSPC,path=" + scratch.Path() +
                                        "*;create,first=1,count=0,errno=ENOSPC,path=" + scratch.Path() + "*",
                                    scratch.Path());

  EXPECT_THAT(outcome.err, HasSubstr("veltpipe: cannot lock the family t_ in " + scratch.Path() +
                                     ": No space left on device; a second veltpipe would not be noticed\n"));
  EXPECT_THAT(outcome.err, HasSubstr("veltpipe: cannot open the log file " + (scratch / "t_2")));
  EXPECT_THAT(outcome.err, HasSubstr(".log, 1 attempt, tried again every second, records wait in the queue: "
                                     "No space left on device (28)\n"));
  EXPECT_THAT(outcome.err,
              HasSubstr("veltpipe: no log file could be opened at the end: No space left on device\n"
                        "veltpipe: 1 records were read but not written\n"));
}

TEST(VeltpipeDeviceTest, ADiskThatHasBecomeReadOnlyIsNamed) {
  ScratchDir const scratch;

  Outcome const outcome =
      TraceWith("create,first=1,count=0,errno=EROFS,path=" + scratch.Path() + "/t_*", scratch.Path());

  EXPECT_THAT(outcome.err, HasSubstr(": Read-only file system (30)\n"));
  EXPECT_THAT(outcome.err,
              HasSubstr("veltpipe: no log file could be opened at the end: Read-only file system\n"));
}

TEST(VeltpipeDeviceTest, AFileThatCanBeOpenedOnlyLaterGetsEveryLine) {
  ScratchDir const scratch;

  Outcome const outcome =
      TraceWith("create,first=1,count=2,errno=ENOSPC,path=" + scratch.Path() + "/t_*", scratch.Path(), "60");

  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(outcome.err, HasSubstr("veltpipe: opened the log file " + (scratch / "t_2")));
  EXPECT_THAT(ReadFamily(scratch.Path(), "t_"), HasSubstr(" app I: line\n"));
}

TEST(VeltpipeDeviceTest, RecordsThatAFullDiskRefusesAreCountedAndTheErrorIsNamed) {
  ScratchDir const scratch;

  Outcome const outcome =
      TraceWith("write,first=1,count=0,errno=ENOSPC,path=" + scratch.Path() + "/t_*", scratch.Path());

  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_THAT(outcome.err, HasSubstr(".log, 1 record lost: No space left on device (28)\n"));
  EXPECT_THAT(outcome.err, HasSubstr("veltpipe: 1 records could not be written: No space left on device\n"));
}

}  // namespace
}  // namespace velt::test
