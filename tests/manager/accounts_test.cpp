// Counts, flush and queue wait of all channels of the manager.
#include <chrono>
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "debug/manager/manager_state.h"
#include "tests/support/channel.h"
#include "tests/support/manager.h"
#include "tests/support/manager_host.h"

namespace velt::test {
namespace {

constexpr unsigned kLong = 60'000;

using Counts = std::map<std::string, VeltTraceCounts>;

class AccountsTest : public ::testing::Test {
 protected:
  static bool Trace(std::string const& sub_name = {}) {
    return Manager()->AppTrace("net", kLevel3, "record", nullptr, false, true, sub_name);
  }
  static VeltTraceCounts Of(std::string const& prefix) {
    Counts counts;
    EXPECT_TRUE(Manager()->GetCounts(counts));
    EXPECT_EQ(counts.count(prefix), 1U) << prefix;
    return counts[prefix];
  }

  ManagerHost const host_;
};

TEST_F(AccountsTest, BeforeInitThereAreNone) {
  Counts counts;
  EXPECT_FALSE(Manager()->GetCounts(counts));
  EXPECT_TRUE(counts.empty());
  EXPECT_FALSE(Manager()->Flush(0));
}

TEST_F(AccountsTest, EveryChannelHasItsCountsUnderItsFileNamePrefix) {
  ASSERT_TRUE(host_.Init());
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(Trace());
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(Trace("gw_"));
  ASSERT_TRUE(Manager()->Flush(kLong));

  Counts counts;
  ASSERT_TRUE(Manager()->GetCounts(counts));

  ASSERT_EQ(counts.size(), 2U);
  std::uint64_t main = 0;
  std::uint64_t sub = 0;
  for (auto const& [prefix, one] : counts) {
    (prefix == "host_" ? main : sub) = one.written;
    EXPECT_EQ(one.accepted, one.written) << prefix;
    EXPECT_EQ(Bodies(host_.Text(prefix)).size(), one.written) << prefix;
  }
  EXPECT_EQ(main, 3U);
  EXPECT_EQ(sub, 5U);
}

TEST_F(AccountsTest, EntriesOfOtherNamesStayAsTheyAre) {
  ASSERT_TRUE(host_.Init());
  Counts counts;
  counts["elsewhere"].written = 7;
  ASSERT_TRUE(Manager()->GetCounts(counts));

  EXPECT_EQ(counts.size(), 2U);
  EXPECT_EQ(counts["elsewhere"].written, 7U);
}

TEST_F(AccountsTest, ANullTextCountsAsRefused) {
  ASSERT_TRUE(host_.Init());
  EXPECT_FALSE(Manager()->AppTrace("net", kLevel3, nullptr, nullptr, false, true, ""));

  EXPECT_EQ(Of("host_").refused, 1U);
}

TEST_F(AccountsTest, AFlushWaitsForEveryChannel) {
  ASSERT_TRUE(host_.Init());
  for (int i = 0; i < 2'000; ++i) {
    ASSERT_TRUE(Trace());
    ASSERT_TRUE(Trace("gw_"));
  }
  ASSERT_TRUE(Manager()->Flush(kLong));

  Counts counts;
  ASSERT_TRUE(Manager()->GetCounts(counts));
  for (auto const& [prefix, one] : counts) {
    EXPECT_EQ(one.written, 2'000U) << prefix;
    EXPECT_EQ(one.queued, 0U) << prefix;
  }
}

TEST_F(AccountsTest, AFlushIsFalseWhenOneChannelIsNotDoneInTime) {
  ASSERT_TRUE(host_.Init());
  Gate gate;
  AsnAtGate const value(gate);
  ASSERT_TRUE(Trace());
  ASSERT_TRUE(Manager()->AppTrace("net", kLevel3, "stalled", &value, false, true, "gw_"));
  gate.WaitForVisitor();
  auto const begin = std::chrono::steady_clock::now();

  EXPECT_FALSE(Manager()->Flush(150));

  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(150));
  gate.Open();
  EXPECT_TRUE(Manager()->Flush(kLong));
}

TEST_F(AccountsTest, InAForkedChildBothAreFalseAtOnce) {
  ASSERT_TRUE(host_.Init());
  ASSERT_TRUE(Trace());
  EXPECT_EQ(InFork([] {
              Counts counts;
              if (Manager()->GetCounts(counts) || !counts.empty()) return 1;
              return Manager()->Flush(kLong) ? 2 : 0;
            }),
            0);
}

TEST_F(AccountsTest, AfterDestroyANewManagerCountsFromZero) {
  ASSERT_TRUE(host_.Init());
  ASSERT_TRUE(Trace());
  VeltDebugMgr::Destroy();
  ASSERT_TRUE(host_.Init());

  EXPECT_EQ(Of("host_").accepted, 0U);
}

// --- the queue's wait ---

class ManagerQueueWaitTest : public AccountsTest {
 protected:
  // How long a call waits with a full queue before it is refused.
  long long RefusalTakesMs(std::string const& sub_name) {
    Gate gate;
    AsnAtGate const value(gate);
    EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "stalled", &value, false, true, sub_name));
    gate.WaitForVisitor();
    for (int i = 0; i < 128'000; ++i) {
      if (!Trace(sub_name)) ADD_FAILURE() << i;
    }
    auto const begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(Trace(sub_name));
    auto const took = std::chrono::steady_clock::now() - begin;
    gate.Open();
    EXPECT_TRUE(Manager()->Flush(kLong)) << "the gate must live until the output thread has left it";
    return std::chrono::duration_cast<std::chrono::milliseconds>(took).count();
  }
};

TEST_F(ManagerQueueWaitTest, IsOneSecondUnlessSet) {
  ASSERT_TRUE(host_.Init());
  long long const took = RefusalTakesMs("");
  EXPECT_GE(took, 980);
  EXPECT_LT(took, 4'000);
}

TEST_F(ManagerQueueWaitTest, SetBeforeInitItIsTheMainChannels) {
  Manager()->SetQueueWait(0);
  ASSERT_TRUE(host_.Init());
  EXPECT_LT(RefusalTakesMs(""), 500);
}

TEST_F(ManagerQueueWaitTest, IsSetForChannelsThatAreThereAndForThoseToCome) {
  ASSERT_TRUE(host_.Init());
  ASSERT_TRUE(Trace("gw_"));
  Manager()->SetQueueWait(50);

  long long const present = RefusalTakesMs("gw_");
  long long const to_come = RefusalTakesMs("db_");

  EXPECT_GE(present, 45);
  EXPECT_LT(present, 800);
  EXPECT_GE(to_come, 45);
  EXPECT_LT(to_come, 800);
}

}  // namespace
}  // namespace velt::test
