// What the tests of housekeeping share: a log directory, and a channel that works on it without a thread.
#ifndef VELT_TESTS_CHANNEL_HOUSEKEEPING_H
#define VELT_TESTS_CHANNEL_HOUSEKEEPING_H

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "velt/channel.h"

#include "tests/support/channel.h"
#include "tests/support/files.h"

namespace velt::test {

// The name of the n-th archive of prefix "abc_" in a year to come: later than every file that a test makes.
inline std::string ArchiveName(int n) {
  char name[64];
  std::snprintf(name, sizeof name, "abc_29990101_%06d.log.gz", n);
  return name;
}

class HousekeepingTest : public ::testing::Test {
 protected:
  HousekeepingTest() { setup.prefix = "abc_"; }

  void Put(std::string const& name, std::string const& content = "content") const {
    WriteFile(dir / name, content);
  }
  void PutArchives(int count) const {
    for (int n = 1; n <= count; ++n) Put(ArchiveName(n));
  }
  int TypeOf(std::string const& name) const { return MakeIdleChannel(setup)->GetFileType(name); }
  std::vector<std::string> Names() const { return ListDir(dir.Path()); }

  // Opens and closes the first file of a channel, and replaces it by a file with the name of its archive.
  std::string LeaveFirstFile(VeltDebugInfo& channel) const {
    EXPECT_TRUE(channel.OpenNewFile());
    channel.CloseFile();
    auto const logs = FilesOf(dir.Path(), setup.prefix, ".log");
    std::string const name = logs.empty() ? "" : logs.front();
    std::filesystem::rename(dir / name, dir / (name + ".gz"));
    return name + ".gz";
  }

  ScratchDir const dir;
  ChannelSetup setup{dir.Path()};
};

}  // namespace velt::test

#endif
