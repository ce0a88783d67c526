// Whether a record is wanted, asked before it is made.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <iostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/support/manager.h"
#include "tests/support/manager_host.h"

namespace velt::test {
namespace {

constexpr char const* kWithoutRing =
    "nFiltLogBufSize = 0\nnet_level = 0001\nout_level = 01\nout_output = 1\nnone_level = 1111\n"
    "none_output = 00\nother_level = 1111\nother_output = 0011\ndebug_level = 1\n";

class TakingEngine : public VeltDebugEngine {
 public:
  bool Trace(std::string const&, VeltLogLevel, char const*, AsnType const*, bool, bool) override {
    return true;
  }
  bool AppTrace(std::string const&, VeltLogLevel, char const*, AsnType const*, bool, bool,
                std::string const&) override {
    return true;
  }
};

TEST(WantedTest, NothingIsWantedBeforeInitAndAfterDestroy) {
  ManagerHost const host("net_level = 1111\n");

  EXPECT_FALSE(Manager()->IsWanted("net", kLevel0));
  ASSERT_TRUE(host.Init());
  EXPECT_TRUE(Manager()->IsWanted("net", kLevel0));
  VeltDebugMgr::Destroy();
  EXPECT_FALSE(Manager()->IsWanted("net", kLevel0));
}

TEST(WantedTest, WithoutARingALevelIsWantedWhenTheModulesSetsLetItThroughToAnOutput) {
  ManagerHost const host(kWithoutRing);
  ASSERT_TRUE(host.Init());

  EXPECT_TRUE(Manager()->IsWanted("net", kLevel3)) << "to the file";
  EXPECT_FALSE(Manager()->IsWanted("net", kLevel1));
  EXPECT_TRUE(Manager()->IsWanted("out", kLevel1)) << "to standard output";
  EXPECT_FALSE(Manager()->IsWanted("out", kLevel0));
  EXPECT_FALSE(Manager()->IsWanted("none", kLevel0)) << "its level passes, but no output is set";
  EXPECT_FALSE(Manager()->IsWanted("other", kLevel0)) << "outputs 2 and 3 are unused";
}

TEST(WantedTest, AModuleThatIsNotRegisteredHasTheSetsOfDebug) {
  ManagerHost const host(kWithoutRing);
  ASSERT_TRUE(host.Init());

  EXPECT_TRUE(Manager()->IsWanted("unknown", kLevel0));
  EXPECT_FALSE(Manager()->IsWanted("unknown", kLevel1));
  EXPECT_TRUE(Manager()->IsWanted("", kLevel0));
  EXPECT_FALSE(Manager()->IsWanted("", kLevel1));
}

TEST(WantedTest, WithoutAnyModuleTheRingStillTakesRecords) {
  ManagerHost const host;
  ASSERT_TRUE(Manager()->Init("host_", "", host.LogDir(), "", true, false));  // no file: a ring of 100

  EXPECT_TRUE(Manager()->IsWanted("net", kLevel3));
}

TEST(WantedTest, ARingTakesEveryLevelFromZeroToThirtyOne) {
  ManagerHost const host("nFiltLogBufSize = 1\nnet_level = 0000\n");
  ASSERT_TRUE(host.Init());

  EXPECT_TRUE(Manager()->IsWanted("net", kLevel0));
  EXPECT_TRUE(Manager()->IsWanted("net", VeltLogLevel{31}));
}

TEST(WantedTest, ALevelOutsideTheSetIsNotWantedAndDoesNotThrow) {
  for (char const* const ring : {"0", "100"}) {
    ManagerHost const host(
        "net_level = 11111111111111111111111111111111\nnFiltLogBufSize = " + std::string(ring) + "\n");
    ASSERT_TRUE(host.Init());

    EXPECT_TRUE(Manager()->IsWanted("net", VeltLogLevel{0})) << ring;
    for (int const level : {-1, 32, 33, 99, INT_MAX, INT_MIN}) {
      EXPECT_NO_THROW(EXPECT_FALSE(Manager()->IsWanted("net", VeltLogLevel{level}))) << level << ", " << ring;
    }
  }
}

TEST(WantedTest, AChangeOfLevelOrOutputIsSeenByTheNextQuestion) {
  ManagerHost const host(kWithoutRing);
  ASSERT_TRUE(host.Init());
  ASSERT_FALSE(Manager()->IsWanted("net", kLevel1));

  ASSERT_TRUE(Manager()->SetLogLevel("net", kLevel1, true));
  EXPECT_TRUE(Manager()->IsWanted("net", kLevel1));
  ASSERT_TRUE(Manager()->SetLogOutput("net", VeltOutputDirection{1}, false));
  EXPECT_FALSE(Manager()->IsWanted("net", kLevel1));
}

TEST(WantedTest, ASilentManagerWantsNothingUnlessAnEngineDoes) {
  ManagerHost const host("net_level = 1111\n");
  ASSERT_TRUE(host.Init("host_", true));

  EXPECT_FALSE(Manager()->IsWanted("net", kLevel0));
  ASSERT_TRUE(Manager()->RegDebugEngine(new TakingEngine));
  EXPECT_TRUE(Manager()->IsWanted("net", kLevel0));
}

TEST(WantedTest, AnEngineWantsWhatEverSetsAndLevelAre) {
  ManagerHost const host(kWithoutRing);
  ASSERT_TRUE(host.Init());
  auto* const engine = new TakingEngine;
  ASSERT_TRUE(Manager()->RegDebugEngine(engine));

  EXPECT_TRUE(Manager()->IsWanted("net", kLevel1));
  EXPECT_TRUE(Manager()->IsWanted("net", VeltLogLevel{99}));
  ASSERT_TRUE(Manager()->UnRegDebugEngine(engine));
  EXPECT_FALSE(Manager()->IsWanted("net", kLevel1));
}

TEST(WantedTest, AForkedChildWantsNothing) {
  ManagerHost const host("net_level = 1111\n");
  ASSERT_TRUE(host.Init());
  ASSERT_TRUE(Manager()->IsWanted("net", kLevel0));

  pid_t const child = fork();
  if (child == 0) _exit(Manager()->IsWanted("net", kLevel0) ? 1 : 0);
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);

  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_TRUE(Manager()->IsWanted("net", kLevel0)) << "the parent goes on";
}

TEST(WantedTest, ThreadsMayAskWhileAnotherChangesTheSets) {
  ManagerHost const host(kWithoutRing);
  ASSERT_TRUE(host.Init());
  std::atomic<bool> stop{false};
  std::thread changer([&] {
    for (int i = 0; i < 2000; ++i) (void)Manager()->SetLogLevel("net", kLevel1, i % 2 == 0);
    stop = true;
  });

  InThreads(4, [&](int) {
    while (!stop) (void)Manager()->IsWanted("net", kLevel1);
  });
  changer.join();

  EXPECT_FALSE(Manager()->IsWanted("net", kLevel1)) << "the last change";
}

}  // namespace
}  // namespace velt::test
