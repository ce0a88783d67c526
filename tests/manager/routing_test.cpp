// Where a trace call goes: flags from the module's sets, levels out of range, states of the manager.
#include <climits>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/manager/routing.h"
#include "tests/support/files.h"
#include "tests/support/manager.h"
#include "tests/support/manager_host.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

// --- flags ---

struct FlagRow {
  char const* module;
  int level;
  bool ask_print;
  bool ask_log;
  bool printed;
  bool logged;
};

// Traces one record for each row, with the row's number as its text.
TEST_F(RoutingTest, TheFlagsAreThoseOfTheCallerOrOfTheModule) {
  FlagRow const rows[] = {
      {"net", 3, false, false, false, true},    // its own level and output
      {"net", 3, true, false, true, true},      // the caller's is added
      {"net", 3, false, true, false, true},     //
      {"net", 3, true, true, true, true},       //
      {"net", 4, false, false, false, true},    // a level without a tag
      {"net", 0, false, false, false, false},   // debug passes level 0, net does not
      {"net", 2, false, false, false, false},   // level 3 in the set does not pass level 2
      {"net", 5, false, false, false, false},   // nor does level 4 pass level 5
      {"net", 5, true, false, true, false},     // the caller's flags stay
      {"net", 5, false, true, false, true},     //
      {"net", 5, true, true, true, true},       //
      {"out", 3, false, false, true, false},    // standard output alone
      {"out", 3, false, true, true, true},      //
      {"out", 5, false, false, false, false},   //
      {"both", 3, false, false, true, true},    // both outputs
      {"none", 3, false, false, false, false},  // it passes to no output
      {"none", 3, true, false, true, false},    //
      {"web", 1, false, false, false, true},    // not registered: the sets of debug
      {"web", 3, false, false, false, false},   //
      {"web", 3, true, false, true, false},     //
      {"", 1, false, false, false, true},       // no name: debug as well
      {"debug", 1, false, false, false, true},  //
      {"debug", 3, false, false, false, false},
  };
  Start();
  Strings expect_printed;
  Strings expect_logged;
  char const* const tags[] = {"A: ", "E: ", "W: ", "I: ", "", ""};
  int number = 0;
  for (auto const& row : rows) {
    std::string const text = "row " + std::to_string(number++);
    std::string const body = std::string(" ") + row.module + " " + tags[row.level] + text;

    EXPECT_TRUE(Manager()->Trace(row.module, VeltLogLevel{row.level}, text.c_str(), nullptr, row.ask_print,
                                 row.ask_log))
        << text;

    if (row.printed) expect_printed.push_back(body);
    if (row.logged) expect_logged.push_back(body);
  }

  EXPECT_EQ(Logged(), expect_logged);
  EXPECT_EQ(Printed(), expect_printed);
}

TEST_F(RoutingTest, WithoutAnyModuleOnlyTheCallersFlagsCount) {
  StartWithoutModules();

  EXPECT_TRUE(Manager()->Trace("net", kLevel1, "neither", nullptr, false, false));
  EXPECT_TRUE(Manager()->Trace("net", kLevel1, "print", nullptr, true, false));
  EXPECT_TRUE(Manager()->Trace("net", kLevel1, "log", nullptr, false, true));
  EXPECT_TRUE(Manager()->Trace("net", kLevel1, "both", nullptr, true, true));

  EXPECT_EQ(Logged(), (Strings{" net E: log", " net E: both"}));
  EXPECT_EQ(Printed(), (Strings{" net E: print", " net E: both"}));
}

TEST_F(RoutingTest, AFilteredRecordIsKeptAndComesOutBeforeALevelZeroRecord) {
  Start();
  EXPECT_TRUE(Manager()->Trace("net", kFiltered, "context", nullptr, false, false));
  EXPECT_TRUE(Manager()->Trace("net", kLevel3, "ordinary", nullptr, false, false));
  EXPECT_TRUE(Manager()->Trace("web", kLevel0, "alarm", nullptr, false, false));
  ASSERT_TRUE(WaitUntil([&] { return Contains(host_.Records(), " web A: alarm"); }));
  EXPECT_TRUE(Manager()->Trace("net", kFiltered, "late", nullptr, false, false));

  EXPECT_EQ(Logged(), (Strings{" net I: ordinary", " net context", " web A: alarm"}));
  EXPECT_EQ(Printed(), (Strings{" net context"})) << "what comes out of the ring is printed too";
}

TEST_F(RoutingTest, AFilteredRecordOfLevelZeroBringsNothingOut) {
  Start();
  EXPECT_TRUE(Manager()->Trace("net", kFiltered, "context", nullptr, false, false));
  EXPECT_TRUE(Manager()->Trace("net", kLevel0, "filtered alarm", nullptr, false, false))
      << "net has no level 0";
  EXPECT_TRUE(Manager()->Trace("net", kLevel3, "ordinary", nullptr, false, false));

  EXPECT_EQ(Logged(), (Strings{" net I: ordinary"}));
}

TEST_F(RoutingTest, ALevelChangedAtRunTimeTakesEffectAtOnce) {
  Start();
  EXPECT_TRUE(Manager()->Trace("net", kLevel1, "before", nullptr, false, false));
  ASSERT_TRUE(Manager()->SetLogLevel("net", kLevel1, true));
  EXPECT_TRUE(Manager()->Trace("net", kLevel1, "on", nullptr, false, false));
  ASSERT_TRUE(Manager()->SetLogOutput("net", VeltOutputDirection{1}, false));
  EXPECT_TRUE(Manager()->Trace("net", kLevel1, "no output", nullptr, false, false));
  ASSERT_TRUE(Manager()->SetLogOutput("net", VeltOutputDirection{1}, true));
  ASSERT_TRUE(Manager()->SetLogLevel("net", kLevel1, false));
  EXPECT_TRUE(Manager()->Trace("net", kLevel1, "off", nullptr, false, false));

  EXPECT_EQ(Logged(), (Strings{" net E: on"}));
}

// --- levels out of range ---

TEST_F(RoutingTest, Level32ThrowsWhereASetIsAsked) {
  Start();

  EXPECT_THROW(Manager()->Trace("net", VeltLogLevel{32}, "x", nullptr, false, false), std::out_of_range);
  EXPECT_THROW(Manager()->Trace("net", VeltLogLevel{32}, "x", nullptr, true, false), std::out_of_range);
  EXPECT_THROW(Manager()->Trace("web", VeltLogLevel{32}, "x", nullptr, false, true), std::out_of_range)
      << "debug's set is read";
  EXPECT_THROW(Manager()->AppTrace("net", VeltLogLevel{32}, "x", nullptr, false, false, ""),
               std::out_of_range);
  EXPECT_THROW(Manager()->Printf(VeltLogLevel{32}, "x"), std::out_of_range);
  EXPECT_THROW(Manager()->Printf(VeltLogLevel{32}, VeltInterString("net"), "x"), std::out_of_range);
  EXPECT_TRUE(Manager()->SetLogLevel("net", kLevel1, true)) << "no lock stays held";

  EXPECT_TRUE(Logged().empty());
}

TEST_F(RoutingTest, ANegativeLevelThrowsWhereASetIsAsked) {
  Start();

  EXPECT_THROW(Manager()->Trace("net", VeltLogLevel{-1}, "x", nullptr, false, false), std::out_of_range);
  EXPECT_THROW(Manager()->Trace("net", VeltLogLevel{INT_MIN}, "x", nullptr, false, false), std::out_of_range);
  EXPECT_THROW(Manager()->AppTrace("web", VeltLogLevel{-1}, "x", nullptr, true, false, ""),
               std::out_of_range);
}

TEST_F(RoutingTest, BothFlagsOfTheCallerSkipTheSetAndItsException) {
  Start();

  EXPECT_TRUE(Manager()->Trace("net", VeltLogLevel{32}, "thirty-two", nullptr, true, true));
  EXPECT_TRUE(Manager()->Trace("net", VeltLogLevel{-1}, "minus one", nullptr, true, true));
  EXPECT_TRUE(Manager()->AppTrace("net", VeltLogLevel{32}, "on demand", nullptr, true, true, ""));

  EXPECT_EQ(Logged(), (Strings{" net thirty-two", " net minus one", " net on demand"}));
}

TEST_F(RoutingTest, Level32ReachesTheChannelWhereThereIsNoSetToAsk) {
  StartWithoutModules();

  EXPECT_TRUE(Manager()->Trace("net", VeltLogLevel{32}, "thirty-two", nullptr, false, true));
  EXPECT_TRUE(Manager()->Trace("net", VeltLogLevel{-1}, "minus one", nullptr, false, true));
  EXPECT_FALSE(Manager()->Trace("net", VeltLogLevel{33}, "thirty-three", nullptr, false, true));

  EXPECT_EQ(Logged(), (Strings{" net thirty-two", " net minus one"}));
}

TEST_F(RoutingTest, LevelsAbove32AndNullTextsAreRefused) {
  Start();

  for (int const level : {33, 99, INT_MAX}) {
    EXPECT_FALSE(Manager()->Trace("net", VeltLogLevel{level}, "x", nullptr, true, true)) << level;
    EXPECT_FALSE(Manager()->AppTrace("net", VeltLogLevel{level}, "x", nullptr, true, true, "")) << level;
  }
  EXPECT_FALSE(Manager()->Trace("net", kLevel3, nullptr, nullptr, true, true));
  EXPECT_FALSE(Manager()->AppTrace("net", kLevel3, nullptr, nullptr, true, true, ""));
  EXPECT_FALSE(Manager()->AppTrace("net", kLevel3, nullptr, nullptr, true, true, "gw"));

  EXPECT_TRUE(Logged().empty());
  EXPECT_TRUE(ExactFamily(host_.LogDir(), "host_gw_").empty()) << "a refused call opens no channel";
}

TEST_F(RoutingTest, Level31IsOrdinary) {
  Start();
  ASSERT_TRUE(Manager()->SetLogLevel("net", VeltLogLevel{31}, true));

  EXPECT_TRUE(Manager()->Trace("net", VeltLogLevel{31}, "x", nullptr, false, false));

  EXPECT_EQ(Logged(), (Strings{" net x"}));
}

// --- states of the manager ---

TEST_F(RoutingTest, BeforeInitNothingIsTraced) {
  EXPECT_FALSE(Manager()->Trace("net", kLevel3, "x", nullptr, true, true));
  EXPECT_FALSE(Manager()->AppTrace("net", kLevel3, "x", nullptr, true, true, ""));
  EXPECT_FALSE(Manager()->AppTrace("net", kLevel3, "x", nullptr, true, true, "gw"));
  Manager()->Printf(kLevel3, "x");
  Manager()->Printf(kLevel3, VeltInterString("net"), "x");
  Manager()->Printf("x");

  EXPECT_EQ(output_.Text(), "");
  EXPECT_FALSE(Exists(host_.LogDir()));
}

TEST_F(RoutingTest, BeforeInitAFormatThatFailsSaysNothing) {
  char const* const empty = "";
  Manager()->Printf(kLevel3, "%s", empty);

  EXPECT_EQ(output_.Text(), "");
}

TEST_F(RoutingTest, ASilentManagerAnswersTraceFalseAndAppTraceTrue) {
  ASSERT_TRUE(host_.Init("host_", true));

  EXPECT_FALSE(Manager()->Trace("net", kLevel3, "x", nullptr, true, true));
  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "x", nullptr, true, true, "gw"));
  EXPECT_TRUE(
      Manager()->AppTrace("net", VeltLogLevel{99}, nullptr, nullptr, true, true, std::string(129, 's')))
      << "before every other check";
  EXPECT_FALSE(Manager()->Trace("net", VeltLogLevel{32}, "x", nullptr, false, false)) << "and nothing throws";
  Manager()->Printf(kLevel3, "x");

  VeltDebugMgr::Destroy();
  EXPECT_EQ(output_.Text(), "");
  EXPECT_TRUE(ListDir(host_.LogDir()).empty());
}

// --- sets that change after they were asked for ---

TEST_F(RoutingTest, AModuleThatIsRegisteredAgainIsTracedByItsNewSetsAtOnce) {
  Start();
  ASSERT_TRUE(Manager()->RegSubModuleInfo("web", BitsOf({3}), BitsOf({}), false));
  ASSERT_TRUE(Manager()->Trace("web", kLevel3, "filtered", nullptr, false, false));

  ASSERT_TRUE(Manager()->RegSubModuleInfo("web", BitsOf({3}), BitsOf({1}), false));

  ASSERT_TRUE(Manager()->Trace("web", kLevel3, "logged", nullptr, false, false));
  EXPECT_EQ(Logged(), Strings{" web I: logged"});
}

TEST_F(RoutingTest, TheNextManagerKnowsNothingOfTheModulesOfTheOneBefore) {
  Start();
  ASSERT_TRUE(Manager()->Trace("net", kLevel3, "logged", nullptr, false, false));
  VeltDebugMgr::Destroy();
  ASSERT_TRUE(Manager()->Init("bare_", "", host_.LogDir() + "/", "", true, false));

  ASSERT_TRUE(Manager()->Trace("net", kLevel3, "filtered", nullptr, false, false));
  VeltDebugMgr::Destroy();

  EXPECT_EQ(host_.Records(), Strings{" net I: logged"});
  EXPECT_EQ(host_.Records("bare_"), Strings{});
}

}  // namespace
}  // namespace velt::test
