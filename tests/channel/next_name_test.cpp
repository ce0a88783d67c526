// The names of a running channel's files, rule by rule.
#include "debug/channel/next_name.h"

#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "debug/channel/current_file.h"
#include "debug/channel/file_name_time.h"
#include "tests/support/channel.h"
#include "tests/support/files.h"

namespace velt::test {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::int64_t kNow = 1'790'000'000;  // 2026-09-21 14:13:20
constexpr std::int64_t kHour = 3'600;

class NextNameTest : public ::testing::Test {
 protected:
  NextNameTest() : channel_(MakeIdleChannel(setup_)), state_(ChannelState::Of(*channel_)) {}

  void Add(std::int64_t seconds, std::string const& suffix = ".log") const {
    WriteFile(dir_ / ("t_" + NameTimeOf(seconds) + suffix), "x");
  }
  std::int64_t Next(std::int64_t now = kNow) { return NextNameTime(state_, now); }
  // Takes the next name, as if a file were opened under it.
  std::int64_t Take(std::int64_t now = kNow) {
    std::int64_t const name = Next(now);
    state_.m_names.last_name = name;
    return name;
  }

  ScratchDir const dir_;
  ChannelSetup const setup_{dir_.Path()};
  std::unique_ptr<VeltDebugInfo> channel_;
  ChannelState& state_;
};

// --- which second ---

TEST_F(NextNameTest, TheFirstNameIsTheClocks) { EXPECT_EQ(Next(), kNow); }

TEST_F(NextNameTest, ASecondNameOfOneSecondIsTheNextSecond) {
  EXPECT_EQ(Take(), kNow);
  EXPECT_EQ(Take(), kNow + 1);
  EXPECT_EQ(Take(), kNow + 2);
}

TEST_F(NextNameTest, ALaterClockIsFollowedAgain) {
  Take();
  Take();
  EXPECT_EQ(Next(kNow + 5), kNow + 5);
}

TEST_F(NextNameTest, TheNewestNameInTheDirectoryIsFollowed) {
  Add(kNow - 10);
  Add(kNow + 7);
  Add(kNow + 3);
  EXPECT_EQ(Next(), kNow + 8);
}

TEST_F(NextNameTest, AnArchiveIsFollowedAsAPlainFileIs) {
  Add(kNow + 20, ".log.gz");
  EXPECT_EQ(Next(), kNow + 21);
}

TEST_F(NextNameTest, ANameOneHourAheadIsFollowedAndOneFurtherAheadIsNot) {
  Add(kNow + kHour + 1);
  EXPECT_EQ(Next(), kNow);
  Add(kNow + kHour);
  EXPECT_EQ(Next(), kNow + kHour + 1);
}

TEST_F(NextNameTest, NamesOfOtherFamiliesAndOtherTextsAreNotFollowed) {
  WriteFile(dir_ / ("t_sub_" + NameTimeOf(kNow + 50) + ".log"), "x");
  WriteFile(dir_ / ("u_" + NameTimeOf(kNow + 50) + ".log"), "x");
  WriteFile(dir_ / "t_20269999_999999.log", "x");
  WriteFile(dir_ / "t_anything_here..log", "x");
  WriteFile(dir_ / ("t_" + NameTimeOf(kNow + 50) + ".tar"), "x");
  EXPECT_EQ(Next(), kNow);
}

TEST_F(NextNameTest, AClockThatIsSetBackAnHourLeavesNamesRising) {
  EXPECT_EQ(Take(), kNow);
  EXPECT_EQ(Take(kNow - kHour), kNow + 1);
  EXPECT_EQ(Take(kNow - kHour), kNow + 2);
}

TEST_F(NextNameTest, AClockThatIsSetBackFurtherStartsOver) {
  EXPECT_EQ(Take(), kNow);
  EXPECT_EQ(Take(kNow - kHour - 1), kNow - kHour - 1);
  EXPECT_EQ(Take(kNow - kHour - 1), kNow - kHour);
}

TEST_F(NextNameTest, AClockThatIsSetBackAYearStartsOverAmongOldFiles) {
  constexpr std::int64_t kYear = std::int64_t{365} * 86'400;
  Add(kNow);
  Add(kNow - kYear + 3, ".log.gz");
  Take();
  EXPECT_EQ(Next(kNow - kYear), kNow - kYear + 4);
}

TEST_F(NextNameTest, OnlyMoreThanAnHourIsTooFarAhead) {
  EXPECT_FALSE(IsTooFarAhead(kNow, kNow));
  EXPECT_FALSE(IsTooFarAhead(kNow + kHour, kNow));
  EXPECT_TRUE(IsTooFarAhead(kNow + kHour + 1, kNow));
  EXPECT_FALSE(IsTooFarAhead(kNow - 10 * kHour, kNow));
}

// --- which file ---

std::int64_t ClockSeconds() {
  std::time_t const now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  return SecondsOf(local);
}

class NextFileTest : public NextNameTest {
 protected:
  std::string Opened() {
    EXPECT_TRUE(OpenNextFile(state_));
    std::string name = fs::path(state_.m_strCurFileName).filename();
    CloseFile(state_);
    return name;
  }
  static std::int64_t SecondsIn(std::string const& name) {
    std::int64_t seconds = 0;
    EXPECT_TRUE(SecondsOfNameTime(name.substr(2, 15), seconds)) << name;
    return seconds;
  }
};

TEST_F(NextFileTest, FilesOfOneSecondGetNamesThatRiseAndNoneIsTruncated) {
  std::vector<std::string> names;
  for (int i = 0; i < 20; ++i) {
    ASSERT_TRUE(OpenNextFile(state_));
    names.push_back(fs::path(state_.m_strCurFileName).filename());
    ASSERT_TRUE(channel_->WriteFile(("number " + std::to_string(i) + "\n").c_str()));
    CloseFile(state_);
  }

  for (int i = 0; i < 20; ++i) {
    auto const index = static_cast<std::size_t>(i);
    if (i > 0) {
      EXPECT_LT(names[index - 1], names[index]);
    }
    EXPECT_EQ(CountOf(ReadFile(dir_ / names[index]), "number " + std::to_string(i) + "\n"), 1U);
  }
  EXPECT_EQ(FilesOf(dir_.Path(), "t_", ".log").size(), 20U);
}

TEST_F(NextFileTest, TheCreationLineHasTheTimeOfTheClock) {
  std::int64_t const before = ClockSeconds();
  std::string name;
  for (int i = 0; i < 100; ++i) name = Opened();
  std::int64_t const after = ClockSeconds();

  std::string const text = ReadFile(dir_ / name);
  std::size_t const at = text.find("File create at time ");
  ASSERT_NE(at, std::string::npos);
  bool found = false;
  for (std::int64_t second = before; second <= after; ++second) {
    std::string const t = NameTimeOf(second);
    std::string const clock = t.substr(0, 4) + "-" + t.substr(4, 2) + "-" + t.substr(6, 2) + " " +
                              t.substr(9, 2) + ":" + t.substr(11, 2) + ":" + t.substr(13, 2) + ".";
    found = found || text.compare(at + 20, clock.size(), clock) == 0;
  }
  EXPECT_TRUE(found) << text;
  EXPECT_GE(SecondsIn(name), before + 99);
}

// Names that are taken, by whatever is there. They are more than an hour ahead: nearer ones would count as
// the newest of the directory, which the next name follows.
class TakenNameTest : public NextFileTest {
 protected:
  // Puts `make(path)` under three coming names; expects the fourth to be taken.
  template <typename Make>
  void ExpectPassedOver(Make const& make) {
    std::int64_t const first = ClockSeconds() + kHour + 30;
    state_.m_names.last_name = first - 1;
    for (int i = 0; i < 3; ++i) make(dir_ / ("t_" + NameTimeOf(first + i) + ".log"));

    std::string const name = Opened();

    EXPECT_EQ(name, "t_" + NameTimeOf(first + 3) + ".log");
    EXPECT_TRUE(fs::is_regular_file(dir_ / name));
    EXPECT_EQ(CountOf(ReadFile(dir_ / name), "File create at "), 1U);
  }
};

TEST_F(TakenNameTest, PlainFilesArePassedOverAndKeepTheirText) {
  std::string last;
  ExpectPassedOver([&](std::string const& path) { WriteFile(last = path, "kept"); });
  EXPECT_EQ(ReadFile(last), "kept");
}

TEST_F(TakenNameTest, ArchivesArePassedOver) {
  ExpectPassedOver([](std::string const& path) { WriteFile(path + ".gz", "kept"); });
}

TEST_F(TakenNameTest, DirectoriesArePassedOver) {
  ExpectPassedOver([](std::string const& path) { fs::create_directory(path); });
}

TEST_F(TakenNameTest, LinksToNothingArePassedOverAndMakeNothing) {
  ExpectPassedOver([this](std::string const& path) { fs::create_symlink(dir_ / "target", path); });
  EXPECT_FALSE(Exists(dir_ / "target"));
}

TEST_F(TakenNameTest, PipesArePassedOverWithoutWaitingForAReader) {
  ExpectPassedOver([](std::string const& path) { ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); });
}

// --- more than an hour ahead ---

TEST_F(NextFileTest, ANameUpToAnHourAheadIsOpenedAtOnce) {
  state_.m_names.last_name = ClockSeconds() + kHour - 10;
  state_.m_names.last_clock = ClockSeconds();
  auto const begin = Clock::now();

  for (int i = 0; i < 5; ++i) Opened();

  EXPECT_LT(Clock::now() - begin, std::chrono::milliseconds(900));
}

TEST_F(NextFileTest, ANameFurtherAheadWaitsForTheNextSecondAndNoLonger) {
  std::int64_t const now = ClockSeconds();
  state_.m_names.last_name = now + 2 * kHour;
  state_.m_names.last_clock = now;

  // Not std::time, which is a few milliseconds late.
  auto const second = [] {
    return std::chrono::system_clock::now().time_since_epoch() / std::chrono::seconds(1);
  };
  auto const before = second();
  auto const begin = Clock::now();
  std::string const name = Opened();

  EXPECT_GT(second(), before);
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(3)) << "one second, and one for a busy machine";
  EXPECT_EQ(name, "t_" + NameTimeOf(now + 2 * kHour + 1) + ".log") << "names rise even so";
}

}  // namespace
}  // namespace velt::test
