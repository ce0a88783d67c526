// What the tests of routing share: a manager with a few modules, its log and its standard output.
#ifndef VELT_TESTS_MANAGER_ROUTING_H
#define VELT_TESTS_MANAGER_ROUTING_H

#include <iostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/support/files.h"
#include "tests/support/manager.h"
#include "tests/support/manager_host.h"
#include "tests/support/process.h"

namespace velt::test {

using Strings = std::vector<std::string>;

// Module "net" logs levels 3 and 4. Modules that are not here have the sets of "debug": 0 and 1.
inline constexpr char const* kConfiguration =
    "net_level = 00011\nout_level = 0001\nout_output = 1\nboth_level = 0001\nboth_output = 11\n"
    "none_level = 0001\nnone_output = 0\ndebug_level = 1100\ndebug_output = 01\n";

class RoutingTest : public ::testing::Test {
 protected:
  void TearDown() override {
    std::string const captured = output_.Text();
    if (HasFailure()) std::cout << captured;  // it holds the failure messages
  }

  void Start(std::string const& configuration = kConfiguration) {
    WriteFile(host_.ConfigFile(), configuration);
    ASSERT_TRUE(host_.Init());
  }
  void StartWithoutModules() { ASSERT_TRUE(Manager()->Init("host_", "", host_.LogDir(), "", true, false)); }

  // Everything of the main channel's files and of standard output, in order.
  Strings Logged() { return host_.StopAndRead(); }
  Strings Printed() {
    VeltDebugMgr::Destroy();
    return Bodies(output_.Text());
  }

  ManagerHost host_;
  CaptureStdout output_;
};

}  // namespace velt::test

#endif
