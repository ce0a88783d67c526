// What the tests of the MRB functions share: an installation, and a manager with an engine or with a log.
#ifndef VELT_TESTS_PROCESS_MRB_H
#define VELT_TESTS_PROCESS_MRB_H

#include <sys/stat.h>

#include <cstdlib>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/support/files.h"

namespace velt::test {

struct Call {
  std::string module;
  int level;
  std::string text;
  bool null_text;
  bool asn;
  bool print;
  bool log;
};

// Receives what the MRB functions pass to the manager.
class RecordingEngine : public VeltDebugEngine {
 public:
  explicit RecordingEngine(std::vector<Call>& calls) : calls_(calls) {}

  bool Trace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn, bool print,
             bool log) override {
    std::lock_guard const lock(mutex_);
    calls_.push_back(
        {module, level, text == nullptr ? "" : text, text == nullptr, asn != nullptr, print, log});
    return true;
  }
  bool AppTrace(std::string const&, VeltLogLevel, char const*, AsnType const*, bool, bool,
                std::string const&) override {
    return false;
  }

 private:
  std::mutex mutex_;
  std::vector<Call>& calls_;
};

// An installation of its own for each test, without any configuration file at first.
class MrbTest : public testing::Test {
 protected:
  MrbTest() {
    mkdir((root_ / "conf").c_str(), 0755);
    setenv("APP_ROOT", root_.Path().c_str(), 1);
    for (char const* const name : {"COMMON_LIB_PATH", "_APP_LOG_DIR", "_APP_TMP_DIR"}) unsetenv(name);
  }
  ~MrbTest() override { VeltDebugMgr::Destroy(); }

  void WriteMain(std::string const& content) { WriteFile(root_ / "conf/velt.cfg", content); }

  // A manager without channels whose engine takes every call.
  void StartWithEngine() {
    VeltDebugMgr::Instance()->Init("mrb_test", "", "", "", false, true);
    VeltDebugMgr::Instance()->RegDebugEngine(new RecordingEngine(calls_));
  }

  // A manager with a main channel in the log directory; the debug configuration may be given.
  void StartWithChannel(std::string const& debug_configuration = "debug_level=0000\n") {
    WriteFile(root_ / "conf/default_debug.cfg", debug_configuration);
    ASSERT_TRUE(VeltDebugMgr::Instance()->Init("mrb_test", "", root_ / "log", "header\n", false, false));
  }

  // Everything that was logged, after an orderly stop.
  std::string StopAndReadLog() {
    VeltDebugMgr::Destroy();
    return ReadFamily(root_ / "log", "mrb_test");
  }

  ScratchDir root_;
  std::vector<Call> calls_;
};

}  // namespace velt::test

#endif
