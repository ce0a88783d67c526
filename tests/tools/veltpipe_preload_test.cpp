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

// With calls that fail by rule, see tests/faults/shim/environment.cpp.
Outcome TraceWith(std::string const& rules, std::string const& directory) {
  return RunProgram(
      {"/usr/bin/env", "LD_PRELOAD=" VELT_FAULT_SHIM, "VELT_SHIM=" + rules, "/usr/bin/timeout", "-s", "TERM",
       "6", std::string(VELT_TOOLS_DIR) + "/veltpipe", "--name", "t_", "--dir", directory},
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
  EXPECT_THAT(outcome.err, HasSubstr("veltpipe: waiting for a log file to be opened in " + scratch.Path() +
                                     "/: No space left on device\n"));
  EXPECT_THAT(outcome.err,
              HasSubstr("veltpipe: no log file could be opened at the end: No space left on device\n"));
}

}  // namespace
}  // namespace velt::test
