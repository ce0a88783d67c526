// AppTrace: channels made on demand, their names, their cap, and threads that need one first.
#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/manager/routing.h"
#include "tests/support/files.h"
#include "tests/support/manager.h"
#include "tests/support/manager_host.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

using AppTraceTest = RoutingTest;

TEST_F(AppTraceTest, AnEmptySubNameIsTheMainChannel) {
  Start();

  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "x", nullptr, false, false, ""));

  EXPECT_EQ(Logged(), (Strings{" net I: x"}));
  EXPECT_EQ(ListDir(host_.LogDir()).size(), 1U);
}

TEST_F(AppTraceTest, ASubNameHasAChannelOfItsOwnBesideTheMainOne) {
  Start();

  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "one", nullptr, false, false, "gw"));
  EXPECT_TRUE(Manager()->AppTrace("both", kLevel3, "two", nullptr, false, false, "gw"));
  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "other", nullptr, false, false, "GW"));
  VeltDebugMgr::Destroy();

  EXPECT_EQ(host_.Records("host_gw_"), (Strings{" net I: one", " both I: two"}));
  EXPECT_EQ(host_.Records("host_GW_"), (Strings{" net I: other"}));
  EXPECT_TRUE(host_.Records("host_").empty());
  EXPECT_EQ(Printed(), (Strings{" both I: two"}));
}

TEST_F(AppTraceTest, TheFirstCallersModuleIsTheHeaderWithoutALineEnd) {
  Start();

  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "one", nullptr, false, false, "gw"));
  EXPECT_TRUE(Manager()->AppTrace("both", kLevel3, "two", nullptr, false, false, "gw"));
  VeltDebugMgr::Destroy();

  std::string const text = host_.Text("host_gw_");
  EXPECT_NE(text.find("\nnetThis is the first log file\n"), std::string::npos) << text;
  EXPECT_EQ(text.find("host header"), std::string::npos);
}

TEST_F(AppTraceTest, AChannelOnDemandHasARingOfItsOwn) {
  Start("nFiltLogBufSize = 2\nnet_level = 1\n");

  for (auto const* text : {"1", "2", "3"}) {
    EXPECT_TRUE(Manager()->AppTrace("net", kFiltered, text, nullptr, false, false, "gw"));
  }
  EXPECT_TRUE(Manager()->Trace("net", kLevel0, "main alarm", nullptr, false, false));
  EXPECT_TRUE(Manager()->AppTrace("net", kLevel0, "alarm", nullptr, false, false, "gw"));
  VeltDebugMgr::Destroy();

  EXPECT_EQ(host_.Records("host_"), (Strings{" net A: main alarm"}));
  EXPECT_EQ(host_.Records("host_gw_"), (Strings{" net 2", " net 3", " net A: alarm"}));
}

TEST_F(AppTraceTest, AChannelOnDemandTakesTheFileLimits) {
  Start("nEachFileMaxSize = 1\n");
  ASSERT_TRUE(Manager()->AppTrace("net", kLevel3, "first", nullptr, false, true, "gw"));
  ASSERT_TRUE(host_.WaitForFile("host_gw_"));
  WaitForNextSecond();

  for (int i = 0; i < 550; ++i) {
    EXPECT_TRUE(
        Manager()->AppTrace("net", kLevel3, std::string(2000, 'x').c_str(), nullptr, false, true, "gw"));
  }
  VeltDebugMgr::Destroy();

  EXPECT_EQ(ExactFamily(host_.LogDir(), "host_gw_").size(), 2U);
  EXPECT_EQ(CountOf(host_.Text("host_gw_"), " net I: "), 551U)
      << "the first one follows the header on its line";
}

TEST_F(AppTraceTest, ASubNameOf128CharactersIsTheLongest) {
  Start();

  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "x", nullptr, false, false, std::string(128, 's')));
  EXPECT_FALSE(Manager()->AppTrace("net", kLevel3, "x", nullptr, false, false, std::string(129, 's')));
  EXPECT_FALSE(Manager()->AppTrace("net", kLevel3, "x", nullptr, true, true, std::string(10'000, 's')));
  VeltDebugMgr::Destroy();

  EXPECT_EQ(host_.Records("host_" + std::string(128, 's') + "_"), (Strings{" net I: x"}));
  EXPECT_EQ(ListDir(host_.LogDir()).size(), 2U);
}

TEST_F(AppTraceTest, ASubNameCountsUpToItsFirstNul) {
  Start();

  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "x", nullptr, false, false, std::string("gw\0more", 7)));
  VeltDebugMgr::Destroy();

  EXPECT_EQ(host_.Records("host_gw_"), (Strings{" net I: x"}));
}

TEST_F(AppTraceTest, OneChannelAboveTheCapIsAdmittedAndThenEveryCallIsRefused) {
  Start("nMaxFileNum = 2\n");
  ASSERT_TRUE(Manager()->AppTrace("net", kLevel3, "one", nullptr, false, true, "a")) << "two channels now";
  ASSERT_TRUE(Manager()->AppTrace("net", kLevel3, "two", nullptr, false, true, "a"));

  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "one", nullptr, false, true, "b"))
      << "the count equals the cap";
  EXPECT_FALSE(Manager()->AppTrace("net", kLevel3, "two", nullptr, false, true, "b"));
  EXPECT_FALSE(Manager()->AppTrace("net", kLevel3, "three", nullptr, false, true, "a"));
  EXPECT_FALSE(Manager()->AppTrace("net", kLevel3, "x", nullptr, false, true, "c"));
  EXPECT_FALSE(Manager()->AppTrace("net", kLevel3, "x", nullptr, false, true, "")) << "the main channel too";
  EXPECT_TRUE(Manager()->Trace("net", kLevel3, "x", nullptr, false, true)) << "Trace ignores the cap";
  VeltDebugMgr::Destroy();

  EXPECT_EQ(host_.Records("host_a_"), (Strings{" net I: one", " net I: two"}));
  EXPECT_EQ(host_.Records("host_b_"), (Strings{" net I: one"}));
  EXPECT_EQ(host_.Records("host_"), (Strings{" net I: x"}));
  EXPECT_EQ(ListDir(host_.LogDir()).size(), 3U);
}

TEST_F(AppTraceTest, ACapOfOneAdmitsOneChannelOnDemand) {
  Start("nMaxFileNum = 1\n");

  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "x", nullptr, false, true, ""));
  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "x", nullptr, false, true, "a"));
  EXPECT_FALSE(Manager()->AppTrace("net", kLevel3, "x", nullptr, false, true, "a"));
}

TEST_F(AppTraceTest, ACapOfZeroRefusesEveryAppTrace) {
  Start("nMaxFileNum = 0\n");

  EXPECT_FALSE(Manager()->AppTrace("net", kLevel3, "x", nullptr, true, true, ""));
  EXPECT_FALSE(Manager()->AppTrace("net", kLevel3, "x", nullptr, true, true, "a"));
  EXPECT_TRUE(Manager()->Trace("net", kLevel3, "x", nullptr, false, true));

  EXPECT_EQ(Logged(), (Strings{" net I: x"}));
}

TEST_F(AppTraceTest, TheChecksOfLevelAndTextComeBeforeTheSubName) {
  Start("nMaxFileNum = 0\n");

  EXPECT_FALSE(Manager()->AppTrace("debug", VeltLogLevel{32}, "x", nullptr, false, false, ""))
      << "refused by the cap before a set could throw";
  EXPECT_FALSE(
      Manager()->AppTrace("debug", VeltLogLevel{32}, "x", nullptr, false, false, std::string(129, 's')))
      << "refused by its length before a set could throw";
  EXPECT_FALSE(Manager()->AppTrace("debug", VeltLogLevel{33}, "x", nullptr, false, false, ""));
}

TEST_F(AppTraceTest, ALevelThatThrowsHasOpenedItsChannelAlready) {
  Start();

  EXPECT_THROW(Manager()->AppTrace("net", VeltLogLevel{32}, "x", nullptr, false, false, "gw"),
               std::out_of_range);
  EXPECT_TRUE(Manager()->AppTrace("both", kLevel3, "x", nullptr, false, false, "gw"));
  VeltDebugMgr::Destroy();

  EXPECT_NE(host_.Text("host_gw_").find("\nnetThis is the first log file\n"), std::string::npos);
}

TEST_F(AppTraceTest, AKeyIsCutAt511Characters) {
  std::string name;  // 505 characters that name the same directory: "/./././"
  while (name.size() < 504) name += "/.";
  name += "/";
  ASSERT_TRUE(Manager()->Init(name, "", host_.LogDir(), "", true, false));

  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "one", nullptr, false, true, "abcdefghij"));
  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "two", nullptr, false, true, "abcdefxyz"))
      << "the same first 511 characters";
  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "whole", nullptr, false, true, "abcde"))
      << "511 characters, and a NUL";
  VeltDebugMgr::Destroy();

  EXPECT_EQ(host_.Records("abcdef"), (Strings{" net I: one", " net I: two"}));
  EXPECT_EQ(host_.Records("abcde_"), (Strings{" net I: whole"}));
  EXPECT_EQ(ListDir(host_.LogDir()).size(), 3U);
}

TEST_F(AppTraceTest, AMainNameThatIsCutIsNoLongerTheMainChannel) {
  std::string name;  // 513 characters; the first 511 name the same directory
  while (name.size() < 512) name += "/.";
  name += "/";
  ASSERT_TRUE(Manager()->Init(name, "", host_.LogDir(), "", true, false));
  ASSERT_TRUE(Manager()->Trace("net", kLevel3, "main", nullptr, false, true));
  ASSERT_TRUE(WaitUntil([&] { return Contains(host_.Records(""), " net I: main"); }));
  WaitForNextSecond();  // in the same second both files would have one name

  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "cut", nullptr, false, true, ""));
  VeltDebugMgr::Destroy();

  EXPECT_EQ(ExactFamily(host_.LogDir(), "").size(), 2U);
  EXPECT_EQ(host_.Records(""), (Strings{" net I: main", " net I: cut"}));
}

// --- one channel for threads that are first together ---

// Two threads use each of `names` new sub-names at the same moment. Returns 0 once every record is in its
// file. The channels are not stopped: that would cost a poll of 100 ms for each.
int UseNewNamesTogether(ManagerHost const& host, int names) {
  if (!host.Init()) return 10;
  if (!host.WaitForFile()) return 11;
  std::size_t const threads_before = ThreadCount();
  std::atomic<int> arrived{0};
  std::atomic<int> refused{0};
  auto const user = [&](char const* text) {
    for (int i = 0; i < names; ++i) {
      ++arrived;
      while (arrived < 2 * (i + 1)) std::this_thread::yield();
      bool const traced =
          Manager()->AppTrace("net", kLevel3, text, nullptr, false, true, "s" + std::to_string(i));
      if (!traced) ++refused;
    }
  };
  std::thread first(user, "first");
  std::thread second(user, "second");
  first.join();
  second.join();
  if (refused != 0) return 12;
  for (int i = 0; i < names; ++i) {
    std::string const prefix = "host_s" + std::to_string(i) + "_";
    bool const whole = WaitUntil([&] {
      Strings const records = host.Records(prefix);
      return records.size() == 2 && Contains(records, " net I: first") && Contains(records, " net I: second");
    });
    if (!whole) return 13;
    if (ExactFamily(host.LogDir(), prefix).size() != 1) return 14;
    if (CountOf(host.Text(prefix), "Thread handle output string is") != 1) return 15;
  }
  bool const one_thread_each =
      WaitUntil([&] { return ThreadCount() == threads_before + static_cast<std::size_t>(names); });
  return one_thread_each ? 0 : 16;
}

TEST(AppTraceRaceTest, TwoThreadsThatFirstUseOneSubNameGetOneChannel) {
  for (int part = 0; part < 4; ++part) {
    ManagerHost const host("nMaxFileNum = 100\n");

    Outcome const outcome = RunInChild([&] { return UseNewNamesTogether(host, 50); });

    EXPECT_EQ(outcome.exit_code, 0) << outcome.signal << outcome.err;
  }
}

}  // namespace
}  // namespace velt::test
