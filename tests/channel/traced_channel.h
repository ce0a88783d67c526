// What the tests of trace calls share: a channel in a scratch directory, read back once it has ended.
#ifndef VELT_TESTS_CHANNEL_TRACED_CHANNEL_H
#define VELT_TESTS_CHANNEL_TRACED_CHANNEL_H

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "velt/channel.h"

#include "tests/support/channel.h"
#include "tests/support/files.h"

namespace velt::test {

inline VeltLogLevel Level(int value) { return VeltLogLevel{value}; }

class TraceTest : public ::testing::Test {
 protected:
  // Everything in the files of the channel once it has ended.
  std::string LogAfterStop() {
    channel.reset();
    return ReadFamily(dir.Path(), "t_");
  }

  ScratchDir const dir;
  ChannelSetup setup{dir.Path()};
  std::unique_ptr<VeltDebugInfo> channel;
};

}  // namespace velt::test

#endif
