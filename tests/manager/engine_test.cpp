// An engine of the host that takes over all tracing.
#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/support/manager.h"
#include "tests/support/manager_host.h"

namespace velt::test {
namespace {

class Value : public AsnType {
 public:
  AsnType* Clone() const override { return new Value; }
  void Print(std::ostream& out, int, int) const override { out << "value"; }
};

struct Call {
  std::string operation;
  std::string module;
  int level;
  std::string text;  // "(null)" for none
  AsnType const* asn;
  bool print;
  bool log;
  std::string sub_name;

  bool operator==(Call const& other) const {
    return operation == other.operation && module == other.module && level == other.level &&
           text == other.text && asn == other.asn && print == other.print && log == other.log &&
           sub_name == other.sub_name;
  }
};

std::ostream& operator<<(std::ostream& out, Call const& call) {
  return out << call.operation << "(" << call.module << ", " << call.level << ", " << call.text << ", "
             << call.asn << ", " << call.print << ", " << call.log << ", " << call.sub_name << ")";
}

// Notes every call in `log`, which must outlive it; returns what it is told to.
class NotingEngine : public VeltDebugEngine {
 public:
  struct Log {
    std::vector<Call> calls;
    int deleted = 0;
    bool answer = true;
  };

  explicit NotingEngine(Log& log) : log_(log) {}
  ~NotingEngine() override { ++log_.deleted; }

  bool Trace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn, bool print,
             bool log) override {
    log_.calls.push_back({"Trace", module, level, text == nullptr ? "(null)" : text, asn, print, log, ""});
    return log_.answer;
  }
  bool AppTrace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn,
                bool print, bool log, std::string const& sub_name) override {
    log_.calls.push_back(
        {"AppTrace", module, level, text == nullptr ? "(null)" : text, asn, print, log, sub_name});
    return log_.answer;
  }

 private:
  Log& log_;
};

// Runs the host's own code in each call.
template <typename Body>
class BodyEngine : public VeltDebugEngine {
 public:
  explicit BodyEngine(Body body) : body_(body) {}
  bool Trace(std::string const&, VeltLogLevel, char const*, AsnType const*, bool, bool) override {
    return body_();
  }
  bool AppTrace(std::string const&, VeltLogLevel, char const*, AsnType const*, bool, bool,
                std::string const&) override {
    return body_();
  }

 private:
  Body body_;
};

template <typename Body>
VeltDebugEngine* MakeEngine(Body body) {
  return new BodyEngine<Body>(body);
}

class EngineTest : public ::testing::Test {
 protected:
  void TearDown() override { VeltDebugMgr::Destroy(); }

  NotingEngine::Log log_;  // declared before the host, which deletes engines that still write here
  ManagerHost host_;
};

// --- what an engine receives ---

TEST_F(EngineTest, PrintfGivesTheEngineWhatNoOutputAndNoRingWouldTake) {
  WriteFile(host_.ConfigFile(), "nFiltLogBufSize = 0\nnet_level = 1\ndebug_level = 1\n");
  ASSERT_TRUE(host_.Init());
  ASSERT_TRUE(Manager()->RegDebugEngine(new NotingEngine(log_)));

  Manager()->Printf(VeltLogLevel{3}, VeltInterString("net"), "%s %d", "text", 1);
  Manager()->Printf(VeltLogLevel{32}, VeltInterString("net"), "level %d", 32);
  Manager()->Printf(VeltLogLevel{3}, "default");

  ASSERT_EQ(log_.calls.size(), 3U);
  EXPECT_EQ(log_.calls[0].text, "text 1");
  EXPECT_EQ(log_.calls[1].text, "level 32");
  EXPECT_EQ(log_.calls[2].text, "default");
}

TEST_F(EngineTest, ATraceGoesToTheEngineWithTheCallersOwnArguments) {
  ASSERT_TRUE(host_.Init());
  ASSERT_TRUE(Manager()->RegDebugEngine(new NotingEngine(log_)));
  Value const value;

  bool const traced = Manager()->Trace("net", VeltLogLevel{3}, "one %s", &value, true, false);

  EXPECT_TRUE(traced);
  EXPECT_EQ(log_.calls, (std::vector<Call>{{"Trace", "net", 3, "one %s", &value, true, false, ""}}));
  EXPECT_TRUE(host_.StopAndRead().empty()) << "no channel gets it";
}

TEST_F(EngineTest, AnAppTraceGoesToTheEngineWithItsSubName) {
  ASSERT_TRUE(host_.Init());
  ASSERT_TRUE(Manager()->RegDebugEngine(new NotingEngine(log_)));
  Value const value;

  bool const traced = Manager()->AppTrace("net", VeltLogLevel{3}, "one", &value, false, true, "gw");

  EXPECT_TRUE(traced);
  EXPECT_EQ(log_.calls, (std::vector<Call>{{"AppTrace", "net", 3, "one", &value, false, true, "gw"}}));
  VeltDebugMgr::Destroy();
  EXPECT_TRUE(ExactFamily(host_.LogDir(), "host_gw_").empty()) << "no channel is opened for it";
}

TEST_F(EngineTest, NullTextsAndLevelsOutOfRangeReachTheEngine) {
  ASSERT_TRUE(host_.Init());
  ASSERT_TRUE(Manager()->RegDebugEngine(new NotingEngine(log_)));
  std::string const long_sub_name(129, 's');

  EXPECT_TRUE(Manager()->Trace("net", VeltLogLevel{99}, nullptr, nullptr, false, false));
  EXPECT_TRUE(Manager()->Trace("debug", VeltLogLevel{32}, "x", nullptr, false, false)) << "no set is read";
  EXPECT_TRUE(Manager()->Trace("debug", VeltLogLevel{-1}, "x", nullptr, false, false));
  EXPECT_TRUE(Manager()->AppTrace("net", VeltLogLevel{99}, nullptr, nullptr, false, false, long_sub_name));

  EXPECT_EQ(log_.calls,
            (std::vector<Call>{{"Trace", "net", 99, "(null)", nullptr, false, false, ""},
                               {"Trace", "debug", 32, "x", nullptr, false, false, ""},
                               {"Trace", "debug", -1, "x", nullptr, false, false, ""},
                               {"AppTrace", "net", 99, "(null)", nullptr, false, false, long_sub_name}}));
}

TEST_F(EngineTest, AnEngineComesBeforeTheSilentAnswers) {
  ASSERT_TRUE(host_.Init("host_", true));
  ASSERT_TRUE(Manager()->RegDebugEngine(new NotingEngine(log_)));
  log_.answer = false;
  bool const app_refused = Manager()->AppTrace("net", VeltLogLevel{3}, "x", nullptr, false, false, "gw");
  log_.answer = true;
  bool const traced = Manager()->Trace("net", VeltLogLevel{3}, "x", nullptr, false, false);

  EXPECT_FALSE(app_refused);
  EXPECT_TRUE(traced);
  EXPECT_EQ(log_.calls.size(), 2U);
}

TEST_F(EngineTest, BeforeInitAnEngineReceivesNothing) {
  ASSERT_TRUE(Manager()->RegDebugEngine(new NotingEngine(log_)));

  EXPECT_FALSE(Manager()->Trace("net", VeltLogLevel{3}, "x", nullptr, true, true));
  EXPECT_FALSE(Manager()->AppTrace("net", VeltLogLevel{3}, "x", nullptr, true, true, "gw"));
  Manager()->Printf(VeltLogLevel{3}, "x");

  EXPECT_TRUE(log_.calls.empty());
}

TEST_F(EngineTest, AnEngineRegisteredBeforeInitReceivesWhatComesAfter) {
  ASSERT_TRUE(Manager()->RegDebugEngine(new NotingEngine(log_)));
  ASSERT_TRUE(host_.Init());

  EXPECT_TRUE(Manager()->Trace("net", VeltLogLevel{3}, "x", nullptr, true, true));

  EXPECT_EQ(log_.calls.size(), 1U);
}

TEST_F(EngineTest, PrintfHandsTheFormattedTextWithNeitherFlag) {
  ASSERT_TRUE(host_.Init());
  ASSERT_TRUE(Manager()->RegDebugEngine(new NotingEngine(log_)));

  Manager()->Printf(VeltLogLevel{2}, "a %d", 1);
  Manager()->Printf(VeltLogLevel{40}, VeltInterString("net"), "b %s", "%n");
  Manager()->Printf("c");

  EXPECT_EQ(log_.calls, (std::vector<Call>{{"Trace", "", 2, "a 1", nullptr, false, false, ""},
                                           {"Trace", "net", 40, "b %n", nullptr, false, false, ""},
                                           {"Trace", "", 3, "c", nullptr, false, false, ""}}));
}

TEST_F(EngineTest, TheEnginesAnswerIsTheCallers) {
  ASSERT_TRUE(host_.Init());
  ASSERT_TRUE(Manager()->RegDebugEngine(new NotingEngine(log_)));
  log_.answer = false;

  EXPECT_FALSE(Manager()->Trace("net", VeltLogLevel{3}, "x", nullptr, true, true));
  EXPECT_FALSE(Manager()->AppTrace("net", VeltLogLevel{3}, "x", nullptr, true, true, ""));
}

// --- what an engine may do ---

TEST_F(EngineTest, AnExceptionOfTheEngineReachesTheCallerAndNoLockStaysHeld) {
  ASSERT_TRUE(host_.Init());
  VeltDebugEngine* const engine = MakeEngine([]() -> bool { throw std::runtime_error("engine"); });
  ASSERT_TRUE(Manager()->RegDebugEngine(engine));

  EXPECT_THROW(Manager()->Trace("net", VeltLogLevel{3}, "x", nullptr, true, true), std::runtime_error);
  EXPECT_THROW(Manager()->AppTrace("net", VeltLogLevel{3}, "x", nullptr, true, true, "gw"),
               std::runtime_error);
  EXPECT_THROW(Manager()->Printf("x"), std::runtime_error);

  bool written = false;
  std::thread([&] {
    written = Manager()->SetLogLevel("debug", VeltLogLevel{4}, true) &&
              Manager()->RegSubModuleInfo("net", BitsOf({3}), BitsOf({1}), false);
  }).join();
  EXPECT_TRUE(written);
  EXPECT_TRUE(Manager()->UnRegDebugEngine(engine));
  EXPECT_TRUE(Manager()->AppTrace("net", VeltLogLevel{3}, "after", nullptr, false, false, "gw"));
  VeltDebugMgr::Destroy();
  EXPECT_EQ(host_.Records("host_gw_"), (std::vector<std::string>{" net I: after"}));
}

TEST_F(EngineTest, AnEngineMayCallBackIntoTheManager) {
  ASSERT_TRUE(host_.Init());
  int depth = 0;
  ASSERT_TRUE(Manager()->RegDebugEngine(MakeEngine([&depth] {
    if (depth > 0) return true;
    ++depth;
    Bits levels;
    Bits outputs;
    VeltDebugMgr::ModuleSets modules;
    auto* const manager = VeltDebugMgr::Instance();
    bool const answered =
        manager->SetLogLevel("debug", VeltLogLevel{4}, true) &&
        manager->SetLogOutput("", VeltOutputDirection{0}, true) &&
        manager->RegSubModuleInfo("net", BitsOf({3}), BitsOf({1}), false) &&
        manager->SetAllModuleInfo(BitsOf({5}), BitsOf({1}), false) && manager->GetAllModuleInfo(modules) &&
        manager->GetSubModuleInfo("net", levels, outputs) && manager->GetDebugEngine() != nullptr &&
        manager->Trace("net", VeltLogLevel{3}, "inner", nullptr, false, false) &&
        manager->AppTrace("net", VeltLogLevel{3}, "inner", nullptr, false, false, "gw") &&
        manager->Init("host_", "", "", "", true, false);
    --depth;
    return answered;
  })));

  bool const traced = Manager()->Trace("net", VeltLogLevel{3}, "outer", nullptr, false, false);
  bool const app_traced = Manager()->AppTrace("net", VeltLogLevel{3}, "outer", nullptr, false, false, "gw");

  EXPECT_TRUE(traced);
  EXPECT_TRUE(app_traced);
}

TEST_F(EngineTest, ASlowEngineDoesNotHoldUpTheRegistry) {
  ASSERT_TRUE(host_.Init());
  std::atomic<bool> inside{false};
  std::atomic<bool> go_on{false};
  ASSERT_TRUE(Manager()->RegDebugEngine(MakeEngine([&] {
    inside = true;
    return WaitUntil([&] { return go_on.load(); });
  })));
  bool traced = false;
  std::thread caller([&] { traced = Manager()->Trace("net", VeltLogLevel{3}, "x", nullptr, false, false); });
  ASSERT_TRUE(WaitUntil([&] { return inside.load(); }));

  bool const changed = Manager()->SetLogLevel("debug", VeltLogLevel{4}, true);  // while the engine runs
  go_on = true;
  caller.join();

  EXPECT_TRUE(changed);
  EXPECT_TRUE(traced) << "the engine was let go, it did not reach its time limit";
}

// --- registration ---

TEST_F(EngineTest, NoEngineIsNotRegistered) {
  EXPECT_FALSE(Manager()->RegDebugEngine(nullptr));
  EXPECT_EQ(Manager()->GetDebugEngine(), nullptr);
}

TEST_F(EngineTest, ARegisteredEngineIsGivenBackAsItIs) {
  auto* const engine = new NotingEngine(log_);

  EXPECT_TRUE(Manager()->RegDebugEngine(engine));

  EXPECT_EQ(Manager()->GetDebugEngine(), engine);
  EXPECT_EQ(log_.deleted, 0);
}

TEST_F(EngineTest, AReplacedEngineIsNeitherDeletedNorTold) {
  NotingEngine::Log replaced_log;
  NotingEngine replaced(replaced_log);
  ASSERT_TRUE(host_.Init());
  ASSERT_TRUE(Manager()->RegDebugEngine(&replaced));

  ASSERT_TRUE(Manager()->RegDebugEngine(new NotingEngine(log_)));
  ASSERT_TRUE(Manager()->Trace("net", VeltLogLevel{3}, "x", nullptr, false, false));
  VeltDebugMgr::Destroy();

  EXPECT_EQ(replaced_log.deleted, 0);
  EXPECT_TRUE(replaced_log.calls.empty());
  EXPECT_EQ(log_.deleted, 1);
  EXPECT_EQ(log_.calls.size(), 1U);
}

TEST_F(EngineTest, TheSameEngineMayBeRegisteredTwiceAndIsDeletedOnce) {
  auto* const engine = new NotingEngine(log_);
  ASSERT_TRUE(Manager()->RegDebugEngine(engine));
  ASSERT_TRUE(Manager()->RegDebugEngine(engine));

  VeltDebugMgr::Destroy();

  EXPECT_EQ(log_.deleted, 1);
}

TEST_F(EngineTest, UnregisteringDeletesTheEngineAndTracingGoesToTheChannelAgain) {
  ASSERT_TRUE(host_.Init());
  auto* const engine = new NotingEngine(log_);
  ASSERT_TRUE(Manager()->RegDebugEngine(engine));

  bool const done = Manager()->UnRegDebugEngine(engine);

  EXPECT_TRUE(done);
  EXPECT_EQ(log_.deleted, 1);
  EXPECT_EQ(Manager()->GetDebugEngine(), nullptr);
  EXPECT_TRUE(Manager()->Trace("net", VeltLogLevel{3}, "x", nullptr, false, true));
  EXPECT_EQ(host_.StopAndRead(), (std::vector<std::string>{" net I: x"}));
  EXPECT_EQ(log_.deleted, 1) << "not deleted again";
}

TEST_F(EngineTest, AnotherEngineCannotBeUnregistered) {
  NotingEngine::Log other_log;
  NotingEngine other(other_log);
  auto* const engine = new NotingEngine(log_);
  ASSERT_TRUE(Manager()->RegDebugEngine(engine));

  EXPECT_FALSE(Manager()->UnRegDebugEngine(&other));
  EXPECT_FALSE(Manager()->UnRegDebugEngine(nullptr));

  EXPECT_EQ(Manager()->GetDebugEngine(), engine);
  EXPECT_EQ(other_log.deleted + log_.deleted, 0);
}

TEST_F(EngineTest, NullCountsAsRegisteredWhenNoEngineIs) {
  NotingEngine other(log_);

  EXPECT_TRUE(Manager()->UnRegDebugEngine(nullptr));
  EXPECT_FALSE(Manager()->UnRegDebugEngine(&other));
  EXPECT_EQ(log_.deleted, 0);
}

TEST_F(EngineTest, AnEngineThatIsDeletedMayAskTheManager) {
  class Asking : public VeltDebugEngine {
   public:
    explicit Asking(bool& asked) : asked_(asked) {}
    ~Asking() override { asked_ = VeltDebugMgr::Instance()->SetLogLevel("", VeltLogLevel{4}, true); }
    bool Trace(std::string const&, VeltLogLevel, char const*, AsnType const*, bool, bool) override {
      return true;
    }
    bool AppTrace(std::string const&, VeltLogLevel, char const*, AsnType const*, bool, bool,
                  std::string const&) override {
      return true;
    }

   private:
    bool& asked_;
  };
  ASSERT_TRUE(host_.Init());
  bool asked = false;
  auto* const engine = new Asking(asked);
  ASSERT_TRUE(Manager()->RegDebugEngine(engine));

  EXPECT_TRUE(Manager()->UnRegDebugEngine(engine));

  EXPECT_TRUE(asked);
}

}  // namespace
}  // namespace velt::test
