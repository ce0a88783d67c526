// Threads that cannot be created: a channel without its output thread refuses records, other channels accept
// them.
#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "velt/channel.h"
#include "velt/manager.h"

#include "tests/faults/counted.h"
#include "tests/faults/scale.h"
#include "tests/faults/shim/shim.h"
#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/manager_host.h"

namespace velt::test {
namespace {

using faults::ExpectCounts;
using faults::Figure;
using faults::QuietCounts;
using faults::Scaled;

constexpr VeltLogLevel kLevel3{3};

VeltDebugMgr& Manager() { return *VeltDebugMgr::Instance(); }

// While it lives, no thread can be created.
class NoThreads {
 public:
  NoThreads() {
    shim::Rule rule;
    rule.call = shim::Call::kPthreadCreate;
    rule.count = 0;
    rule.error = EAGAIN;
    rule_ = shim::AddRule(rule);
  }
  ~NoThreads() { shim::ClearRules(); }
  NoThreads(NoThreads const&) = delete;
  NoThreads& operator=(NoThreads const&) = delete;

  unsigned Refused() const { return shim::AppliedCalls(rule_); }

 private:
  int rule_;
};

class ThreadCreationFaultTest : public ::testing::Test {
 protected:
  ManagerHost const host_{"net_level = 1111\nnet_output = 01\n"};
};

TEST_F(ThreadCreationFaultTest, AChannelWithoutAThreadRefusesUntilInitSucceeds) {
  ChannelSetup const setup(host_.Dir() / "own");
  std::unique_ptr<VeltDebugInfo> channel;
  {
    NoThreads const none;
    channel = MakeChannel(setup);
    EXPECT_EQ(none.Refused(), 1U);
    for (int i = 0; i < 100; ++i) EXPECT_FALSE(channel->Trace("m", kLevel3, "refused", nullptr, false, true));
    EXPECT_FALSE(channel->Init());
    EXPECT_EQ(none.Refused(), 2U);
  }

  EXPECT_TRUE(channel->Init());
  EXPECT_TRUE(channel->Trace("m", kLevel3, "accepted", nullptr, false, true));
  VeltTraceCounts const counts = QuietCounts(*channel);
  channel.reset();

  std::string const log = ReadFamily(setup.directory, "t_");
  EXPECT_EQ(CountOf(log, "refused"), 0U);
  EXPECT_EQ(CountOf(log, " m I: accepted\n"), 1U);
  ExpectCounts(counts, 1, 100, 1);
}

TEST_F(ThreadCreationFaultTest, AManagerWithoutThreadsRefusesAndCanBeginAgain) {
  int const rounds = Scaled(20, 500);
  for (int i = 0; i < rounds; ++i) {
    NoThreads const none;
    EXPECT_TRUE(host_.Init());
    EXPECT_FALSE(Manager().Trace("net", kLevel3, "refused", nullptr, false, true));
    EXPECT_FALSE(Manager().AppTrace("net", kLevel3, "refused", nullptr, false, true, "gw"));
    EXPECT_TRUE(Manager().SetLogLevel("net", VeltLogLevel{9}, true));
    auto counts = QuietCounts();
    ExpectCounts(counts["host_"], 0, 1, 0);
    ExpectCounts(counts["host_gw_"], 0, 1, 0);
    EXPECT_EQ(VeltDebugMgr::Destroy(), 0);
    EXPECT_EQ(none.Refused(), 2U);
  }

  EXPECT_TRUE(host_.Init());
  EXPECT_TRUE(Manager().Trace("net", kLevel3, "accepted", nullptr, false, true));
  EXPECT_EQ(host_.StopAndRead(), (std::vector<std::string>{" net I: accepted"}));
  Figure({{"managers_without_threads", rounds}});
}

TEST_F(ThreadCreationFaultTest, ASubNameWithoutAThreadRefusesAndTheOthersGoOn) {
  ASSERT_TRUE(host_.Init());
  {
    NoThreads const none;
    EXPECT_FALSE(Manager().AppTrace("net", kLevel3, "refused", nullptr, false, true, "gw"));
    EXPECT_TRUE(Manager().Trace("net", kLevel3, "main", nullptr, false, true));
  }

  EXPECT_FALSE(Manager().AppTrace("net", kLevel3, "refused", nullptr, false, true, "gw"));
  EXPECT_TRUE(Manager().AppTrace("net", kLevel3, "other", nullptr, false, true, "web"));

  auto counts = QuietCounts();
  ExpectCounts(counts["host_"], 1, 0, 1);
  ExpectCounts(counts["host_gw_"], 0, 2, 0);
  ExpectCounts(counts["host_web_"], 1, 0, 1);
  EXPECT_EQ(host_.StopAndRead(), (std::vector<std::string>{" net I: main"}));
  EXPECT_EQ(host_.Records("host_web_"), (std::vector<std::string>{" net I: other"}));
  EXPECT_TRUE(host_.Records("host_gw_").empty());
}

}  // namespace
}  // namespace velt::test
