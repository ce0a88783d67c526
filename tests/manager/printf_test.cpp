// The text of a record: ready texts as they are, and the three forms of Printf.
#include <cerrno>
#include <climits>
#include <cstddef>
#include <iostream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <type_traits>
#include <utility>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/manager/routing.h"
#include "tests/support/files.h"
#include "tests/support/manager.h"
#include "tests/support/manager_host.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

using PrintfTest = RoutingTest;

// --- the text of a record ---

TEST_F(PrintfTest, ReadyTextIsNeverAFormat) {
  Start();

  EXPECT_TRUE(Manager()->Trace("%s", kLevel3, "100% %s %n %d", nullptr, false, true));
  EXPECT_TRUE(Manager()->AppTrace("%n", kLevel3, "%s%s%s", nullptr, false, true, ""));
  Manager()->Printf(kLevel1, VeltInterString("%s"), "%s", "%s %n %d");
  Manager()->Printf(kLevel1, "100%% %s", "%x");

  EXPECT_EQ(Logged(), (Strings{" %s I: 100% %s %n %d", " %n I: %s%s%s", " %s E: %s %n %d", "  E: 100% %x"}));
}

TEST_F(PrintfTest, TraceCutsAt2048Characters) {
  Start();

  for (std::size_t const length :
       {std::size_t{2047}, std::size_t{2048}, std::size_t{2049}, std::size_t{5000}}) {
    EXPECT_TRUE(Manager()->Trace("net", kLevel3, std::string(length, 'x').c_str(), nullptr, false, true));
  }

  EXPECT_EQ(Logged(), (Strings{" net I: " + std::string(2047, 'x'), " net I: " + std::string(2048, 'x'),
                               " net I: " + std::string(2048, 'x'), " net I: " + std::string(2048, 'x')}));
}

TEST_F(PrintfTest, AnEmptyTextIsARecord) {
  Start();

  EXPECT_TRUE(Manager()->Trace("net", kLevel3, "", nullptr, false, true));

  EXPECT_EQ(Logged(), (Strings{" net I: "}));
}

TEST_F(PrintfTest, AModuleOfOneSpaceIsARecordOfItsOwnKind) {
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

TEST_F(PrintfTest, PrintfTakesLevelAndFormatOrModuleOrFormatAlone) {
  Start("debug_level = 1111\nnet_level = 0001\n");

  Manager()->Printf(kLevel1, "%s", "level and format");
  Manager()->Printf(kLevel3, VeltInterString("net"), "module %d", 7);
  Manager()->Printf(kLevel3, std::string("net"), "module of a string");
  Manager()->Printf("format alone %c", 'c');

  EXPECT_EQ(Logged(), (Strings{"  E: level and format", " net I: module 7", " net I: module of a string",
                               "  I: format alone c"}));
}

TEST_F(PrintfTest, PrintfIsFilteredByTheModulesSets) {
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

TEST_F(PrintfTest, PrintfCutsAt2046Characters) {
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

TEST_F(PrintfTest, PrintfOfSixteenMegabytesIsCutToo) {
  Start("debug_level = 1111\n");

  Manager()->Printf("%s", std::string(16U << 20U, 'x').c_str());

  EXPECT_EQ(Logged(), (Strings{"  I: " + std::string(2046, 'x')}));
}

// Formats that the compiler would not let through.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#ifndef __clang__  // clang does not know this warning
#pragma GCC diagnostic ignored "-Wformat-overflow"
#endif
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-zero-length"

constexpr char const* kTooWide = "%2147483648d";  // fails with EOVERFLOW

// The three forms: level, level and module, format alone.
void PrintInEachForm(char const* format) {
  errno = 0;
  Manager()->Printf(kLevel3, format, 1);
  Manager()->Printf(kLevel3, VeltInterString("net"), format, 1);
  Manager()->Printf(format, 1);
}

TEST_F(PrintfTest, AFormatThatFailsIsReportedByTheFirstFormAlone) {
  Start("debug_level = 1111\n");

  PrintInEachForm(kTooWide);

  EXPECT_TRUE(Logged().empty());
  EXPECT_EQ(output_.Text(), "Printf failed. errno:" + std::to_string(EOVERFLOW) + "\n");
}

// Refuses every character.
class ClosedBuffer : public std::streambuf {};

TEST_F(PrintfTest, AStandardOutputThatThrowsKeepsTheFailureOfAFormatToItself) {
  Start("debug_level = 1111\n");
  ClosedBuffer closed;
  std::streambuf* const before = std::cout.rdbuf(&closed);
  std::cout.exceptions(std::ios_base::badbit);

  EXPECT_NO_THROW(Manager()->Printf(kLevel3, kTooWide, 1));
  bool const asked = std::cout.bad();

  std::cout.exceptions(std::ios_base::goodbit);
  std::cout.rdbuf(before);
  EXPECT_TRUE(asked) << "the stream was written to, and threw";
}

TEST_F(PrintfTest, ACharacterThatHasNoFormIsAFailureToo) {
  Start("debug_level = 1111\n");
  char const* const wide = "%ls";
  wchar_t const no_character[] = {static_cast<wchar_t>(0x7FFFFFFF), L'\0'};

  errno = 0;
  Manager()->Printf(kLevel3, wide, no_character);
  Manager()->Printf(wide, no_character);

  EXPECT_TRUE(Logged().empty());
  EXPECT_EQ(output_.Text(), "Printf failed. errno:" + std::to_string(EILSEQ) + "\n");
}

TEST_F(PrintfTest, AnEmptyResultIsAFailureToo) {
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

TEST_F(PrintfTest, ANullFormatTracesNothing) {
  Start("debug_level = 1111\n");
  char const* const none = nullptr;

  Manager()->Printf(kLevel3, none);
  Manager()->Printf(kLevel3, VeltInterString("net"), none);
  Manager()->Printf(none);

  EXPECT_TRUE(Logged().empty());
  EXPECT_EQ(CountOf(output_.Text(), "Printf failed. errno:"), 1U);
}

TEST_F(PrintfTest, OddFormatsGiveWhatTheCLibraryGives) {
  Start("debug_level = 1111\n");
  char const* const positional = "%2$s %1$s";
  char const* const string = "%s";
  char const* const missing = nullptr;

  Manager()->Printf(kLevel3, positional, "a", "b");
  Manager()->Printf(kLevel3, string, missing);

  EXPECT_EQ(Logged(), (Strings{"  I: b a", "  I: (null)"}));
}

// --- formats of records that no output wants ---

// No ring; "net" and the default module pass level 0 only.
constexpr char const* kNothingKept = "nFiltLogBufSize = 0\nnet_level = 1\nnet_output = 01\ndebug_level = 1\n";

TEST_F(PrintfTest, AFormatThatNobodyWouldSeeIsNotExpanded) {
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

TEST_F(PrintfTest, AFormatThatTheRingTakesIsExpandedAtOnce) {
  Start("nFiltLogBufSize = 1\nnet_level = 1\nnet_output = 01\n");
  std::string text = "before";

  Manager()->Printf(kLevel3, VeltInterString("net"), "%s", text.c_str());
  text = "behind";
  Manager()->Printf(kLevel0, VeltInterString("net"), "alarm");

  EXPECT_EQ(Logged(), (Strings{" net I: before", " net A: alarm"}));
}

TEST_F(PrintfTest, WithoutARingTheFirstFormStillSaysThatAFormatFailed) {
  Start(kNothingKept);

  PrintInEachForm(kTooWide);

  EXPECT_TRUE(Logged().empty());
  EXPECT_EQ(output_.Text(), "Printf failed. errno:" + std::to_string(EOVERFLOW) + "\n");
}

TEST_F(PrintfTest, AFormatThatFailsHidesALevelThatThrows) {
  Start(kNothingKept);

  for (VeltLogLevel const level : {VeltLogLevel{32}, VeltLogLevel{-1}, VeltLogLevel{INT_MIN}}) {
    EXPECT_NO_THROW(Manager()->Printf(level, kTooWide, 1)) << level;
    EXPECT_NO_THROW(Manager()->Printf(level, VeltInterString("net"), kTooWide, 1)) << level;
    EXPECT_THROW(Manager()->Printf(level, "x"), std::out_of_range) << level;
    EXPECT_THROW(Manager()->Printf(level, VeltInterString("net"), "x"), std::out_of_range) << level;
  }
  EXPECT_NO_THROW(Manager()->Printf(VeltLogLevel{33}, VeltInterString("net"), "x"));

  EXPECT_TRUE(Logged().empty());
  EXPECT_EQ(CountOf(output_.Text(), "Printf failed. errno:"), 3U);
}

#pragma GCC diagnostic pop

// A message of usual length is expanded in its record, a longer one in a buffer elsewhere.
TEST_F(PrintfTest, PrintfKeepsMessagesOfEveryLengthWhole) {
  Start();
  Strings expected;
  for (std::size_t length = 1; length <= 420; ++length) {
    std::string text(length, '.');
    for (std::size_t i = 0; i < length; ++i) text[i] = static_cast<char>('a' + i % 26);
    Manager()->Printf(kLevel3, VeltInterString("net"), "%s%d%s", text.c_str(), 7, "end");
    expected.push_back(" net I: " + text + "7end");
  }
  for (std::size_t const length : {180U, 200U, 203U, 204U, 300U}) {
    std::string const module(length, 'm');
    Manager()->Printf(kLevel0, VeltInterString(module), "%s", "message");
    expected.push_back(' ' + module + " A: message");
  }

  EXPECT_EQ(Logged(), expected);
}

}  // namespace
}  // namespace velt::test
