#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <bitset>
#include <cctype>
#include <cstdlib>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/process.h"
#include "velt/manager.h"
#include "velt/process.h"

namespace velt::test {
namespace {

constexpr wchar_t const kNotInTheCLocale[] = {0x20AC, 0};  // a euro sign

// Called through pointers of plain types, so that the compiler does not refuse the bad formats on purpose.
void (*const volatile output_unchecked)(char const*, ...) = &VeltOutputFrmtString;
void (*const volatile log_unchecked)(VeltLogLevel, char const*, ...) = &VeltOutputMrbLog;

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

std::vector<std::string> RecordsOf(std::string const& log) {
  std::vector<std::string> records;
  for (auto const& line : Lines(log)) {
    if (line.find(".T") != std::string::npos) records.push_back(line);
  }
  return records;
}

// Whether a line is a time stamp without its year, a thread id, and `rest`.
bool Matches(std::string const& line, std::string const& rest) {
  std::string const shape = "00-00 00:00:00.000000.T";
  std::string head = line.substr(0, shape.size());
  std::replace_if(
      head.begin(), head.end(), [](unsigned char c) { return std::isdigit(c) != 0; }, '0');
  std::size_t const end_of_id = line.find_first_not_of("0123456789", shape.size());
  return head == shape && end_of_id != std::string::npos && end_of_id > shape.size() &&
         line.substr(end_of_id) == rest;
}

// --- the call to the manager ---

TEST_F(MrbTest, AFormattedTextIsTracedUnderMrbAtLevelTwoAndLoggedByDefault) {
  StartWithEngine();

  VeltOutputFrmtString("%s is %d%%", "load", 42);

  ASSERT_EQ(calls_.size(), 1U);
  EXPECT_EQ(calls_[0].module, "MRB");
  EXPECT_EQ(calls_[0].level, 2);
  EXPECT_EQ(calls_[0].text, "load is 42%");
  EXPECT_FALSE(calls_[0].asn);
  EXPECT_FALSE(calls_[0].print);
  EXPECT_TRUE(calls_[0].log);
}

TEST_F(MrbTest, AReadyTextIsTracedUnderMrbAtLevelTwoAndLoggedByDefault) {
  StartWithEngine();

  VeltOutputString_i("ready");

  ASSERT_EQ(calls_.size(), 1U);
  EXPECT_EQ(calls_[0].module, "MRB");
  EXPECT_EQ(calls_[0].level, 2);
  EXPECT_EQ(calls_[0].text, "ready");
  EXPECT_FALSE(calls_[0].asn);
  EXPECT_FALSE(calls_[0].print);
  EXPECT_TRUE(calls_[0].log);
}

TEST_F(MrbTest, ALeveledTextIsTracedAtItsOwnLevel) {
  StartWithEngine();

  for (int const level : {0, 1, 2, 5, 31, 32, 99, -1}) VeltOutputMrbLog(VeltLogLevel(level), "at %d", level);

  ASSERT_EQ(calls_.size(), 8U);
  int const levels[] = {0, 1, 2, 5, 31, 32, 99, -1};
  char const* const texts[] = {"at 0", "at 1", "at 2", "at 5", "at 31", "at 32", "at 99", "at -1"};
  for (std::size_t i = 0; i < 8; ++i) {
    EXPECT_EQ(calls_[i].module, "MRB");
    EXPECT_EQ(calls_[i].level, levels[i]);
    EXPECT_EQ(calls_[i].text, texts[i]);
    EXPECT_FALSE(calls_[i].asn);
    EXPECT_FALSE(calls_[i].print);
    EXPECT_TRUE(calls_[i].log);
  }
}

TEST_F(MrbTest, TheCallersSwitchesAreOnWhenTheyAreNotZero) {
  StartWithEngine();

  VeltMrbTrace("a", 0, 0);
  VeltMrbTrace("b", 1, 0);
  VeltMrbTrace("c", 0, 1);
  VeltMrbTrace("d", -1, 256);

  ASSERT_EQ(calls_.size(), 4U);
  std::pair<bool, bool> const expected[] = {{false, false}, {true, false}, {false, true}, {true, true}};
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(calls_[i].module, "MRB");
    EXPECT_EQ(calls_[i].level, 2);
    EXPECT_EQ(calls_[i].print, expected[i].first) << calls_[i].text;
    EXPECT_EQ(calls_[i].log, expected[i].second) << calls_[i].text;
  }
}

TEST_F(MrbTest, FormattedMessagesAreCutAt2047Characters) {
  StartWithEngine();

  for (std::size_t const length : {2046U, 2047U, 2048U, 5000U}) {
    std::string const text(length, 'x');
    VeltOutputFrmtString("%s", text.c_str());
    VeltOutputMrbLog(VeltLogLevel(5), "%s", text.c_str());
  }

  ASSERT_EQ(calls_.size(), 8U);
  std::size_t const kept[] = {2046, 2046, 2047, 2047, 2047, 2047, 2047, 2047};
  for (std::size_t i = 0; i < 8; ++i) EXPECT_EQ(calls_[i].text, std::string(kept[i], 'x'));
}

TEST_F(MrbTest, AReadyTextIsPassedOnWhole) {
  StartWithEngine();
  std::string const text(5000, 'x');

  VeltOutputString_i(text.c_str());
  VeltMrbTrace(text.c_str(), 0, 1);

  ASSERT_EQ(calls_.size(), 2U);
  EXPECT_EQ(calls_[0].text, text);
  EXPECT_EQ(calls_[1].text, text);
}

TEST_F(MrbTest, AReadyTextIsNotReadAsAFormat) {
  StartWithEngine();

  VeltOutputString_i("100% %s %n %d");
  VeltMrbTrace("%s%s%s", 0, 1);
  VeltOutputFrmtString("%s", "%n");

  ASSERT_EQ(calls_.size(), 3U);
  EXPECT_EQ(calls_[0].text, "100% %s %n %d");
  EXPECT_EQ(calls_[1].text, "%s%s%s");
  EXPECT_EQ(calls_[2].text, "%n");
}

TEST_F(MrbTest, AnEmptyMessageIsTracedToo) {
  StartWithEngine();

  VeltOutputFrmtString("%s", "");
  VeltOutputMrbLog(VeltLogLevel(1), "%s", "");
  VeltOutputString_i("");

  ASSERT_EQ(calls_.size(), 3U);
  for (auto const& call : calls_) {
    EXPECT_EQ(call.text, "");
    EXPECT_FALSE(call.null_text);
  }
}

TEST_F(MrbTest, AFormatThatCannotBeExpandedIsTracedAllTheSame) {
  StartWithEngine();

  for (char const* const format : {"ab%ls", "ab%2147483648d"}) {
    output_unchecked(format, kNotInTheCLocale);
    log_unchecked(VeltLogLevel(5), format, kNotInTheCLocale);
  }

  ASSERT_EQ(calls_.size(), 4U);
  for (auto const& call : calls_) {
    EXPECT_EQ(call.module, "MRB");
    EXPECT_FALSE(call.null_text);
    EXPECT_LE(call.text.size(), 2047U);
  }
}

TEST_F(MrbTest, ANullFormatIsAnEmptyMessage) {
  StartWithEngine();

  output_unchecked(nullptr);
  log_unchecked(VeltLogLevel(5), nullptr);

  ASSERT_EQ(calls_.size(), 2U);
  for (auto const& call : calls_) {
    EXPECT_EQ(call.text, "");
    EXPECT_FALSE(call.null_text);
  }
}

TEST_F(MrbTest, ANullTextIsPassedOnAsItIs) {
  StartWithEngine();

  VeltOutputString_i(nullptr);
  VeltMrbTrace(nullptr, 1, 1);

  ASSERT_EQ(calls_.size(), 2U);
  EXPECT_TRUE(calls_[0].null_text);
  EXPECT_TRUE(calls_[1].null_text);
}

// --- the two switches ---

struct Switches {
  char const* name;
  char const* content;
  bool print;
  bool log;
};

// The values of the two switches in a process with this main configuration file. A process reads them once.
class MrbSwitchTest : public MrbTest, public testing::WithParamInterface<Switches> {};

TEST_P(MrbSwitchTest, ComeFromTheMainConfigurationFile) {
  WriteMain(GetParam().content);
  StartWithEngine();

  VeltOutputFrmtString("%s", "formatted");
  VeltOutputMrbLog(VeltLogLevel(5), "%s", "leveled");
  VeltOutputString_i("ready");

  ASSERT_EQ(calls_.size(), 3U);
  for (auto const& call : calls_) {
    EXPECT_EQ(call.print, GetParam().print) << call.text;
    EXPECT_EQ(call.log, GetParam().log) << call.text;
  }
}

constexpr Switches kSwitches[] = {
    {"EmptyFile", "", false, true},
    {"PrintOnly", "EnablePrint = 1\nEnableLog = 0\n", true, false},
    {"LogOnly", "EnablePrint=0\nEnableLog=1\n", false, true},
    {"Both", "EnablePrint=1\nEnableLog=1\n", true, true},
    {"Neither", "EnablePrint=0\nEnableLog=0\n", false, false},
    {"LogAbsentAfterPrintOn", "EnablePrint=1\n", true, true},
    {"LogAbsentAfterPrintOff", "EnablePrint=0\n", false, true},
    {"PrintAbsent", "EnableLog=0\n", false, false},
    {"LettersForPrint", "EnablePrint=abc\n", false, true},
    {"LettersForLog", "EnableLog=abc\n", false, false},
    {"EmptyValues", "EnablePrint=\nEnableLog=\n", false, false},
    {"NegativeAndHexadecimal", "EnablePrint=-1\nEnableLog=0x10\n", true, false},
    {"DigitsThenLetters", "EnablePrint=2\nEnableLog=10MB\n", true, true},
    {"BeyondInt", "EnablePrint=4294967296\nEnableLog=99999999999999999999\n", false, true},
    {"TheFirstLineCounts", "EnablePrint=1\nEnablePrint=0\n", true, true},
    {"OtherCase", "enableprint=1\nENABLELOG=0\n", false, true},
    {"Commented", "#EnablePrint=1\n", false, true},
    {"WithoutAnEqualsSign", "[EnablePrint]\nEnablePrint 1\n", false, true},
};

INSTANTIATE_TEST_SUITE_P(Switches, MrbSwitchTest, testing::ValuesIn(kSwitches),
                         [](auto const& row) { return std::string(row.param.name); });

TEST_F(MrbTest, AValueThatIsTooLongCountsAsAbsent) {
  WriteMain("EnablePrint=" + std::string(1791, '0') + "1\nEnableLog=" + std::string(1791, '0') + "0\n");
  StartWithEngine();

  VeltOutputString_i("text");

  ASSERT_EQ(calls_.size(), 1U);
  EXPECT_FALSE(calls_[0].print);
  EXPECT_TRUE(calls_[0].log);
}

TEST_F(MrbTest, TheSwitchesAreReadOnce) {
  WriteMain("EnablePrint = 1\nEnableLog = 0\n");
  StartWithEngine();
  VeltOutputString_i("first");

  WriteMain("EnablePrint = 0\nEnableLog = 1\n");
  VeltOutputString_i("second");
  VeltMrbTraceSatus();
  VeltOutputFrmtString("%s", "third");

  ASSERT_EQ(calls_.size(), 3U);
  for (auto const& call : calls_) {
    EXPECT_TRUE(call.print) << call.text;
    EXPECT_FALSE(call.log) << call.text;
  }
}

TEST_F(MrbTest, TheSwitchesCanBeReadBeforeTheFirstTrace) {
  WriteMain("EnablePrint = 1\nEnableLog = 0\n");
  StartWithEngine();

  VeltMrbTraceSatus();
  WriteMain("");
  VeltOutputString_i("text");

  ASSERT_EQ(calls_.size(), 1U);
  EXPECT_TRUE(calls_[0].print);
  EXPECT_FALSE(calls_[0].log);
}

TEST_F(MrbTest, AFileThatComesAfterTheFirstTraceIsNotRead) {
  StartWithEngine();
  VeltOutputMrbLog(VeltLogLevel(5), "%s", "first");

  WriteMain("EnablePrint = 1\nEnableLog = 0\n");
  VeltOutputString_i("second");

  ASSERT_EQ(calls_.size(), 2U);
  EXPECT_FALSE(calls_[1].print);
  EXPECT_TRUE(calls_[1].log);
}

TEST_F(MrbTest, ATraceWithTheCallersSwitchesReadsNoFile) {
  WriteMain("EnablePrint = 0\nEnableLog = 0\n");
  StartWithEngine();
  VeltMrbTrace("first", 0, 1);

  WriteMain("EnablePrint = 1\nEnableLog = 0\n");
  VeltOutputString_i("second");

  ASSERT_EQ(calls_.size(), 2U);
  EXPECT_TRUE(calls_[0].log) << "the caller's own";
  EXPECT_TRUE(calls_[1].print) << "the file is read at the first call";
}

TEST_F(MrbTest, TheBannerOfTheExitFlagFollowsTheSwitches) {
  WriteMain("EnablePrint = 1\nEnableLog = 0\n");
  StartWithEngine();

  SetVeltAppExit(true);

  ASSERT_EQ(calls_.size(), 1U);
  EXPECT_TRUE(calls_[0].print);
  EXPECT_FALSE(calls_[0].log);
}

TEST_F(MrbTest, TheFileOfTheSharedInstallationStandsIn) {
  ScratchDir const shared;
  mkdir((shared / "conf").c_str(), 0755);
  WriteFile(shared / "conf/velt.cfg", "EnablePrint = 1\n");
  setenv("COMMON_LIB_PATH", shared.Path().c_str(), 1);
  StartWithEngine();

  VeltOutputString_i("text");

  ASSERT_EQ(calls_.size(), 1U);
  EXPECT_TRUE(calls_[0].print);
}

TEST_F(MrbTest, ThreadsThatTraceFirstAtTheSameTimeHaveTheSameSwitches) {
  WriteMain("EnablePrint = 1\nEnableLog = 0\n");
  StartWithEngine();
  std::atomic<int> arrived{0};

  std::vector<std::thread> threads;
  threads.reserve(8);
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&arrived] {
      ++arrived;
      while (arrived < 8) std::this_thread::yield();
      for (int n = 0; n < 20; ++n) VeltOutputFrmtString("%d", n);
    });
  }
  for (auto& thread : threads) thread.join();

  ASSERT_EQ(calls_.size(), 160U);
  for (auto const& call : calls_) {
    EXPECT_TRUE(call.print);
    EXPECT_FALSE(call.log);
  }
}

// --- through the manager into a log directory ---

TEST_F(MrbTest, EachFunctionWritesItsLineToTheLog) {
  StartWithChannel();

  VeltOutputFrmtString("formatted %d", 1);
  VeltOutputMrbLog(VeltLogLevel(0), "leveled %s", "zero");
  VeltOutputMrbLog(VeltLogLevel(1), "leveled %s", "one");
  VeltOutputMrbLog(VeltLogLevel(3), "leveled %s", "three");
  VeltOutputMrbLog(VeltLogLevel(5), "leveled %s", "five");
  VeltOutputString_i("ready 100%");
  VeltMrbTrace("own switches", 0, 1);
  SetVeltAppExit(true);
  auto const records = RecordsOf(StopAndReadLog());

  ASSERT_EQ(records.size(), 8U);
  char const* const expected[] = {
      " MRB W: formatted 1",  " MRB A: leveled zero",
      " MRB E: leveled one",  " MRB I: leveled three",
      " MRB leveled five",    " MRB W: ready 100%",
      " MRB W: own switches", " MRB W: ===================SetVeltAppExit (1)=================="};
  for (std::size_t i = 0; i < 8; ++i) {
    EXPECT_TRUE(Matches(records[i], expected[i])) << records[i] << "\nexpected" << expected[i];
  }
}

TEST_F(MrbTest, LoggedRecordsAreNotPrintedByDefault) {
  StartWithChannel();
  CaptureStdout out;

  VeltOutputString_i("logged only");
  std::string const log = StopAndReadLog();

  EXPECT_EQ(CountOf(log, " MRB W: logged only\n"), 1U);
  EXPECT_EQ(out.Text(), "");
}

TEST_F(MrbTest, PrintedRecordsAreNotLoggedWhenTheLogIsOff) {
  WriteMain("EnablePrint = 1\nEnableLog = 0\n");
  StartWithChannel();
  CaptureStdout out;

  VeltOutputString_i("printed only");
  std::string const log = StopAndReadLog();

  EXPECT_EQ(CountOf(log, "printed only"), 0U);
  std::string const printed = out.Text();
  ASSERT_FALSE(printed.empty());
  EXPECT_TRUE(Matches(printed.substr(0, printed.size() - 1), " MRB W: printed only")) << printed;
}

TEST_F(MrbTest, TheModulesOwnSetsAddToTheSwitches) {
  WriteMain("EnablePrint = 1\nEnableLog = 0\n");
  StartWithChannel();
  ASSERT_TRUE(
      VeltDebugMgr::Instance()->RegSubModuleInfo("MRB", std::bitset<32>(4), std::bitset<32>(2), false));
  CaptureStdout out;

  VeltOutputString_i("both ways");
  VeltOutputMrbLog(VeltLogLevel(3), "%s", "level not in the set");
  std::string const log = StopAndReadLog();
  std::string const printed = out.Text();

  EXPECT_EQ(CountOf(log, "both ways"), 1U);
  EXPECT_EQ(CountOf(log, "level not in the set"), 0U);
  EXPECT_EQ(CountOf(printed, "both ways"), 1U);
  EXPECT_EQ(CountOf(printed, "level not in the set"), 1U);
}

TEST_F(MrbTest, WithBothSwitchesOffTheModulesSetsDecide) {
  WriteMain("EnablePrint = 0\nEnableLog = 0\n");
  StartWithChannel("debug_level=0010\ndebug_output=0100\n");  // level 2 to the log, for every module

  VeltOutputString_i("level two");
  VeltOutputMrbLog(VeltLogLevel(5), "%s", "level five");
  std::string const log = StopAndReadLog();

  EXPECT_EQ(CountOf(log, "level two"), 1U);
  EXPECT_EQ(CountOf(log, "level five"), 0U);
}

TEST_F(MrbTest, WithBothSwitchesOnTheModulesSetsAreNotAsked) {
  WriteMain("EnablePrint = 1\nEnableLog = 1\n");
  StartWithChannel();
  CaptureStdout out;

  VeltOutputMrbLog(VeltLogLevel(32), "%s", "level thirty-two");
  VeltOutputMrbLog(VeltLogLevel(33), "%s", "level thirty-three");
  std::string const log = StopAndReadLog();

  EXPECT_EQ(CountOf(log, " MRB level thirty-two\n"), 1U);
  EXPECT_EQ(CountOf(log, "level thirty-three"), 0U);
  EXPECT_EQ(CountOf(out.Text(), " MRB level thirty-two\n"), 1U);
}

TEST_F(MrbTest, ALevelThatTheManagerThrowsForIsThrownToTheCaller) {
  StartWithChannel();

  EXPECT_THROW(VeltOutputMrbLog(VeltLogLevel(32), "%s", "text"), std::out_of_range);
  EXPECT_THROW(VeltOutputMrbLog(VeltLogLevel(-1), "%s", "text"), std::out_of_range);

  VeltOutputString_i("still traced");
  EXPECT_EQ(CountOf(StopAndReadLog(), "still traced"), 1U);
}

TEST_F(MrbTest, LongTextsAreCutAtTheirOwnLimits) {
  StartWithChannel();
  std::string const text(5000, 'x');

  VeltOutputFrmtString("%s", text.c_str());
  VeltOutputString_i(text.c_str());
  auto const records = RecordsOf(StopAndReadLog());

  ASSERT_EQ(records.size(), 2U);
  EXPECT_TRUE(Matches(records[0], " MRB W: " + std::string(2047, 'x'))) << records[0].size();
  EXPECT_TRUE(Matches(records[1], " MRB W: " + std::string(2048, 'x'))) << "the channel's own limit";
}

TEST_F(MrbTest, EmptyMessagesAreLines) {
  StartWithChannel();

  VeltOutputFrmtString("%s", "");
  auto const records = RecordsOf(StopAndReadLog());

  ASSERT_EQ(records.size(), 1U);
  EXPECT_TRUE(Matches(records[0], " MRB W: ")) << records[0];
}

TEST_F(MrbTest, ANullTextIsNotTraced) {
  StartWithChannel();

  VeltOutputString_i(nullptr);
  VeltMrbTrace(nullptr, 0, 1);

  EXPECT_TRUE(RecordsOf(StopAndReadLog()).empty());
}

TEST_F(MrbTest, WithoutAnInitialisedManagerNothingIsTraced) {
  CaptureStdout out;

  VeltOutputFrmtString("%s", "early");
  VeltOutputMrbLog(VeltLogLevel(0), "%s", "early");
  VeltOutputString_i("early");
  VeltMrbTrace("early", 1, 1);

  EXPECT_EQ(out.Text(), "");
  EXPECT_FALSE(VeltDebugMgr::Instance()->IsInit());
}

TEST_F(MrbTest, EveryRecordOfFourThreadsIsInTheLogOnce) {
  StartWithChannel();
  constexpr int kThreads = 4;
  constexpr int kRecords = 250;

  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int n = 0; n < kRecords; ++n) VeltOutputFrmtString("thread %d record %d.", t, n);
    });
  }
  for (auto& thread : threads) thread.join();
  std::map<std::string, int> seen;
  for (auto const& record : RecordsOf(StopAndReadLog())) ++seen[record.substr(record.find(" MRB W: ") + 8)];

  EXPECT_EQ(seen.size(), 1000U);
  for (int i = 0; i < kThreads * kRecords; ++i) {
    std::string const record =
        "thread " + std::to_string(i / kRecords) + " record " + std::to_string(i % kRecords) + ".";
    ASSERT_EQ(seen[record], 1) << record;
  }
}

}  // namespace
}  // namespace velt::test
