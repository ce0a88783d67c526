// Clocks and time zones that change under a host: names and stamps as the clock says, no record lost.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "tests/checker/family.h"
#include "tests/checker/report.h"
#include "tests/faults/counted.h"
#include "tests/faults/scenario.h"
#include "tests/support/running_program.h"

namespace velt::faults {
namespace {

using checker::Kind;
using checker::Report;

char const* FakeTimeLibrary() {
  for (char const* path : {"/usr/lib/x86_64-linux-gnu/faketime/libfaketimeMT.so.1",
                           "/usr/lib/aarch64-linux-gnu/faketime/libfaketimeMT.so.1"}) {
    if (access(path, R_OK) == 0) return path;
  }
  return nullptr;
}

constexpr std::time_t kHour = 3'600;
constexpr std::time_t kDay = 24 * kHour;
// 2026-10-25 01:00:00 UTC: summer time ends in Berlin, 03:00 becomes 02:00.
constexpr std::time_t kFallBack = 1'792'890'000;
// 2026-03-29 01:00:00 UTC: summer time begins in Berlin, 02:00 becomes 03:00.
constexpr std::time_t kGap = 1'774'746'000;

// A host in Berlin whose clock the test sets.
class ClockTest : public Scenario {
 protected:
  void SetUp() override {
    if (kSanitized)
      GTEST_SKIP() << "the library that changes the clock cannot come before the sanitizer's runtime";
    if (FakeTimeLibrary() == nullptr) GTEST_SKIP() << "faketime is not installed";
  }

  // Sets the host's clock to `now`; it runs on from there.
  void SetClock(std::time_t now) const {
    std::string const next = dir / "clock.next";
    std::ofstream(next) << std::showpos << now - std::time(nullptr) << "\n";
    std::rename(next.c_str(), (dir / "clock").c_str());
  }

  void Start(unsigned records, std::vector<std::string> const& more = {}, int out = -1) {
    std::vector<std::string> command = {VELT_FAULT_HOST,
                                        "directory=" + (dir / "logs"),
                                        "prefix=t_",
                                        "side=" + (dir / "side"),
                                        "records=" + std::to_string(records),
                                        "producers=1",
                                        "pause_us=10000",
                                        "length=100",
                                        "max_bytes=20000"};  // at most 100 records a second: over a second
    command.insert(command.end(), more.begin(), more.end());
    test::Streams streams;
    streams.out = out;
    std::string const preload = std::string(VELT_WALL_CLOCK_WAITS) + " " + FakeTimeLibrary();
    host = std::make_unique<test::RunningProgram>(command, streams, [&preload, clock = dir / "clock"] {
      setenv("TZ", "Europe/Berlin", 1);
      setenv("LD_PRELOAD", preload.c_str(), 1);
      setenv("FAKETIME_TIMESTAMP_FILE", clock.c_str(), 1);
      setenv("FAKETIME_NO_CACHE", "1", 1);
      setenv("DONT_FAKE_MONOTONIC", "1", 1);
    });
  }

  // A file's times, as "20260707_120000".
  struct FileTimes {
    std::string in_name;
    std::string created;  // by the clock, from its creation line
  };

  // Ends the run; gives the times of its files in the order of their names. Expects each name to be the time
  // of creation, or one second after the name before it.
  std::vector<FileTimes> Finish(bool names_tell_order, std::size_t max_bytes = 0) {
    EXPECT_EQ(host->Wait(), 0);
    checker::Expectation expected;
    expected.directory = dir / "logs";
    expected.prefix = "t_";
    expected.max_bytes = 20'000;
    expected.in_order = names_tell_order;
    if (max_bytes != 0) expected.max_bytes = max_bytes;
    Report const report = Check(expected, checker::ReadOutcomes(dir / "side"));
    EXPECT_TRUE(report.Clean()) << report.Text();
    EXPECT_TRUE(report.Accounted());
    EXPECT_EQ(report.found, report.called);
    EXPECT_EQ(report.refused, 0U);
    ExpectCounted(ReadCounts(dir / "side"), report);
    std::vector<FileTimes> times;
    for (auto const& file : checker::ReadFamilyFiles(dir / "logs", "t_")) {
      FileTimes const now{file.name.substr(2, 15), CreationOf(file.text)};
      if (now.in_name != now.created) {
        EXPECT_GT(now.in_name, now.created);
        EXPECT_TRUE(!times.empty() && SecondsOf(times.back().in_name) + 1 == SecondsOf(now.in_name))
            << file.name << " created " << now.created;
      }
      times.push_back(now);
      texts += file.text;
    }
    Figure({{"files", static_cast<long long>(times.size())},
            {"records_verified", static_cast<long long>(report.found)},
            {"lost", static_cast<long long>(report.missing)}});
    return times;
  }
  // From the line "File create at time 2026-07-07 12:00:00."; "" when there is none.
  static std::string CreationOf(std::string const& text) {
    std::string const before = "File create at time ";
    std::size_t const at = text.find(before);
    if (at == std::string::npos) return "";
    std::string time = text.substr(at + before.size(), 19);
    time[10] = '_';
    for (char const separator : {'-', ':'})
      time.erase(std::remove(time.begin(), time.end(), separator), time.end());
    return time;
  }
  static std::time_t SecondsOf(std::string const& time) {
    std::tm fields{};
    EXPECT_NE(strptime(time.c_str(), "%Y%m%d_%H%M%S", &fields), nullptr) << time;
    return timegm(&fields);
  }
  static std::size_t Created(std::vector<FileTimes> const& times, std::string const& head) {
    auto const begins = [&](FileTimes const& one) { return one.created.rfind(head, 0) == 0; };
    return static_cast<std::size_t>(std::count_if(times.begin(), times.end(), begins));
  }
  static std::size_t Named(std::vector<FileTimes> const& times, std::string const& head) {
    auto const begins = [&](FileTimes const& one) { return one.in_name.rfind(head, 0) == 0; };
    return static_cast<std::size_t>(std::count_if(times.begin(), times.end(), begins));
  }
  // Waits until the family has a file that was created at a time that begins so.
  bool WaitForCreation(std::string const& head) const {
    return test::WaitUntil([&] {
      for (auto const& file : checker::ReadFamilyFiles(dir / "logs", "t_"))
        if (CreationOf(file.text).rfind(head, 0) == 0) return true;
      return false;
    });
  }

  std::unique_ptr<test::RunningProgram> host;
  std::string texts;
};

TEST_F(ClockTest, AtTheEndOfSummerTimeNamesGoOnAndEveryRecordIsThereInItsOrder) {
  SetClock(kFallBack - 40);  // a busy machine takes seconds to start the host
  Start(700);
  ASSERT_TRUE(WaitForCreation("20261025_0259"));
  SetClock(kFallBack - 3);
  ASSERT_TRUE(WaitForCreation("20261025_0200"));

  auto const times = Finish(true);

  EXPECT_GE(Created(times, "20261025_0259"), 1U);
  EXPECT_GE(Created(times, "20261025_0200"), 2U);
  EXPECT_EQ(Created(times, "20261025_0259") + Created(times, "20261025_0200"), times.size());
  EXPECT_EQ(Named(times, "20261025_0259") + Named(times, "20261025_0300"), times.size());
  EXPECT_GE(test::CountOf(texts, "File close at CET 2026-10-25 02:00:"), 2U);
}

TEST_F(ClockTest, AtTheBeginningOfSummerTimeNamesSkipAnHour) {
  SetClock(kGap - 40);
  Start(700);
  ASSERT_TRUE(WaitForCreation("20260329_0159"));
  SetClock(kGap - 3);
  ASSERT_TRUE(WaitForCreation("20260329_0300"));

  auto const times = Finish(true);

  EXPECT_GE(Named(times, "20260329_0159"), 1U);
  EXPECT_GE(Named(times, "20260329_0300"), 2U);
  EXPECT_EQ(Named(times, "20260329_0159") + Named(times, "20260329_0300"), times.size());
  EXPECT_EQ(Created(times, "20260329_0159") + Created(times, "20260329_0300"), times.size());
  EXPECT_GE(test::CountOf(texts, "File close at CEST 2026-03-29 03:00:"), 2U);
}

TEST_F(ClockTest, AClockThatIsSetBackAndForwardCostsNoRecord) {
  constexpr std::time_t kNoon = kGap + 100 * kDay + 9 * kHour;  // 2026-07-07 12:00:00 in Berlin
  SetClock(kNoon);
  Start(Scaled(900U, 3'000U));
  ASSERT_TRUE(WaitForCreation("20260707_1200"));

  SetClock(kNoon - kHour + 60);
  ASSERT_TRUE(WaitForCreation("20260707_1101"));
  SetClock(kNoon + 2 * kHour);
  ASSERT_TRUE(WaitForCreation("20260707_1400"));
  SetClock(kNoon - 32 * kDay);
  ASSERT_TRUE(WaitForCreation("20260605_1200"));
  auto const times = Finish(false);

  EXPECT_EQ(Created(times, "20260707_120") + Created(times, "20260707_110") + Created(times, "20260707_140") +
                Created(times, "20260605_120"),
            times.size());
  EXPECT_EQ(Named(times, "20260707_110"), 0U) << "names continue while the clock is less than an hour back";
  EXPECT_EQ(Named(times, "20260707_140"), Created(times, "20260707_140"));
  EXPECT_EQ(Named(times, "20260605_120"), Created(times, "20260605_120"))
      << "further back they follow the clock again";
  EXPECT_GE(test::CountOf(texts, "Current date&time:2026-06-05 12:0"), 1U)
      << "the day line follows the clock";
}

TEST_F(ClockTest, ACallThatWaitsForRoomWhenTheClockIsSetBackWaitsTheStepLonger) {
  constexpr unsigned kRoom = 100;
  // They wait one after the other, so that one is waiting when the clock changes, even on a busy machine.
  constexpr unsigned kRefused = 3;
  constexpr std::time_t kStep = 3;
  auto const count = [this](checker::Outcome outcome) {
    std::size_t sum = 0;
    for (auto const& one : checker::ReadOutcomes(dir / "side")) sum += one.Count(outcome);
    return sum;
  };
  {
    SetClock(std::time(nullptr));
    test::Descriptor const out(open((dir / "out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    Start(kRoom + kRefused, {"stalled=1", "queue=" + std::to_string(kRoom)}, out);
  }
  ASSERT_TRUE(test::WaitUntil(
      [&] { return count(checker::Outcome::kAccepted) == kRoom && count(checker::Outcome::kBegun) == 1; }));

  usleep(100'000);  // so that the call is waiting
  SetClock(std::time(nullptr) - kStep);
  EXPECT_EQ(host->Wait(), 0);

  std::string const printed = test::ReadFile(dir / "out");
  std::size_t const figure = printed.find("longest_us ");
  ASSERT_NE(figure, std::string::npos) << printed;
  long long const longest_ms = std::stoll(printed.substr(figure + 11)) / 1'000;
  EXPECT_GE(longest_ms, 1'000 * kStep);
  EXPECT_LT(longest_ms, 20'000);
  checker::Expectation expected;
  expected.directory = dir / "logs";
  expected.prefix = "t_";
  expected.max_bytes = 20'000;
  expected.other_texts = {"stalled"};
  Report const report = Check(expected, checker::ReadOutcomes(dir / "side"));
  EXPECT_TRUE(report.CleanBut({Kind::kWrongLine})) << report.Text();
  EXPECT_EQ(report.Count(Kind::kWrongLine), 2U) << "of the value that stalled it";
  EXPECT_EQ(report.found, kRoom);
  EXPECT_EQ(report.refused, kRefused);
  ExpectCounted(ReadCounts(dir / "side"), report, 1);  // that value
  Figure({{"refused", static_cast<long long>(report.refused)},
          {"records_verified", static_cast<long long>(report.found)},
          {"longest_refusal_ms", longest_ms}});
}

// Four threads trace as fast as they can when the clock is set back.
class SetBackUnderLoadTest : public ClockTest {
 protected:
  static constexpr unsigned kFileBytes = 1'000'000;
  static constexpr unsigned kRecords = 30'000;  // of each thread: together fewer than the queue holds

  void StartLoad(unsigned keep) {
    SetClock(kNoon);
    started_ = std::chrono::steady_clock::now();
    Start(kRecords, {"producers=4", "pause_us=0", "max_bytes=" + std::to_string(kFileBytes),
                     "keep=" + std::to_string(keep)});
    ASSERT_TRUE(WaitForCreation("20260707_1200"));
  }
  std::size_t Files() const {
    return test::FilesOf(dir / "logs", "t_", ".log").size() + test::FilesOf(dir / "logs", "t_", ".gz").size();
  }
  // What the host's clock shows.
  std::time_t Clock() const {
    auto const passed = std::chrono::steady_clock::now() - started_;
    return kNoon + std::chrono::duration_cast<std::chrono::seconds>(passed).count();
  }
  void WaitForFiles() const {
    ASSERT_TRUE(test::WaitUntil([this] { return Files() >= 3; }));
  }

  std::chrono::steady_clock::time_point started_;
  static constexpr std::time_t kNoon = kGap + 100 * kDay + 9 * kHour;  // 2026-07-07 12:00:00 in Berlin
};

TEST_F(SetBackUnderLoadTest, TenSecondsBackEveryRecordIsThereInItsOrder) {
  StartLoad(1'000);
  WaitForFiles();
  SetClock(kNoon - 10);
  auto const times = Finish(true, kFileBytes);
  EXPECT_GE(Created(times, "20260707_1159"), 2U);
}

TEST_F(SetBackUnderLoadTest, AnHourBackEveryRecordIsThereInItsOrder) {
  StartLoad(1'000);
  WaitForFiles();
  SetClock(Clock() - kHour + 5);  // an hour, less what the names may be ahead of the clock
  auto const times = Finish(true, kFileBytes);
  EXPECT_GE(Created(times, "20260707_1100"), 2U);
}

TEST_F(SetBackUnderLoadTest, AYearBackEveryRecordIsThereAndNamesStartOver) {
  StartLoad(1'000);
  WaitForFiles();
  SetClock(kNoon - 365 * kDay);
  auto const times = Finish(false, kFileBytes);
  EXPECT_GE(Created(times, "20250707_1200"), 2U);
  EXPECT_EQ(Created(times, "20250707_1200"), Named(times, "20250707_1200"));
}

TEST_F(SetBackUnderLoadTest, ThePruningStillDeletesTheOldestByCreation) {
  StartLoad(3);
  WaitForFiles();
  SetClock(kNoon - 10);
  EXPECT_EQ(host->Wait(), 0);

  checker::Expectation expected;
  expected.directory = dir / "logs";
  expected.prefix = "t_";
  Report const report = Check(expected, checker::ReadOutcomes(dir / "side"));

  EXPECT_TRUE(report.CleanBut({Kind::kMissing})) << report.Text();
  ExpectCounts(ReadCounts(dir / "side"), report.accepted, report.refused, report.found + report.missing);
  EXPECT_EQ(report.archives, 3U);
  // The first file stays, and the newest do: each thread misses one stretch at most, and the record that was
  // written last, which is some thread's last record, is in one of the two files with the greatest names (the
  // last file may hold none). A thread that was faster than the others may have ended in a file that is
  // deleted.
  EXPECT_GE(report.Count(Kind::kMissing), 1U);
  for (unsigned thread = 0; thread < 4; ++thread)
    EXPECT_LE(test::CountOf(report.Text(), "R0 P" + std::to_string(thread) + " S"), 1U) << report.Text();
  auto const files = checker::ReadFamilyFiles(dir / "logs", "t_");
  ASSERT_GE(files.size(), 3U);
  EXPECT_EQ(files.front().name.substr(0, 15), "t_20260707_1200");
  EXPECT_EQ(CreationOf(files.front().text).substr(0, 13), "20260707_1200");
  std::string const newest = files[files.size() - 2].text + files.back().text;
  EXPECT_NE(newest.find(" S" + std::to_string(kRecords - 1) + " "), std::string::npos) << report.Text();
}

using ZoneTest = Scenario;

TEST_F(ZoneTest, AZoneThatTheHostChangesShowsInNamesTrailersAndStamps) {
  char const* const before = std::getenv("TZ");
  std::string const saved = before == nullptr ? "" : before;
  setenv("TZ", "UTC0", 1);
  tzset();
  Family family(dir.Path());
  family.setup.max_bytes = 5'000;
  family.expected.max_bytes = 5'000;
  family.expected.in_order = false;  // names go back
  family.Start();
  ASSERT_TRUE(family.WaitForFile());
  std::string const first = family.OpenLog();
  ASSERT_TRUE(family.Trace());
  ASSERT_TRUE(test::WaitUntil([&] { return test::CountOf(test::ReadFile(first), " m I: ") == 1; }));

  setenv("TZ", "VELT+23", 1);  // as many hours behind
  tzset();
  test::WaitForNextSecond();
  std::time_t const changed = std::time(nullptr);
  EXPECT_TRUE(family.Fill());
  EXPECT_TRUE(family.Trace(3));
  Report const report = family.Finish();
  std::time_t const ended = std::time(nullptr);
  if (before == nullptr) {
    unsetenv("TZ");
  } else {
    setenv("TZ", saved.c_str(), 1);
  }
  tzset();

  EXPECT_TRUE(report.Clean()) << report.Text();
  auto const files = checker::ReadFamilyFiles(family.setup.directory, "t_");
  ASSERT_EQ(files.size(), 2U);
  std::set<std::string> days;  // the second file's day, by the clock of that zone
  for (std::time_t const at : {changed - 23 * kHour, ended - 23 * kHour}) {
    std::tm there{};
    gmtime_r(&at, &there);
    char text[16];
    std::strftime(text, sizeof text, "%Y%m%d_%H", &there);
    days.insert(text);
  }
  EXPECT_EQ(days.count(files[0].name.substr(2, 11)), 1U) << files[0].name;
  EXPECT_EQ(test::CountOf(files[0].text, "File close at VELT "), 1U);
  EXPECT_EQ(test::CountOf(files[1].text, "File close at VELT "), 1U) << "the zone at the time of closing";
  std::string const month_and_day = files[0].name.substr(6, 2) + "-" + files[0].name.substr(8, 2) + " ";
  EXPECT_GE(test::CountOf(files[0].text, "\n" + month_and_day), 3U) << "stamps of the second file";
  family.Print(report);
}

}  // namespace
}  // namespace velt::faults
