// Where a trace call goes: flags from the module's sets, channels on demand, formatting.
#include <atomic>
#include <cerrno>
#include <climits>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/support/manager_host.h"

namespace velt::test {
namespace {

using Strings = std::vector<std::string>;

constexpr VeltLogLevel kLevel0{0};
constexpr VeltLogLevel kLevel1{1};
constexpr VeltLogLevel kLevel3{3};
constexpr VeltLogLevel kFiltered{9};

VeltDebugMgr* Manager() { return VeltDebugMgr::Instance(); }

// Module "net" passes levels 3, 4 and 31 to the log file; the host's own default lets 0 and 1 pass.
constexpr char const* kConfiguration =
    "net_level = 00011\nout_level = 0001\nout_output = 1\nboth_level = 0001\nboth_output = 11\n"
    "none_level = 0001\nnone_output = 0\ndebug_level = 1100\ndebug_output = 01\n";

class RoutingTest : public ::testing::Test {
 protected:
  void TearDown() override {
    std::string const captured = output_.Text();
    if (HasFailure()) std::cout << captured;  // what the test framework said is in it
  }

  void Start(std::string const& configuration = kConfiguration) {
    WriteFile(host_.ConfigFile(), configuration);
    ASSERT_TRUE(host_.Init());
  }
  void StartWithoutModules() { ASSERT_TRUE(Manager()->Init("host_", "", host_.LogDir(), "", true, false)); }

  // Everything of the main channel's files and of standard output, in order.
  Strings Logged() { return host_.StopAndRead(); }
  Strings Printed() {
    VeltDebugMgr::Destroy();
    return Bodies(output_.Text());
  }

  ManagerHost host_;
  CaptureStdout output_;
};

// --- flags ---

struct FlagRow {
  char const* module;
  int level;
  bool ask_print;
  bool ask_log;
  bool printed;
  bool logged;
};

// One record per row, named by its row, and where it has to come out.
TEST_F(RoutingTest, TheFlagsAreThoseOfTheCallerOrOfTheModule) {
  FlagRow const rows[] = {
      {"net", 3, false, false, false, true},    // its own level and output
      {"net", 3, true, false, true, true},      // the caller's is added
      {"net", 3, false, true, false, true},     //
      {"net", 3, true, true, true, true},       //
      {"net", 4, false, false, false, true},    // a level without a tag
      {"net", 0, false, false, false, false},   // its set lacks what debug's has
      {"net", 2, false, false, false, false},   // a lower bit does not let it pass
      {"net", 5, false, false, false, false},   // nor does a higher one
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
      << "the set of debug";
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

// --- the text of a record ---

TEST_F(RoutingTest, ReadyTextIsNeverAFormat) {
  Start();

  EXPECT_TRUE(Manager()->Trace("%s", kLevel3, "100% %s %n %d", nullptr, false, true));
  EXPECT_TRUE(Manager()->AppTrace("%n", kLevel3, "%s%s%s", nullptr, false, true, ""));
  Manager()->Printf(kLevel1, VeltInterString("%s"), "%s", "%s %n %d");
  Manager()->Printf(kLevel1, "100%% %s", "%x");

  EXPECT_EQ(Logged(), (Strings{" %s I: 100% %s %n %d", " %n I: %s%s%s", " %s E: %s %n %d", "  E: 100% %x"}));
}

TEST_F(RoutingTest, TraceCutsAt2048Characters) {
  Start();

  for (std::size_t const length :
       {std::size_t{2047}, std::size_t{2048}, std::size_t{2049}, std::size_t{5000}}) {
    EXPECT_TRUE(Manager()->Trace("net", kLevel3, std::string(length, 'x').c_str(), nullptr, false, true));
  }

  EXPECT_EQ(Logged(), (Strings{" net I: " + std::string(2047, 'x'), " net I: " + std::string(2048, 'x'),
                               " net I: " + std::string(2048, 'x'), " net I: " + std::string(2048, 'x')}));
}

TEST_F(RoutingTest, AnEmptyTextIsARecord) {
  Start();

  EXPECT_TRUE(Manager()->Trace("net", kLevel3, "", nullptr, false, true));

  EXPECT_EQ(Logged(), (Strings{" net I: "}));
}

TEST_F(RoutingTest, AModuleOfOneSpaceIsARecordOfItsOwnKind) {
  Start();

  EXPECT_TRUE(Manager()->Trace(" ", kLevel1, "x", nullptr, false, false));

  EXPECT_EQ(Logged(), (Strings{"   E: x"})) << "the sets of debug, and three spaces";
}

// --- Printf ---

template <typename First, typename = void>
struct TakesPrintf : std::false_type {};
template <typename First>
struct TakesPrintf<First,
                   std::void_t<decltype(std::declval<VeltDebugMgr&>().Printf(std::declval<First>(), "x"))>>
    : std::true_type {};

static_assert(TakesPrintf<VeltLogLevel>::value, "a level and a format");
static_assert(!TakesPrintf<int>::value, "Printf(0, text) would take 0 as a null format");

TEST_F(RoutingTest, PrintfTakesLevelAndFormatOrModuleOrFormatAlone) {
  Start("debug_level = 1111\nnet_level = 0001\n");

  Manager()->Printf(kLevel1, "%s", "level and format");
  Manager()->Printf(kLevel3, VeltInterString("net"), "module %d", 7);
  Manager()->Printf(kLevel3, std::string("net"), "module of a string");
  Manager()->Printf("format alone %c", 'c');

  EXPECT_EQ(Logged(), (Strings{"  E: level and format", " net I: module 7", " net I: module of a string",
                               "  I: format alone c"}));
}

TEST_F(RoutingTest, PrintfIsFilteredByTheModulesSets) {
  Start();

  Manager()->Printf(kLevel1, "passes by debug");
  Manager()->Printf(kLevel3, "filtered by debug");
  Manager()->Printf("level 3, filtered by debug");
  Manager()->Printf(kLevel3, VeltInterString("net"), "passes by net");
  Manager()->Printf(kLevel1, VeltInterString("net"), "filtered by net");
  Manager()->Printf(kLevel3, VeltInterString("out"), "printed by out");

  EXPECT_EQ(Logged(), (Strings{"  E: passes by debug", " net I: passes by net"}));
  EXPECT_EQ(Printed(), (Strings{" out I: printed by out"}));
}

TEST_F(RoutingTest, PrintfCutsAt2046Characters) {
  Start("debug_level = 1111\n");
  std::string const body = "  I: ";

  for (std::size_t const length :
       {std::size_t{2045}, std::size_t{2046}, std::size_t{2047}, std::size_t{3000}}) {
    Manager()->Printf(kLevel3, "%s", std::string(length, 'x').c_str());
  }
  Manager()->Printf(kLevel3, VeltInterString("net"), "%s", std::string(3000, 'x').c_str());
  Manager()->Printf("%s", std::string(3000, 'x').c_str());

  EXPECT_EQ(Logged(), (Strings{body + std::string(2045, 'x'), body + std::string(2046, 'x'),
                               body + std::string(2046, 'x'), body + std::string(2046, 'x'),
                               " net I: " + std::string(2046, 'x'), body + std::string(2046, 'x')}));
  EXPECT_EQ(output_.Text(), "") << "a cut text is no failure";
}

TEST_F(RoutingTest, PrintfOfSixteenMegabytesIsCutToo) {
  Start("debug_level = 1111\n");

  Manager()->Printf("%s", std::string(16U << 20U, 'x').c_str());

  EXPECT_EQ(Logged(), (Strings{"  I: " + std::string(2046, 'x')}));
}

// Formats that the compiler would not let through.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#ifndef __clang__  // which does not know it
#pragma GCC diagnostic ignored "-Wformat-overflow"
#endif
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-zero-length"

TEST_F(RoutingTest, AFormatThatFailsIsReportedByTheFirstFormAlone) {
  Start("debug_level = 1111\n");
  char const* const too_wide = "%2147483648d";

  errno = 0;
  Manager()->Printf(kLevel3, too_wide, 1);
  Manager()->Printf(kLevel3, VeltInterString("net"), too_wide, 1);
  Manager()->Printf(too_wide, 1);

  EXPECT_TRUE(Logged().empty());
  EXPECT_EQ(output_.Text(), "Printf failed. errno:" + std::to_string(EOVERFLOW) + "\n");
}

// Refuses every character.
class ClosedBuffer : public std::streambuf {};

TEST_F(RoutingTest, AStandardOutputThatThrowsKeepsTheFailureOfAFormatToItself) {
  Start("debug_level = 1111\n");
  ClosedBuffer closed;
  std::streambuf* const before = std::cout.rdbuf(&closed);
  std::cout.exceptions(std::ios_base::badbit);
  char const* const too_wide = "%2147483648d";

  EXPECT_NO_THROW(Manager()->Printf(kLevel3, too_wide, 1));
  bool const asked = std::cout.bad();

  std::cout.exceptions(std::ios_base::goodbit);
  std::cout.rdbuf(before);
  EXPECT_TRUE(asked) << "it was told, and threw";
}

TEST_F(RoutingTest, ACharacterThatHasNoFormIsAFailureToo) {
  Start("debug_level = 1111\n");
  char const* const wide = "%ls";
  wchar_t const no_character[] = {static_cast<wchar_t>(0x7FFFFFFF), L'\0'};

  errno = 0;
  Manager()->Printf(kLevel3, wide, no_character);
  Manager()->Printf(wide, no_character);

  EXPECT_TRUE(Logged().empty());
  EXPECT_EQ(output_.Text(), "Printf failed. errno:" + std::to_string(EILSEQ) + "\n");
}

TEST_F(RoutingTest, AnEmptyResultIsAFailureToo) {
  Start("debug_level = 1111\n");
  char const* const nothing = "";

  errno = 0;
  Manager()->Printf(kLevel3, "%s", nothing);
  errno = ENOSPC;
  Manager()->Printf(kLevel3, nothing);
  Manager()->Printf(kLevel3, VeltInterString("net"), "%s", nothing);
  Manager()->Printf("%s", nothing);

  EXPECT_TRUE(Logged().empty());
  EXPECT_EQ(output_.Text(), "Printf failed. errno:0\nPrintf failed. errno:" + std::to_string(ENOSPC) + "\n");
}

TEST_F(RoutingTest, ANullFormatTracesNothing) {
  Start("debug_level = 1111\n");
  char const* const none = nullptr;

  Manager()->Printf(kLevel3, none);
  Manager()->Printf(kLevel3, VeltInterString("net"), none);
  Manager()->Printf(none);

  EXPECT_TRUE(Logged().empty());
  EXPECT_EQ(CountOf(output_.Text(), "Printf failed. errno:"), 1U);
}

TEST_F(RoutingTest, OddFormatsGiveWhatTheCLibraryGives) {
  Start("debug_level = 1111\n");
  char const* const positional = "%2$s %1$s";
  char const* const string = "%s";
  char const* const missing = nullptr;

  Manager()->Printf(kLevel3, positional, "a", "b");
  Manager()->Printf(kLevel3, string, missing);

  EXPECT_EQ(Logged(), (Strings{"  I: b a", "  I: (null)"}));
}

// --- formats of records that no output wants ---

// Without a ring; "net" has level 0 alone, as has the default module.
constexpr char const* kNothingKept = "nFiltLogBufSize = 0\nnet_level = 1\nnet_output = 01\ndebug_level = 1\n";

TEST_F(RoutingTest, AFormatThatNobodyWouldSeeIsNotExpanded) {
  Start(kNothingKept);
  int written = -1;
  char const* const counting = "four%n";

  Manager()->Printf(kLevel3, VeltInterString("net"), counting, &written);
  EXPECT_EQ(written, -1) << "with a module";
  Manager()->Printf(counting, &written);
  EXPECT_EQ(written, -1) << "format alone";
  Manager()->Printf(kLevel0, VeltInterString("net"), counting, &written);
  EXPECT_EQ(written, 4) << "wanted";

  EXPECT_EQ(Logged(), (Strings{" net A: four"}));
  EXPECT_EQ(output_.Text(), "");
}

TEST_F(RoutingTest, AFormatThatTheRingTakesIsExpandedAtOnce) {
  Start("nFiltLogBufSize = 1\nnet_level = 1\nnet_output = 01\n");
  std::string text = "before";

  Manager()->Printf(kLevel3, VeltInterString("net"), "%s", text.c_str());
  text = "behind";
  Manager()->Printf(kLevel0, VeltInterString("net"), "alarm");

  EXPECT_EQ(Logged(), (Strings{" net I: before", " net A: alarm"}));
}

TEST_F(RoutingTest, WithoutARingTheFirstFormStillSaysThatAFormatFailed) {
  Start(kNothingKept);
  char const* const too_wide = "%2147483648d";

  errno = 0;
  Manager()->Printf(kLevel3, too_wide, 1);
  Manager()->Printf(kLevel3, VeltInterString("net"), too_wide, 1);
  Manager()->Printf(too_wide, 1);

  EXPECT_TRUE(Logged().empty());
  EXPECT_EQ(output_.Text(), "Printf failed. errno:" + std::to_string(EOVERFLOW) + "\n");
}

TEST_F(RoutingTest, AFormatThatFailsHidesALevelThatThrows) {
  Start(kNothingKept);
  char const* const too_wide = "%2147483648d";

  for (VeltLogLevel const level : {VeltLogLevel{32}, VeltLogLevel{-1}, VeltLogLevel{INT_MIN}}) {
    EXPECT_NO_THROW(Manager()->Printf(level, too_wide, 1)) << level;
    EXPECT_NO_THROW(Manager()->Printf(level, VeltInterString("net"), too_wide, 1)) << level;
    EXPECT_THROW(Manager()->Printf(level, "x"), std::out_of_range) << level;
    EXPECT_THROW(Manager()->Printf(level, VeltInterString("net"), "x"), std::out_of_range) << level;
  }
  EXPECT_NO_THROW(Manager()->Printf(VeltLogLevel{33}, VeltInterString("net"), "x"));

  EXPECT_TRUE(Logged().empty());
  EXPECT_EQ(CountOf(output_.Text(), "Printf failed. errno:"), 3U);
}

#pragma GCC diagnostic pop

// A usual message is expanded where its record keeps it, a longer one elsewhere.
TEST_F(RoutingTest, PrintfKeepsMessagesOfEveryLengthWhole) {
  Start();
  Strings expected;
  for (std::size_t length = 1; length <= 420; ++length) {
    std::string text(length, '.');
    for (std::size_t i = 0; i < length; ++i) text[i] = static_cast<char>('a' + i % 26);
    Manager()->Printf(kLevel3, VeltInterString("net"), "%s%d%s", text.c_str(), 7, "end");
    expected.push_back(" net I: " + text + "7end");
  }
  for (std::size_t const length : {180, 200, 203, 204, 300}) {
    std::string const module(length, 'm');
    Manager()->Printf(kLevel0, VeltInterString(module), "%s", "message");
    expected.push_back(' ' + module + " A: message");
  }

  EXPECT_EQ(Logged(), expected);
}

// --- AppTrace ---

TEST_F(RoutingTest, AnEmptySubNameIsTheMainChannel) {
  Start();

  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "x", nullptr, false, false, ""));

  EXPECT_EQ(Logged(), (Strings{" net I: x"}));
  EXPECT_EQ(ListDir(host_.LogDir()).size(), 1U);
}

TEST_F(RoutingTest, ASubNameHasAChannelOfItsOwnBesideTheMainOne) {
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

TEST_F(RoutingTest, TheFirstCallersModuleIsTheHeaderWithoutALineEnd) {
  Start();

  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "one", nullptr, false, false, "gw"));
  EXPECT_TRUE(Manager()->AppTrace("both", kLevel3, "two", nullptr, false, false, "gw"));
  VeltDebugMgr::Destroy();

  std::string const text = host_.Text("host_gw_");
  EXPECT_NE(text.find("\nnetThis is the first log file\n"), std::string::npos) << text;
  EXPECT_EQ(text.find("host header"), std::string::npos);
}

TEST_F(RoutingTest, AChannelOnDemandHasARingOfItsOwn) {
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

TEST_F(RoutingTest, AChannelOnDemandTakesTheFileLimits) {
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
  EXPECT_EQ(CountOf(host_.Text("host_gw_"), " net I: "), 551U) << "one of them right behind the header";
}

TEST_F(RoutingTest, ASubNameOf128CharactersIsTheLongest) {
  Start();

  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "x", nullptr, false, false, std::string(128, 's')));
  EXPECT_FALSE(Manager()->AppTrace("net", kLevel3, "x", nullptr, false, false, std::string(129, 's')));
  EXPECT_FALSE(Manager()->AppTrace("net", kLevel3, "x", nullptr, true, true, std::string(10'000, 's')));
  VeltDebugMgr::Destroy();

  EXPECT_EQ(host_.Records("host_" + std::string(128, 's') + "_"), (Strings{" net I: x"}));
  EXPECT_EQ(ListDir(host_.LogDir()).size(), 2U);
}

TEST_F(RoutingTest, ASubNameCountsUpToItsFirstNul) {
  Start();

  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "x", nullptr, false, false, std::string("gw\0more", 7)));
  VeltDebugMgr::Destroy();

  EXPECT_EQ(host_.Records("host_gw_"), (Strings{" net I: x"}));
}

TEST_F(RoutingTest, OneChannelAboveTheCapIsAdmittedAndThenEveryCallIsRefused) {
  Start("nMaxFileNum = 2\n");
  ASSERT_TRUE(Manager()->AppTrace("net", kLevel3, "one", nullptr, false, true, "a")) << "two channels now";
  ASSERT_TRUE(Manager()->AppTrace("net", kLevel3, "two", nullptr, false, true, "a"));

  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "one", nullptr, false, true, "b"))
      << "the count equals the cap";
  EXPECT_FALSE(Manager()->AppTrace("net", kLevel3, "two", nullptr, false, true, "b"));
  EXPECT_FALSE(Manager()->AppTrace("net", kLevel3, "three", nullptr, false, true, "a"));
  EXPECT_FALSE(Manager()->AppTrace("net", kLevel3, "x", nullptr, false, true, "c"));
  EXPECT_FALSE(Manager()->AppTrace("net", kLevel3, "x", nullptr, false, true, "")) << "the main channel too";
  EXPECT_TRUE(Manager()->Trace("net", kLevel3, "x", nullptr, false, true)) << "but not by Trace";
  VeltDebugMgr::Destroy();

  EXPECT_EQ(host_.Records("host_a_"), (Strings{" net I: one", " net I: two"}));
  EXPECT_EQ(host_.Records("host_b_"), (Strings{" net I: one"}));
  EXPECT_EQ(host_.Records("host_"), (Strings{" net I: x"}));
  EXPECT_EQ(ListDir(host_.LogDir()).size(), 3U);
}

TEST_F(RoutingTest, ACapOfOneAdmitsOneChannelOnDemand) {
  Start("nMaxFileNum = 1\n");

  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "x", nullptr, false, true, ""));
  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "x", nullptr, false, true, "a"));
  EXPECT_FALSE(Manager()->AppTrace("net", kLevel3, "x", nullptr, false, true, "a"));
}

TEST_F(RoutingTest, ACapOfZeroRefusesEveryAppTrace) {
  Start("nMaxFileNum = 0\n");

  EXPECT_FALSE(Manager()->AppTrace("net", kLevel3, "x", nullptr, true, true, ""));
  EXPECT_FALSE(Manager()->AppTrace("net", kLevel3, "x", nullptr, true, true, "a"));
  EXPECT_TRUE(Manager()->Trace("net", kLevel3, "x", nullptr, false, true));

  EXPECT_EQ(Logged(), (Strings{" net I: x"}));
}

TEST_F(RoutingTest, TheChecksOfLevelAndTextComeBeforeTheSubName) {
  Start("nMaxFileNum = 0\n");

  EXPECT_FALSE(Manager()->AppTrace("debug", VeltLogLevel{32}, "x", nullptr, false, false, ""))
      << "refused by the cap before a set could throw";
  EXPECT_FALSE(
      Manager()->AppTrace("debug", VeltLogLevel{32}, "x", nullptr, false, false, std::string(129, 's')))
      << "refused by its length before a set could throw";
  EXPECT_FALSE(Manager()->AppTrace("debug", VeltLogLevel{33}, "x", nullptr, false, false, ""));
}

TEST_F(RoutingTest, ALevelThatThrowsHasOpenedItsChannelAlready) {
  Start();

  EXPECT_THROW(Manager()->AppTrace("net", VeltLogLevel{32}, "x", nullptr, false, false, "gw"),
               std::out_of_range);
  EXPECT_TRUE(Manager()->AppTrace("both", kLevel3, "x", nullptr, false, false, "gw"));
  VeltDebugMgr::Destroy();

  EXPECT_NE(host_.Text("host_gw_").find("\nnetThis is the first log file\n"), std::string::npos);
}

TEST_F(RoutingTest, AKeyIsCutAt511Characters) {
  std::string name;  // 505 characters that lead nowhere else: "/./././"
  while (name.size() < 504) name += "/.";
  name += "/";
  ASSERT_TRUE(Manager()->Init(name, "", host_.LogDir(), "", true, false));

  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "one", nullptr, false, true, "abcdefghij"));
  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "two", nullptr, false, true, "abcdefxyz"))
      << "the same head";
  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "whole", nullptr, false, true, "abcde"))
      << "512 less the NUL";
  VeltDebugMgr::Destroy();

  EXPECT_EQ(host_.Records("abcdef"), (Strings{" net I: one", " net I: two"}));
  EXPECT_EQ(host_.Records("abcde_"), (Strings{" net I: whole"}));
  EXPECT_EQ(ListDir(host_.LogDir()).size(), 3U);
}

TEST_F(RoutingTest, AMainNameThatIsCutIsNoLongerTheMainChannel) {
  std::string name;  // 513 characters; 511 of them are the same path
  while (name.size() < 512) name += "/.";
  name += "/";
  ASSERT_TRUE(Manager()->Init(name, "", host_.LogDir(), "", true, false));
  ASSERT_TRUE(Manager()->Trace("net", kLevel3, "main", nullptr, false, true));
  ASSERT_TRUE(WaitUntil([&] { return Contains(host_.Records(""), " net I: main"); }));
  WaitForNextSecond();  // the second file would have the name of the first

  EXPECT_TRUE(Manager()->AppTrace("net", kLevel3, "cut", nullptr, false, true, ""));
  VeltDebugMgr::Destroy();

  EXPECT_EQ(ExactFamily(host_.LogDir(), "").size(), 2U);
  EXPECT_EQ(host_.Records(""), (Strings{" net I: main", " net I: cut"}));
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

// --- one channel for threads that are first together ---

// Two threads use each of `names` new sub-names first and at once. Ends without stopping the channels, which
// would cost a poll each: every record is looked for in its file before.
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

TEST(RoutingRaceTest, TwoThreadsThatFirstUseOneSubNameGetOneChannel) {
  for (int part = 0; part < 4; ++part) {
    ManagerHost const host("nMaxFileNum = 100\n");

    Outcome const outcome = RunInChild([&] { return UseNewNamesTogether(host, 50); });

    EXPECT_EQ(outcome.exit_code, 0) << outcome.signal << outcome.err;
  }
}

}  // namespace
}  // namespace velt::test
