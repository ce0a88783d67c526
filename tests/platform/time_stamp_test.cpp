#include "platform/time_stamp.h"

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <ace/ACE.h>

#include <gtest/gtest.h>

namespace velt::test {
namespace {

constexpr char const* kUtc = "UTC0";
constexpr char const* kBerlin = "CET-1CEST,M3.5.0,M10.5.0/3";    // summer time from March to October
constexpr char const* kSydney = "AEST-10AEDT,M10.1.0,M4.1.0/3";  // summer time from October to April
constexpr char const* kKathmandu = "<+0545>-5:45";

void SetZone(char const* zone) {
  setenv("TZ", zone, 1);
  tzset();
}

std::string Stamp(std::time_t second, int microsecond) {
  char text[kTimeStampCapacity];
  std::memset(text, '#', sizeof text);
  WriteTimeStamp(ACE_Time_Value(second, microsecond), text);
  EXPECT_EQ(text[std::strlen(text) + 1], '#') << "nothing is written behind the end";
  return text;
}

std::string AceStamp(std::time_t second, int microsecond) {
  char text[kTimeStampCapacity];
  ACE::timestamp(ACE_Time_Value(second, microsecond), text, sizeof text);
  return text;
}

// By the clock that stamps are taken from; time() may be a tick behind it.
std::time_t CurrentSecond() {
  return std::chrono::system_clock::to_time_t(
      std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()));
}

struct Instant {
  std::time_t second;
  int microsecond;
  char const* text;
};

void ExpectStamps(char const* zone, std::vector<Instant> const& instants) {
  SetZone(zone);
  for (auto const& instant : instants) {
    EXPECT_EQ(Stamp(instant.second, instant.microsecond), instant.text) << zone;
  }
}

TEST(TimeStampTest, BearsYearToMicrosecond) {
  ExpectStamps(kUtc, {{1700000000, 123456, "2023-11-14 22:13:20.123456"}});
}

TEST(TimeStampTest, TheDirectionOfTimeDoesNotMatter) {
  ExpectStamps(kUtc, {{1700000001, 5, "2023-11-14 22:13:21.000005"},
                      {1700000000, 999999, "2023-11-14 22:13:20.999999"},
                      {1700000001, 4, "2023-11-14 22:13:21.000004"}});
}

TEST(TimeStampTest, MicrosecondsHaveSixDigitsWithinOneSecond) {
  ExpectStamps(kUtc, {{1700000000, 0, "2023-11-14 22:13:20.000000"},
                      {1700000000, 1, "2023-11-14 22:13:20.000001"},
                      {1700000000, 9, "2023-11-14 22:13:20.000009"},
                      {1700000000, 10, "2023-11-14 22:13:20.000010"},
                      {1700000000, 99, "2023-11-14 22:13:20.000099"},
                      {1700000000, 100, "2023-11-14 22:13:20.000100"},
                      {1700000000, 1000, "2023-11-14 22:13:20.001000"},
                      {1700000000, 65536, "2023-11-14 22:13:20.065536"},
                      {1700000000, 100000, "2023-11-14 22:13:20.100000"},
                      {1700000000, 999999, "2023-11-14 22:13:20.999999"},
                      {1700000000, 0, "2023-11-14 22:13:20.000000"}});
}

TEST(TimeStampTest, TheYearEndsAtItsLastMicrosecond) {
  ExpectStamps(kUtc, {{1704067199, 999999, "2023-12-31 23:59:59.999999"},
                      {1704067200, 0, "2024-01-01 00:00:00.000000"},
                      {946684799, 999999, "1999-12-31 23:59:59.999999"},
                      {946684800, 0, "2000-01-01 00:00:00.000000"}});
  ExpectStamps(kSydney, {{1704027599, 999999, "2023-12-31 23:59:59.999999"},
                         {1704027600, 0, "2024-01-01 00:00:00.000000"}});
}

TEST(TimeStampTest, LeapDaysAreKept) {
  ExpectStamps(kUtc, {{1709164799, 1, "2024-02-28 23:59:59.000001"},
                      {1709164800, 2, "2024-02-29 00:00:00.000002"},
                      {1709251199, 3, "2024-02-29 23:59:59.000003"},
                      {1709251200, 4, "2024-03-01 00:00:00.000004"},
                      {1677628800, 5, "2023-03-01 00:00:00.000005"}});
}

TEST(TimeStampTest, TheHourThatIsSkippedInSpringIsSkipped) {
  ExpectStamps(kBerlin, {{1711846799, 999999, "2024-03-31 01:59:59.999999"},
                         {1711846800, 0, "2024-03-31 03:00:00.000000"}});
}

TEST(TimeStampTest, TheHourThatIsRepeatedInAutumnIsRepeated) {
  ExpectStamps(kBerlin, {{1729990799, 999999, "2024-10-27 02:59:59.999999"},
                         {1729990800, 0, "2024-10-27 02:00:00.000000"},
                         {1729994399, 1, "2024-10-27 02:59:59.000001"},
                         {1729994400, 2, "2024-10-27 03:00:00.000002"}});
}

TEST(TimeStampTest, ZonesWithOddMinutesAreLocalTime) {
  ExpectStamps(kKathmandu, {{1700000000, 123456, "2023-11-15 03:58:20.123456"}});
}

TEST(TimeStampTest, InstantsBeyond32BitsAreWritten) {
  ExpectStamps(kUtc, {{2147483647, 999999, "2038-01-19 03:14:07.999999"},
                      {2147483648, 0, "2038-01-19 03:14:08.000000"},
                      {4102444800, 7, "2100-01-01 00:00:00.000007"},
                      {253402300799, 999999, "9999-12-31 23:59:59.999999"}});
}

TEST(TimeStampTest, AYearOfFiveDigitsMovesTheMicrosecondsAndLosesNone) {
  ExpectStamps(kUtc, {{253402300800, 7, "10000-01-01 00:00:00.000007"},
                      {253402300800, 999999, "10000-01-01 00:00:00.999999"},
                      {253402300800, 123456, "10000-01-01 00:00:00.123456"},
                      {253402300799, 1, "9999-12-31 23:59:59.000001"},
                      {9999999999999, 20, "318857-05-20 17:46:39.000020"}});
}

TEST(TimeStampTest, AYearOfNineDigitsFitsTheRoomOfAStampAndALongerOneIsCut) {
  SetZone(kUtc);
  std::vector<char> text(kTimeStampRoom, '#');  // on the heap: a sanitizer reports a write behind it

  WriteTimeStamp(ACE_Time_Value(31556889832780799, 5), text.data());
  EXPECT_STREQ(text.data(), "999999999-12-31 23:59:59.000005");

  WriteTimeStamp(ACE_Time_Value(31556889832780799 + 1, 5), text.data());
  EXPECT_STREQ(text.data(), "1000000000-01-01 00:00:00.00000");
}

TEST(TimeStampTest, TheLastSecondBefore1970IsNotTakenForAKnownOne) {
  std::string stamp;
  SetZone(kUtc);

  std::thread([&stamp] { stamp = Stamp(-1, 0); }).join();  // a thread that has stamped nothing yet

  EXPECT_EQ(stamp, "1969-12-31 23:59:59.000000");
}

TEST(TimeStampTest, TheFirstSecondOf1970IsAnInstantLikeAnyOther) {
  ExpectStamps(kUtc, {{0, 7, "1970-01-01 00:00:00.000007"},
                      {1, 0, "1970-01-01 00:00:01.000000"},
                      {0, 8, "1970-01-01 00:00:00.000008"}});
}

TEST(TimeStampTest, TheZeroInstantMeansNow) {
  SetZone(kUtc);
  std::time_t const before = CurrentSecond();

  std::string const text = Stamp(0, 0);

  std::tm parsed{};
  ASSERT_NE(strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &parsed), nullptr) << text;
  EXPECT_EQ(text.size(), 26U);
  EXPECT_GE(timegm(&parsed), before) << text;
  EXPECT_LE(timegm(&parsed), CurrentSecond()) << text;
  EXPECT_EQ(Stamp(0, 9), "1970-01-01 00:00:00.000009") << "the text of now is not kept under second 0";
}

// Stamps two instants of one second; the later stamp reuses the text that the first one left.
void ExpectAcesBytes(std::time_t second, int one, int other) {
  ASSERT_EQ(Stamp(second, one), AceStamp(second, one)) << second;
  ASSERT_EQ(Stamp(second, other), AceStamp(second, other)) << second;
}

TEST(TimeStampTest, EveryInstantHasTheBytesOfAce) {
  std::mt19937_64 random(20240305);  // NOLINT(cert-msc51-cpp): the same instants in every run
  std::uniform_int_distribution<std::time_t> seconds(1, 4102444800);
  std::uniform_int_distribution<int> microseconds(0, 999999);
  for (char const* const zone : {kUtc, kBerlin, kSydney, kKathmandu}) {
    SetZone(zone);
    for (int i = 0; i < 2000 && !HasFatalFailure(); ++i) {
      ExpectAcesBytes(seconds(random), microseconds(random), microseconds(random));
    }
  }
}

TEST(TimeStampTest, ThreadsDoNotSeeEachOthersSeconds) {
  SetZone(kUtc);
  Instant const instants[] = {{1700000000, 1, "2023-11-14 22:13:20.000001"},
                              {1704067200, 22, "2024-01-01 00:00:00.000022"},
                              {1709164800, 333, "2024-02-29 00:00:00.000333"},
                              {2147483648, 4444, "2038-01-19 03:14:08.004444"}};
  std::vector<int> wrong(4, 0);

  std::vector<std::thread> threads;
  threads.reserve(4);
  for (std::size_t i = 0; i < 4; ++i) {
    threads.emplace_back([&instants, &wrong, i] {
      for (int n = 0; n < 5000; ++n) {
        char text[kTimeStampCapacity];
        WriteTimeStamp(ACE_Time_Value(instants[i].second, instants[i].microsecond), text);
        if (std::strcmp(text, instants[i].text) != 0) ++wrong[i];
      }
    });
  }
  for (auto& thread : threads) thread.join();

  EXPECT_EQ(wrong, std::vector<int>(4, 0));
}

TEST(TimeStampTest, RoomForThirtyTwoBytesIsEnough) {
  SetZone(kUtc);
  ASSERT_EQ(kTimeStampRoom, 32U);
  std::vector<char> text(kTimeStampRoom, '#');  // on the heap: valgrind reports a write behind it

  WriteTimeStamp(ACE_Time_Value(1700000000, 123456), text.data());

  EXPECT_STREQ(text.data(), "2023-11-14 22:13:20.123456");
}

}  // namespace
}  // namespace velt::test
