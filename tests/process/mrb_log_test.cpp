// What the MRB functions write through the manager: into the log and to standard output.
#include <algorithm>
#include <bitset>
#include <cctype>
#include <cstddef>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "velt/manager.h"
#include "velt/process.h"

#include "tests/process/mrb.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

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
