// What the tests of the syslog engine share: its options, with a socket on which the test is the daemon.
#ifndef VELT_TESTS_EXAMPLES_ENGINE_SYSLOG_H
#define VELT_TESTS_EXAMPLES_ENGINE_SYSLOG_H

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "examples/engine_syslog/engine_syslog.h"
#include "tests/support/files.h"
#include "tests/support/syslog_daemon.h"

namespace velt::examples {

using Daemon = test::SyslogDaemon;
using std::chrono::milliseconds;

inline constexpr VeltLogLevel kInformation{3};
inline constexpr milliseconds kLong{60'000};

class SyslogEngineTest : public testing::Test {
 protected:
  SyslogEngineTest() {
    options_.socket_path = scratch_ / "log";
    options_.ident = "server";
    options_.follow_module_sets = false;
    options_.stop_limit = milliseconds(0);  // what is left at the end of a test is of no interest
  }

  static bool Trace(SyslogEngine& engine, std::string const& text) {
    return engine.Trace("net", kInformation, text.c_str(), nullptr, false, true);
  }

  // Traces "0", "1", ... until the buffer takes no more; the number that were accepted.
  static std::size_t Fill(SyslogEngine& engine) {
    std::size_t count = 0;
    while (Trace(engine, std::to_string(count))) ++count;
    return count;
  }

  static std::vector<std::string> Numbers(std::size_t count) {
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < count; ++i) texts.push_back("I: " + std::to_string(i));
    return texts;
  }

  test::ScratchDir scratch_;
  SyslogOptions options_;
};

}  // namespace velt::examples

#endif
