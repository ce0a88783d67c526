// Engines that refuse, throw, are slow or call the manager, used by many threads.
#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "velt/manager.h"
#include "velt/process.h"

#include "tests/faults/counted.h"
#include "tests/faults/scale.h"
#include "tests/support/channel.h"
#include "tests/support/manager_host.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

using faults::Figure;
using faults::Scaled;

constexpr VeltLogLevel kLevel3{3};

VeltDebugMgr& Manager() { return *VeltDebugMgr::Instance(); }

struct EngineError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The text says what a call does: "yes", "no", "throw", "ask".
class MoodyEngine : public VeltDebugEngine {
 public:
  bool Trace(std::string const& module, VeltLogLevel, char const* text, AsnType const*, bool, bool) override {
    return Answer(module, text == nullptr ? "" : text);
  }
  bool AppTrace(std::string const& module, VeltLogLevel, char const* text, AsnType const*, bool, bool,
                std::string const&) override {
    return Answer(module, text == nullptr ? "" : text);
  }

  static inline std::atomic<long long> calls{0};

 private:
  static bool Answer(std::string const& module, std::string const& text) {
    ++calls;
    if (text == "throw") throw EngineError(module);
    if (text == "ask") return AskManager(module);
    return text == "yes";
  }
  // Calls of the manager; each would hang if the calling thread held its lock.
  static bool AskManager(std::string const& module) {
    Bits levels;
    Bits outputs;
    VeltDebugMgr::ModuleSets modules;
    VeltDebugMgr& manager = Manager();
    return manager.RegSubModuleInfo(module, BitsOf({1}), BitsOf({1}), false) &&
           manager.GetSubModuleInfo(module, levels, outputs) && manager.GetAllModuleInfo(modules) &&
           manager.SetLogLevel(module, kLevel3, true) &&
           manager.SetLogOutput(module, VeltOutputDirection{0}, true) &&
           manager.GetDebugEngine() != nullptr && manager.IsInit() &&
           manager.Trace(module, kLevel3, "yes", nullptr, false, false);
  }
};

TEST(EngineFaultTest, AnswersAndExceptionsOfTheEngineAreTheCallersAndNoLockStaysHeld) {
  constexpr int kThreads = 8;
  int const rounds = Scaled(500, 20'000);
  ManagerHost const host("net_level = 1111\nnet_output = 01\n");
  ASSERT_TRUE(host.Init());
  ASSERT_TRUE(Manager().RegDebugEngine(new MoodyEngine));
  std::atomic<int> wrong{0};

  InThreads(kThreads, [&](int thread) {
    std::string const module = "m" + std::to_string(thread);
    auto const throws = [&](auto const& call) {
      try {
        call();
      } catch (EngineError const& error) {
        return error.what() == module;
      }
      return false;
    };
    for (int i = 0; i < rounds; ++i) {
      if (!Manager().Trace(module, kLevel3, "yes", nullptr, false, false)) ++wrong;
      if (Manager().Trace(module, kLevel3, "no", nullptr, true, true)) ++wrong;
      if (!Manager().AppTrace(module, kLevel3, "yes", nullptr, false, false, "gw")) ++wrong;
      if (Manager().AppTrace(module, kLevel3, "no", nullptr, false, false, "gw")) ++wrong;
      if (!throws([&] { Manager().Trace(module, kLevel3, "throw", nullptr, false, false); })) ++wrong;
      if (!throws([&] { Manager().AppTrace(module, kLevel3, "throw", nullptr, false, false, "x"); })) ++wrong;
      if (!throws([&] { Manager().Printf(kLevel3, VeltInterString(module), "throw"); })) ++wrong;
      if (!Manager().Trace(module, kLevel3, "ask", nullptr, false, false)) ++wrong;
      if (!Manager().SetLogLevel("net", VeltLogLevel{9}, i % 2 == 0)) ++wrong;
    }
  });
  long long const calls = MoodyEngine::calls;
  auto counts = faults::QuietCounts();
  EXPECT_EQ(counts.size(), 1U);
  faults::ExpectCounts(counts["host_"], 0, 0, 0);  // an engine's calls are no channel's
  EXPECT_EQ(VeltDebugMgr::Destroy(), 0);

  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(calls, 9LL * kThreads * rounds) << "eight from the threads, one from the engine itself";
  EXPECT_TRUE(host.Records().empty()) << "nothing went to the channel beside the engine";
  Figure({{"engine_calls", calls}, {"wrong", wrong.load()}});
}

// Each call waits at the gate until it is opened.
class SlowEngine : public VeltDebugEngine {
 public:
  explicit SlowEngine(Gate& gate) : gate_(gate) {}
  bool Trace(std::string const&, VeltLogLevel, char const*, AsnType const*, bool, bool) override {
    gate_.Pass();
    return true;
  }
  bool AppTrace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn,
                bool print, bool log, std::string const&) override {
    return Trace(module, level, text, asn, print, log);
  }

 private:
  Gate& gate_;
};

TEST(EngineFaultTest, ASlowEngineHoldsNobodyUpButItsCallers) {
  ManagerHost const host("net_level = 1111\nnet_output = 01\n");
  ASSERT_TRUE(host.Init());
  Gate gate;
  ASSERT_TRUE(Manager().RegDebugEngine(new SlowEngine(gate)));
  std::atomic<int> answered{0};
  std::vector<std::thread> callers;
  for (int t = 0; t < 8; ++t) {
    callers.emplace_back([&, t] {
      bool const taken = t % 2 == 0 ? Manager().Trace("net", kLevel3, "x", nullptr, false, true)
                                    : Manager().AppTrace("net", kLevel3, "x", nullptr, false, true, "gw");
      if (taken) ++answered;
    });
  }
  gate.WaitForVisitor();

  // All of these work while the callers are inside the engine.
  Bits levels;
  Bits outputs;
  VeltDebugMgr::ModuleSets modules;
  EXPECT_TRUE(Manager().RegSubModuleInfo("web", BitsOf({1}), BitsOf({1}), false));
  EXPECT_TRUE(Manager().SetLogLevel("net", VeltLogLevel{9}, true));
  EXPECT_TRUE(Manager().SetLogOutput("net", VeltOutputDirection{0}, true));
  EXPECT_TRUE(Manager().SetAllModuleInfo(BitsOf({2}), BitsOf({1}), false));
  EXPECT_TRUE(Manager().GetSubModuleInfo("net", levels, outputs));
  EXPECT_TRUE(Manager().GetAllModuleInfo(modules));
  EXPECT_NE(Manager().GetDebugEngine(), nullptr);
  EXPECT_EQ(answered, 0);

  gate.Open();
  for (auto& caller : callers) caller.join();
  EXPECT_EQ(answered, 8);
}

TEST(EngineFaultTest, EnginesThatComeAndGoWhileNobodyTracesAreDeletedOnce) {
  class Counted : public VeltDebugEngine {
   public:
    explicit Counted(int& deleted) : deleted_(deleted) {}
    ~Counted() override { ++deleted_; }
    bool Trace(std::string const&, VeltLogLevel, char const*, AsnType const*, bool, bool) override {
      return false;
    }
    bool AppTrace(std::string const&, VeltLogLevel, char const*, AsnType const*, bool, bool,
                  std::string const&) override {
      return false;
    }

   private:
    int& deleted_;
  };
  int const rounds = Scaled(200, 5'000);
  ManagerHost const host("net_level = 1111\nnet_output = 01\n");
  ASSERT_TRUE(host.Init());
  int deleted = 0;

  for (int i = 0; i < rounds; ++i) {
    auto* const engine = new Counted(deleted);
    ASSERT_TRUE(Manager().RegDebugEngine(engine));
    ASSERT_FALSE(Manager().Trace("net", kLevel3, "to the engine", nullptr, false, true));
    ASSERT_TRUE(Manager().UnRegDebugEngine(engine));
    ASSERT_TRUE(Manager().Trace("net", kLevel3, "to the channel", nullptr, false, true));
  }

  EXPECT_EQ(deleted, rounds);
  auto const written = static_cast<std::size_t>(rounds);
  faults::ExpectCounts(faults::QuietCounts()["host_"], written, 0, written);
  EXPECT_EQ(host.StopAndRead(),
            std::vector<std::string>(static_cast<std::size_t>(rounds), " net I: to the channel"));
}

}  // namespace
}  // namespace velt::test
