// The two switches of the MRB functions: where they come from and when they are read.
#include <sys/stat.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "velt/process.h"

#include "tests/process/mrb.h"
#include "tests/support/files.h"

namespace velt::test {
namespace {

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

}  // namespace
}  // namespace velt::test
