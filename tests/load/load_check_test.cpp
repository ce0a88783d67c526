#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/load/family_check.h"
#include "tests/load/pacer.h"
#include "tests/load/plan.h"
#include "tests/load/samples.h"
#include "tests/support/files.h"

namespace velt::load {
namespace {

constexpr unsigned kRecords = 40'000;  // so that every kind of step is among them
constexpr char const* kName = "load_s1_20261121_140720.log";

std::string Line(char tag, std::string const& message) {
  return std::string("11-21 14:07:20.298572.T5823 load ") + tag + ": " + message + "\n";
}

// Steps of family 1, as its only file holds them.
class LoadCheckTest : public ::testing::Test {
 protected:
  // The next step of `kind` of `producer`, cut or not, from `index` on.
  static unsigned Next(unsigned producer, Kind kind, unsigned index, bool cut = false) {
    for (;; ++index) {
      Step const step = StepOf(producer, index);
      if (step.family == 1 && step.kind == kind && (step.length > LimitOf(step.call)) == cut) return index;
    }
  }
  static std::string Ordinary(unsigned producer, unsigned index) {
    Step const step = StepOf(producer, index);
    return Line('E', MessageOf({kOrdinaryRun, producer, index}, step.length).substr(0, LimitOf(step.call)));
  }
  static std::string Alarm(unsigned producer, unsigned index, unsigned in_ring) {
    return Line('A', MessageOf({kFirstAlarmRun + in_ring, producer, index}, StepOf(producer, index).length));
  }
  static std::string Filtered(unsigned number) { return Line('I', MessageOf({kFilteredRun, 1, number}, 64)); }

  void Check(std::string const& records, unsigned in_ring = 0, unsigned left = 0) {
    test::WriteFile(scratch_ / kName,
                    "\xEF\xBB\xBF"
                    "File create at time 2026-11-21 14:07:20. Current ospid is 4711\n"
                    "loadThis is the first log file\nThread handle output string is 0xf05a66c0\n" +
                        records +
                        "thread handle output string exit\n2026-11-21 15:57:41.845273 about to clear " +
                        "m_DiscardQueue(" + std::to_string(left) +
                        ")\n2026-11-21 15:57:41.845294 about to clear m_OutputQueue(0)\n"
                        "2026-11-21 15:57:41.845296 after m_OutputQueue cleared\n"
                        "File close at UTC 2026-11-21 15:57:41\n");
    std::filesystem::permissions(scratch_ / kName, static_cast<std::filesystem::perms>(0640));
    FamilyCheck check({1, scratch_.Path(), {kName}, 1'000'000, kRecords, in_ring}, found_);
    check.Run();
    findings_ = check.Found();
    evicted_ = check.Evicted();
  }
  std::string Text() const { return findings_.first.empty() ? "" : findings_.first.front(); }

  test::ScratchDir scratch_;
  FoundMap found_ = FoundMap(kProducers, std::vector<unsigned char>(kRecords));
  Findings findings_;
  std::size_t evicted_ = 0;
  unsigned first_ = Next(0, Kind::kOrdinary, 0);
  unsigned second_ = Next(0, Kind::kOrdinary, first_ + 1);
  unsigned alarm_ = Next(1, Kind::kAlarm, 0);
};

TEST_F(LoadCheckTest, WhatWasTracedIsFoundAndNothingIsWrong) {
  unsigned const cut = Next(2, Kind::kOrdinary, 0, true);

  Check(Ordinary(0, first_) + Ordinary(2, cut) + Ordinary(0, second_) + Filtered(0) + Filtered(1) +
            Alarm(1, alarm_, 2),
        3, 1);

  EXPECT_EQ(findings_.Sum(), 0U) << Text();
  EXPECT_EQ(found_[0][first_] + found_[0][second_] + found_[1][alarm_] + found_[2][cut], 4);
  EXPECT_EQ(std::count(found_[0].begin(), found_[0].end(), 1), 2);
}

TEST_F(LoadCheckTest, ARecordTwiceIsADuplicate) {
  Check(Ordinary(0, first_) + Ordinary(0, second_) + Ordinary(0, first_));

  EXPECT_EQ(findings_.duplicated, 1U);
}

TEST_F(LoadCheckTest, AnEarlierRecordOfTheSameThreadIsOutOfOrder) {
  Check(Ordinary(0, second_) + Ordinary(0, first_));

  EXPECT_EQ(findings_.out_of_order, 1U);
}

TEST_F(LoadCheckTest, ARecordOfAnotherFamilyIsMisplaced) {
  unsigned foreign = first_ + 1;
  while (StepOf(0, foreign).kind != Kind::kOrdinary || StepOf(0, foreign).length > 2'000) ++foreign;
  ASSERT_NE(StepOf(0, foreign).family, 1U);

  Check(Ordinary(0, foreign));

  EXPECT_EQ(findings_.misplaced, 1U);
  EXPECT_EQ(found_[0][foreign], 0);
}

TEST_F(LoadCheckTest, ARecordCutOneCharacterEarlyIsWrong) {
  std::string line = Ordinary(2, Next(2, Kind::kOrdinary, 0, true));
  line.erase(line.size() - 2, 1);

  Check(line);

  EXPECT_EQ(findings_.wrong, 1U);
}

TEST_F(LoadCheckTest, AChangedLetterIsWrong) {
  std::string line = Ordinary(0, first_);
  line[line.size() - 14] ^= 1;

  Check(line);

  EXPECT_EQ(findings_.wrong, 1U);
}

TEST_F(LoadCheckTest, ARecordOfAnotherLevelIsWrong) {
  std::string line = Ordinary(0, first_);
  line[line.find(" E: ") + 1] = 'W';

  Check(line);

  EXPECT_EQ(findings_.wrong, 1U);
}

TEST_F(LoadCheckTest, RingRecordsBeforeAnOrdinaryRecordAreMisplaced) {
  Check(Filtered(0) + Ordinary(0, first_) + Alarm(1, alarm_, 1), 1);

  EXPECT_EQ(findings_.misplaced, 1U);
}

TEST_F(LoadCheckTest, ARingRecordBehindTheAlarmThatShouldHaveBroughtItIsNotTakenForIt) {
  Check(Alarm(1, alarm_, 1) + Filtered(0), 1);

  EXPECT_EQ(findings_.lost, 1U);
  EXPECT_GE(findings_.misplaced, 1U);
}

TEST_F(LoadCheckTest, RingRecordsMayBeMissingWhenTheRingWasFullOfNewerOnes) {
  std::string records;
  for (unsigned n = 2; n < kRingCapacity + 2; ++n) records += Filtered(n);

  Check(records + Alarm(1, alarm_, kRingCapacity + 2), kRingCapacity + 2);

  EXPECT_EQ(findings_.Sum(), 0U) << Text();
  EXPECT_EQ(evicted_, 2U);
}

TEST_F(LoadCheckTest, ARingRecordThatHadRoomAndIsMissingIsLost) {
  Check(Filtered(1) + Alarm(1, alarm_, 2), 2);

  EXPECT_EQ(findings_.lost, 1U);
}

TEST_F(LoadCheckTest, MoreRingRecordsThanTheRingHoldsAreMisplaced) {
  std::string records;
  for (unsigned n = 0; n <= kRingCapacity; ++n) records += Filtered(n);

  Check(records + Alarm(1, alarm_, kRingCapacity + 1), kRingCapacity + 1);

  EXPECT_EQ(findings_.misplaced, 1U);
}

TEST_F(LoadCheckTest, AnotherNumberOfRecordsLeftInTheRingIsWrong) {
  Check("", 2, 1);

  EXPECT_EQ(findings_.wrong, 1U);
}

TEST(LoadPacerTest, AFileCreatedUnderANameForTheSecondTimeIsASharedName) {
  test::ScratchDir const scratch;
  Pacer pacer(scratch.Path(), 1'000, 100);

  for (auto const* const name :
       {"load_20261121_140720.log", "load_20261121_140722.log", "load_20261121_140722.log"}) {
    std::filesystem::remove(scratch / name);
    std::ofstream(scratch / name) << "x";
  }
  pacer.Look();

  EXPECT_EQ(pacer.Opened(0).size(), 3U);
  EXPECT_EQ(pacer.Rotations(), 2U);
  EXPECT_EQ(pacer.SharedNames(), 1U);
  EXPECT_EQ(pacer.LeastSecondsBetweenFiles(), 0);
  EXPECT_FALSE(pacer.AllOpened());
}

TEST(LoadSamplesTest, FlatMeansThatNothingGoesFarBeyondTheFirstFifth) {
  std::vector<Sample> samples(10);
  for (auto& sample : samples) sample.rss_kb = 1'000;
  samples[1].rss_kb = 1'200;
  samples[7].rss_kb = 1'300;
  samples[8].rss_kb = 900;

  Range const range = RangeOf(samples, &Sample::rss_kb);

  EXPECT_EQ(range.least, 900);
  EXPECT_EQ(range.most, 1'300);
  EXPECT_EQ(range.most_at_first, 1'200);
  EXPECT_TRUE(range.Within(100));
  EXPECT_FALSE(range.Within(99));
}

}  // namespace
}  // namespace velt::load
