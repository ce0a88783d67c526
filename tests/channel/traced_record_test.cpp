// The record that a trace call makes: its text, level, module, stamp, thread and value.
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "velt/channel.h"

#include "tests/channel/traced_channel.h"
#include "tests/support/channel.h"
#include "tests/support/files.h"

namespace velt::test {
namespace {

using ::testing::MatchesRegex;

// A value that cannot be copied.
class AsnWithoutCopy : public AsnType {
 public:
  AsnType* Clone() const override { throw std::runtime_error("no copy"); }
  void Print(std::ostream& out, int, int) const override { out << "never"; }
};

// A value whose copy is null.
class AsnOfNullCopy : public AsnType {
 public:
  AsnType* Clone() const override { return nullptr; }
  void Print(std::ostream& out, int, int) const override { out << "never"; }
};

// By the clock that stamps are taken from; time() may be a tick behind it.
std::string LocalSecond() {
  std::time_t const now = std::chrono::system_clock::to_time_t(
      std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()));
  std::tm local{};
  localtime_r(&now, &local);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
  return text;
}

// Looks at records in the ring, where they stay as they were made.
class TracedRecordTest : public TraceTest {
 protected:
  TracedRecordTest() {
    setenv("TZ", "UTC", 1);
    tzset();
    setup.ring = 100;
    channel = MakeChannel(setup);
  }

  std::unique_ptr<OutDataUnit> Made(std::string const& module, int level, std::string const& text,
                                    AsnType const* asn = nullptr) const {
    EXPECT_TRUE(channel->Trace(module, Level(level), text.c_str(), asn, false, false));
    auto rec = TakeFrom(RingOf(*channel));
    return rec == nullptr ? std::make_unique<OutDataUnit>() : std::move(rec);
  }
};

TEST_F(TracedRecordTest, TheTextIsModuleTagAndMessageBetweenSpaces) {
  EXPECT_STREQ(Made("Sched", 3, "message")->m_pText, " Sched I: message");
  EXPECT_STREQ(Made("Sched", 3, "")->m_pText, " Sched I: ");
  EXPECT_STREQ(Made("", 3, "message")->m_pText, "  I: message");
}

TEST_F(TracedRecordTest, FourLevelsHaveATag) {
  EXPECT_STREQ(Made("m", 0, "x")->m_pText, " m A: x");
  EXPECT_STREQ(Made("m", 1, "x")->m_pText, " m E: x");
  EXPECT_STREQ(Made("m", 2, "x")->m_pText, " m W: x");
  EXPECT_STREQ(Made("m", 3, "x")->m_pText, " m I: x");
  for (int const level : {4, 7, 31, 32, 33, -1, INT_MAX, INT_MIN}) {
    EXPECT_STREQ(Made("m", level, "x")->m_pText, " m x") << level;
  }
}

TEST_F(TracedRecordTest, ALevelIsKeptBelowFourAndAtThirtyTwo) {
  std::pair<int, int> const kept[] = {
      {INT_MIN, INT_MIN}, {-5, -5}, {-1, -1},    {0, 0}, {1, 1}, {2, 2}, {3, 3}, {4, 3}, {7, 3}, {31, 3},
      {32, 32},           {33, 3},  {INT_MAX, 3}};

  for (auto const& [level, stored] : kept) EXPECT_EQ(Made("m", level, "x")->m_nLevel, stored) << level;
}

TEST_F(TracedRecordTest, AModuleOfOneSpaceIsFiledAsDefault) {
  auto const rec = Made(" ", 3, "x");

  EXPECT_EQ(rec->m_strModule, "default");
  EXPECT_STREQ(rec->m_pText, "   I: x");
}

TEST_F(TracedRecordTest, EveryOtherModuleIsFiledAsItIs) {
  EXPECT_EQ(Made("", 3, "x")->m_strModule, "");
  EXPECT_EQ(Made("  ", 3, "x")->m_strModule, "  ");
  EXPECT_EQ(Made("\t", 3, "x")->m_strModule, "\t");
  EXPECT_EQ(Made("debug", 3, "x")->m_strModule, "debug");
  EXPECT_STREQ(Made("  ", 3, "x")->m_pText, "    I: x");
}

TEST_F(TracedRecordTest, AModuleOfTenThousandCharactersStaysWhole) {
  std::string const module(10'000, 'm');

  auto const rec = Made(module, 1, "x");

  EXPECT_EQ(rec->m_strModule, module);
  EXPECT_EQ(rec->m_pText, " " + module + " E: x");
}

TEST_F(TracedRecordTest, AMessageIsCutAt2048Characters) {
  for (std::size_t const size : {1U, 2047U, 2048U, 2049U, 5000U, 10'000'000U}) {
    std::string const message(size, 'x');

    auto const rec = Made("m", 3, message);

    EXPECT_EQ(rec->m_pText, " m I: " + std::string(size < 2048 ? size : 2048, 'x')) << size;
  }
}

TEST_F(TracedRecordTest, TheCutTakesTheNewlineWithIt) {
  auto const rec = Made("m", 3, std::string(2048, 'x') + "\n");

  EXPECT_EQ(rec->m_pText, " m I: " + std::string(2048, 'x'));
}

TEST_F(TracedRecordTest, AMessageIsNeverReadAsAFormat) {
  EXPECT_STREQ(Made("%s", 3, "100%s %n %d")->m_pText, " %s I: 100%s %n %d");
}

TEST_F(TracedRecordTest, TheTimeStampIsTheLocalTimeWithMicroseconds) {
  std::string const before = LocalSecond();
  auto const rec = Made("m", 3, "x");
  std::string const after = LocalSecond();

  ASSERT_NE(rec->m_pTimeStamp, nullptr);
  std::string const stamp = rec->m_pTimeStamp;
  EXPECT_THAT(stamp, MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6}"));
  EXPECT_LE(before, stamp.substr(0, 19));
  EXPECT_LE(stamp.substr(0, 19), after);
}

TEST_F(TracedRecordTest, TheThreadIdIsTheTracingThreadsOwn) {
  std::int64_t other_id = 0;
  std::int64_t other_made = 0;
  std::thread([&] {
    other_id = gettid();
    other_made = Made("m", 3, "x")->m_nThreadId;
  }).join();

  EXPECT_EQ(Made("m", 3, "x")->m_nThreadId, gettid());
  EXPECT_EQ(other_made, other_id);
}

TEST_F(TracedRecordTest, TheValueIsACopyThatTheRecordOwns) {
  AsnText const value("value");

  auto rec = Made("m", 3, "x", &value);

  ASSERT_NE(rec->m_pAsn, nullptr);
  EXPECT_NE(rec->m_pAsn, &value);
  EXPECT_EQ(AsnText::Live(), 2);
  rec.reset();
  EXPECT_EQ(AsnText::Live(), 1);
}

TEST_F(TracedRecordTest, WithoutAValueThereIsNone) { EXPECT_EQ(Made("m", 3, "x")->m_pAsn, nullptr); }

TEST_F(TracedRecordTest, ANullCopyIsNoValue) {
  AsnOfNullCopy const value;

  auto const rec = Made("m", 3, "x", &value);

  EXPECT_STREQ(rec->m_pText, " m I: x");
  EXPECT_EQ(rec->m_pAsn, nullptr);
}

TEST_F(TracedRecordTest, ACopyThatThrowsReachesTheCallerAndQueuesNothing) {
  AsnWithoutCopy const value;

  EXPECT_THROW(channel->Trace("m", Level(3), "x", &value, false, false), std::runtime_error);
  EXPECT_THROW(channel->Trace("m", Level(3), "x", &value, false, true), std::runtime_error);

  EXPECT_TRUE(RingOf(*channel).is_empty());
  EXPECT_EQ(CountOf(LogAfterStop(), " m I: x"), 0U);
}

TEST_F(TracedRecordTest, AFilteredRecordHasNeitherFlag) {
  auto const rec = Made("m", 3, "x");

  EXPECT_FALSE(rec->m_bPrint);
  EXPECT_FALSE(rec->m_bLog);
}

}  // namespace
}  // namespace velt::test
