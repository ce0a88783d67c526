// What the tests of log files share: a channel's directory and the one file in it. The channels have no
// output thread.
#ifndef VELT_TESTS_CHANNEL_LOG_FILE_H
#define VELT_TESTS_CHANNEL_LOG_FILE_H

#include <cstddef>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/channel.h"
#include "tests/support/files.h"

namespace velt::test {

inline constexpr std::size_t kLongestWrite = 2'097'152;

class LogFileTest : public ::testing::Test {
 protected:
  // The one log file that the directory holds; empty when it does not hold exactly one file.
  std::string Name() const {
    auto const names = ListDir(setup.directory);
    return names.size() == 1 ? names.front() : "";
  }
  std::string Content() const { return ReadFile(setup.directory + "/" + Name()); }
  std::string Head() const { return HeadOf(Name(), setup); }

  ScratchDir const dir;
  ChannelSetup setup{dir.Path()};
};

}  // namespace velt::test

#endif
