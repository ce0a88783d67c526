// What the tests of velt/log.h share: a manager whose engine keeps the texts.
#ifndef VELT_TESTS_MANAGER_LOG_HEADER_H
#define VELT_TESTS_MANAGER_LOG_HEADER_H

#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "velt/log.h"

#include "tests/support/manager.h"
#include "tests/support/manager_host.h"

namespace velt::test {

using Strings = std::vector<std::string>;

// Keeps the whole texts that it is given; throws for module "bad".
class KeepingEngine : public VeltDebugEngine {
 public:
  explicit KeepingEngine(Strings& texts) : texts_(texts) {}
  bool Trace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn, bool print,
             bool log) override {
    if (module == "bad") throw std::runtime_error("the engine");
    if (module != "quiet") texts_.push_back(Head(module, level, asn, print, log) + text);
    return module != "refused";
  }
  bool AppTrace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn,
                bool print, bool log, std::string const& sub_name) override {
    texts_.push_back(sub_name + "/" + Head(module, level, asn, print, log) + text);
    return true;
  }

 private:
  static std::string Head(std::string const& module, int level, AsnType const* asn, bool print, bool log) {
    return module + " " + std::to_string(level) + (asn == nullptr && !print && !log ? " " : " flags ");
  }

  Strings& texts_;
};

// Uses an engine instead of a channel, so that a test has the text when the call returns.
class LogHeaderTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(host_.Init("host_", true));
    ASSERT_TRUE(Manager()->RegDebugEngine(new KeepingEngine(texts_)));
  }
  std::string Last() const { return texts_.empty() ? "(none)" : texts_.back(); }

  Strings texts_;
  ManagerHost host_;
  Module const net_{"net"};
};

}  // namespace velt::test

#endif
