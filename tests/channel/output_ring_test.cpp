// The ring of filtered records: what of it is written, and when.
#include <gtest/gtest.h>

#include <string>

#include <ace/Message_Block.h>

#include "tests/support/output.h"

namespace velt::test {
namespace {

class RingTest : public OutputTest {
 protected:
  RingTest() { setup.ring = 3; }

  void Filter(std::string const& text, int level = 3) const {
    OutDataUnit* rec = NewRecord(text, level, false, false);
    EXPECT_TRUE(channel->TraceInner(rec));
  }
};

TEST_F(RingTest, TheNewestFilteredRecordsComeBeforeALevelZeroRecord) {
  CoutToText out;
  Open();
  for (char const* const text : {" f1", " f2", " f3", " f4", " f5"}) Filter(text);

  Output(*channel, NewRecord(" severe", 0));

  EXPECT_EQ(Body(),
            "11-15 08:52:13.123456.T4711 f3\n"
            "11-15 08:52:13.123456.T4711 f4\n"
            "11-15 08:52:13.123456.T4711 f5\n"
            "11-15 08:52:13.123456.T4711 severe\n");
  EXPECT_EQ(out.Text(),
            "11-15 08:52:13.123456.T4711 f3\n"
            "11-15 08:52:13.123456.T4711 f4\n"
            "11-15 08:52:13.123456.T4711 f5\n")
      << "ring records are printed and logged, the other one goes where its flags say";
}

TEST_F(RingTest, IsEmptyAfterItWasWritten) {
  CoutToText out;
  Open();
  Filter(" f1");
  Output(*channel, NewRecord(" severe", 0));

  Output(*channel, NewRecord(" again", 0));

  EXPECT_EQ(CountOf(Body(), " f1\n"), 1U);
  EXPECT_TRUE(RingOf(*channel).is_empty());
}

TEST_F(RingTest, OtherLevelsLeaveItAlone) {
  Open();
  Filter(" f1");

  for (int const level : {-1, 1, 2, 3, 32}) Output(*channel, NewRecord(" x", level));

  EXPECT_EQ(CountOf(Body(), " f1"), 0U);
  EXPECT_EQ(RingOf(*channel).message_count(), 1U);
}

TEST_F(RingTest, APrintOnlyLevelZeroRecordBringsItOut) {
  CoutToText out;
  Open();
  Filter(" f1");

  Output(*channel, NewRecord(" severe", 0, false, true));

  EXPECT_EQ(Body(), "11-15 08:52:13.123456.T4711 f1\n");
  EXPECT_EQ(out.Text(), "11-15 08:52:13.123456.T4711 f1\n11-15 08:52:13.123456.T4711 severe\n");
}

TEST_F(RingTest, ALevelZeroRecordOutOfTheRingDoesNotDrainIt) {
  Open();
  Filter(" f1");

  Output(*channel, NewRecord(" severe", 0), true);

  EXPECT_EQ(Body(), "11-15 08:52:13.123456.T4711 severe\n");
  EXPECT_EQ(RingOf(*channel).message_count(), 1U);
}

TEST_F(RingTest, AFilteredLevelZeroRecordGoesIntoItAndTriggersNothing) {
  CoutToText out;
  Open();
  Filter(" f1");

  Filter(" filtered severe", 0);

  EXPECT_EQ(Body(), "");
  EXPECT_EQ(RingOf(*channel).message_count(), 2U);
  Output(*channel, NewRecord(" severe", 0));
  EXPECT_EQ(Body(),
            "11-15 08:52:13.123456.T4711 f1\n"
            "11-15 08:52:13.123456.T4711 filtered severe\n"
            "11-15 08:52:13.123456.T4711 severe\n");
}

TEST_F(RingTest, ItsRecordsCarryTheirValuesAndTheirDays) {
  CoutToText out;
  Open();
  OutDataUnit* rec = WithStamp(WithAsn(NewRecord(" f1", 3, false, false), new AsnText("value")),
                               "2026-11-14 23:59:59.999999");
  ASSERT_TRUE(channel->TraceInner(rec));

  Output(*channel, NewRecord(" severe", 0));

  EXPECT_EQ(Body(),
            "Current date&time:2026-11-14 23:59:59.999999\n"
            "11-14 23:59:59.999999.T4711 f1\nASN Trace:\nvalue\n"
            "Current date&time:2026-11-15 08:52:13.123456\n"
            "11-15 08:52:13.123456.T4711 severe\n");
  EXPECT_EQ(AsnText::Live(), 0);
}

// Its Print traces a filtered record into the same channel, on the thread that writes the ring.
class AsnThatIsFiltered : public AsnType {
 public:
  explicit AsnThatIsFiltered(VeltDebugInfo& channel) : channel_(channel) {}
  AsnType* Clone() const override { return new AsnThatIsFiltered(channel_); }
  void Print(std::ostream& out, int, int) const override {
    OutDataUnit* rec = NewRecord(" later", 3, false, false);
    out << (channel_.TraceInner(rec) ? "kept" : "refused");
  }

 private:
  VeltDebugInfo& channel_;
};

TEST_F(RingTest, WhatIsFilteredWhileItIsWrittenStaysForTheNextTime) {
  CoutToText out;
  Open();
  OutDataUnit* rec = WithAsn(NewRecord(" f1", 3, false, false), new AsnThatIsFiltered(*channel));
  ASSERT_TRUE(channel->TraceInner(rec));
  Filter(" f2");

  Output(*channel, NewRecord(" severe", 0));

  EXPECT_EQ(Body(),
            "11-15 08:52:13.123456.T4711 f1\nASN Trace:\nkept\n"
            "11-15 08:52:13.123456.T4711 f2\n"
            "11-15 08:52:13.123456.T4711 severe\n");
  EXPECT_EQ(RingOf(*channel).message_count(), 1U);
}

TEST_F(RingTest, DrainingAnEmptyRingDoesNothing) {
  Open();

  channel->OutputDiscardQueue();

  EXPECT_EQ(Body(), "");
}

TEST_F(RingTest, DrainingWithoutAFileLosesTheRing) {
  channel = MakeIdleChannel(setup);
  Filter(" f1");

  channel->OutputDiscardQueue();

  EXPECT_TRUE(RingOf(*channel).is_empty());
}

TEST_F(RingTest, ABlockWithoutARecordIsSkipped) {
  CoutToText out;
  Open();
  RingOf(*channel).enqueue(new ACE_Message_Block);
  Filter(" f1");

  channel->OutputDiscardQueue();

  EXPECT_EQ(Body(), "11-15 08:52:13.123456.T4711 f1\n");
}

}  // namespace
}  // namespace velt::test
