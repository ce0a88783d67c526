// The other ways to trace: a finished record, a format, a value.
#include <cstddef>
#include <ostream>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "velt/channel.h"

#include "tests/channel/traced_channel.h"
#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;

// A value that prints a little and then throws.
class AsnThatBreaks : public AsnType {
 public:
  AsnType* Clone() const override { return new AsnThatBreaks; }
  void Print(std::ostream& out, int, int) const override {
    out << "half";
    throw std::runtime_error("cannot print the rest");
  }
};
using TraceInnerTest = TraceTest;

TEST_F(TraceInnerTest, AQueuedRecordIsLeftToTheQueue) {
  channel = MakeIdleChannel(setup);
  OutDataUnit* const made = NewRecord(" x");
  OutDataUnit* rec = made;

  bool const traced = channel->TraceInner(rec);

  EXPECT_TRUE(traced);
  EXPECT_EQ(rec, made);
  EXPECT_EQ(TakeFrom(OutputQueueOf(*channel)).get(), made);
}

TEST_F(TraceInnerTest, EitherFlagLeadsToTheOutputQueue) {
  setup.ring = 3;
  channel = MakeIdleChannel(setup);
  OutDataUnit* printed = NewRecord(" x", 3, false, true);
  OutDataUnit* logged = NewRecord(" x", 3, true, false);

  EXPECT_TRUE(channel->TraceInner(printed));
  EXPECT_TRUE(channel->TraceInner(logged));

  EXPECT_EQ(OutputQueueOf(*channel).message_count(), 2U);
  EXPECT_TRUE(RingOf(*channel).is_empty());
}

TEST_F(TraceInnerTest, TheChannelsOwnFlagsDoNotChangeAFinishedRecord) {
  setup.ring = 3;
  setup.log = true;
  setup.print = true;
  channel = MakeIdleChannel(setup);
  OutDataUnit* rec = NewRecord(" x", 3, false, false);

  EXPECT_TRUE(channel->TraceInner(rec));

  EXPECT_EQ(RingOf(*channel).message_count(), 1U);
}

TEST_F(TraceInnerTest, ANullRecordIsRefused) {
  channel = MakeIdleChannel(setup);
  OutDataUnit* rec = nullptr;

  EXPECT_FALSE(channel->TraceInner(rec));
  EXPECT_EQ(rec, nullptr);
}

TEST_F(TraceInnerTest, WithoutARingAFilteredRecordIsDeletedWithSuccess) {
  channel = MakeIdleChannel(setup);
  OutDataUnit* rec = NewRecord(" x", 3, false, false);
  rec->m_pAsn = new AsnText("value");

  EXPECT_TRUE(channel->TraceInner(rec));
  EXPECT_EQ(rec, nullptr);
  EXPECT_EQ(AsnText::Live(), 0);
}

TEST_F(TraceInnerTest, ARecordKeptInTheRingIsLeftUntouched) {
  setup.ring = 1;
  channel = MakeIdleChannel(setup);
  OutDataUnit* const made = NewRecord(" x", 3, false, false);
  OutDataUnit* rec = made;

  EXPECT_TRUE(channel->TraceInner(rec));
  EXPECT_EQ(rec, made);
}

TEST_F(TraceInnerTest, ARecordPushedOutOfTheRingIsDeleted) {
  setup.ring = 1;
  channel = MakeIdleChannel(setup);
  OutDataUnit* older = NewRecord(" older", 3, false, false);
  older->m_pAsn = new AsnText("value");
  OutDataUnit* newer = NewRecord(" newer", 3, false, false);
  channel->TraceInner(older);

  EXPECT_TRUE(channel->TraceInner(newer));

  EXPECT_EQ(AsnText::Live(), 0);
  EXPECT_EQ(RingOf(*channel).message_count(), 1U);
}

TEST_F(TraceInnerTest, ADeactivatedQueueRefusesAtOnceAndTheRecordIsDeleted) {
  setup.ring = 3;
  channel = MakeIdleChannel(setup);
  OutputQueueOf(*channel).deactivate();
  RingOf(*channel).deactivate();
  OutDataUnit* logged = NewRecord(" x");
  logged->m_pAsn = new AsnText("value");
  OutDataUnit* filtered = NewRecord(" x", 3, false, false);
  filtered->m_pAsn = new AsnText("value");

  EXPECT_FALSE(channel->TraceInner(logged));
  EXPECT_FALSE(channel->TraceInner(filtered));

  EXPECT_EQ(logged, nullptr);
  EXPECT_EQ(filtered, nullptr);
  EXPECT_EQ(AsnText::Live(), 0);
}

TEST_F(TraceInnerTest, AFullQueueRefusesAndDeletesTheRecord) {
  channel = MakeIdleChannel(setup);
  OutputQueueOf(*channel).high_water_mark(sizeof(OutDataUnit));
  OutputQueueOf(*channel).low_water_mark(sizeof(OutDataUnit));
  OutDataUnit* first = NewRecord(" first");
  OutDataUnit* second = NewRecord(" second");
  second->m_pAsn = new AsnText("value");

  EXPECT_TRUE(channel->TraceInner(first));
  EXPECT_FALSE(channel->TraceInner(second));

  EXPECT_EQ(second, nullptr);
  EXPECT_EQ(AsnText::Live(), 0);
}

TEST_F(TraceInnerTest, ARecordThatAHostBuiltIsWritten) {
  channel = MakeChannel(setup);
  OutDataUnit* rec = NewRecord(" built by the host");

  EXPECT_TRUE(channel->TraceInner(rec));

  EXPECT_EQ(CountOf(LogAfterStop(), "11-15 08:52:13.123456.T4711 built by the host\n"), 1U);
}

class FmtTraceTest : public TraceTest {
 protected:
  FmtTraceTest() { channel = MakeChannel(setup); }

  CaptureStdout out;  // what is formatted is printed as well
};

TEST_F(FmtTraceTest, AMessageIsLoggedAndPrintedAtLevelThreeWithoutAModule) {
  channel->FmtTrace("%s %d%%", "value", 42);

  EXPECT_EQ(CountOf(LogAfterStop(), "   I: value 42%\n"), 1U);
  EXPECT_THAT(out.Text(), EndsWith("   I: value 42%\n"));
}

TEST_F(FmtTraceTest, AMessageIsCutAt2046Characters) {
  for (std::size_t const size : {2045U, 2046U, 2047U, 5000U}) {
    channel->FmtTrace("%s", std::string(size, 'x').c_str());
  }

  std::string const log = LogAfterStop();
  EXPECT_EQ(CountOf(log, "   I: " + std::string(2045, 'x') + "\n"), 1U);
  EXPECT_EQ(CountOf(log, "   I: " + std::string(2046, 'x') + "\n"), 3U);
}

TEST_F(FmtTraceTest, AnEmptyMessageTracesNothing) {
  channel->FmtTrace("%s", "");

  EXPECT_EQ(CountOf(LogAfterStop(), "I: "), 0U);
  EXPECT_EQ(out.Text(), "");
}

TEST_F(FmtTraceTest, AFormatThatCannotBeExpandedTracesNothing) {
  channel->FmtTrace("some text %ls", L"\u00e9");  // no such character in the C locale

  EXPECT_EQ(CountOf(LogAfterStop(), "I: "), 0U);
  EXPECT_EQ(out.Text(), "");
}

TEST_F(FmtTraceTest, ANullFormatTracesNothing) {
  void (VeltDebugInfo::*const fmt_trace)(char const*, ...) = &VeltDebugInfo::FmtTrace;

  (channel.get()->*fmt_trace)(nullptr);

  EXPECT_EQ(CountOf(LogAfterStop(), "I: "), 0U);
}

class AsnTraceTest : public TraceTest {
 protected:
  std::string Printed(AsnType const* value) {
    channel = MakeIdleChannel(setup);
    std::string text = "before ";
    channel->ASNTrace(value, text);
    return text;
  }
};

TEST_F(AsnTraceTest, ATextGetsTheTitleAndTheValueAtItsEnd) {
  AsnText const value("value");

  EXPECT_EQ(Printed(&value), "before ASN Trace:\nvalue");
}

TEST_F(AsnTraceTest, ATextGetsNothingForNull) { EXPECT_EQ(Printed(nullptr), "before "); }

TEST_F(AsnTraceTest, ATextGetsTheTitleOfAnEmptyValue) {
  AsnText const value("");

  EXPECT_EQ(Printed(&value), "before ASN Trace:\n");
}

TEST_F(AsnTraceTest, ATextGetsTheValueUpToItsFirstNul) {
  AsnText const value(std::string("be\0hind", 7));

  EXPECT_EQ(Printed(&value), "before ASN Trace:\nbe");
}

TEST_F(AsnTraceTest, ATextGetsEightMegabytesWhole) {
  AsnText const value(std::string(8'000'000, 'v'));

  EXPECT_TRUE(Printed(&value) == "before ASN Trace:\n" + std::string(8'000'000, 'v'));
}

TEST_F(AsnTraceTest, APrintThatThrowsReachesTheCallerAndLeavesTheText) {
  channel = MakeIdleChannel(setup);
  AsnThatBreaks const value;
  std::string text = "before ";

  EXPECT_THROW(channel->ASNTrace(&value, text), std::runtime_error);
  EXPECT_EQ(text, "before ");
}

TEST_F(AsnTraceTest, AValueIsTracedAtLevelThreeWithoutAModule) {
  channel = MakeChannel(setup);
  AsnText const value("value");

  channel->ASNTrace(&value, false, true);

  EXPECT_EQ(CountOf(LogAfterStop(), "   I: ASN Trace:\nvalue\n"), 1U);
}

TEST_F(AsnTraceTest, TheFlagsAreTheCallers) {
  setup.ring = 3;
  CaptureStdout out;
  channel = MakeChannel(setup);
  AsnText const value("value");

  channel->ASNTrace(&value, true, false);
  channel->ASNTrace(&value, false, false);

  EXPECT_EQ(RingOf(*channel).message_count(), 1U);
  EXPECT_EQ(CountOf(LogAfterStop(), "ASN Trace"), 0U);
  EXPECT_THAT(out.Text(), HasSubstr("   I: ASN Trace:\nvalue\n"));
}

TEST_F(AsnTraceTest, NullTracesNothing) {
  channel = MakeChannel(setup);

  channel->ASNTrace(nullptr, false, true);

  EXPECT_EQ(CountOf(LogAfterStop(), "I: "), 0U);
}

TEST_F(AsnTraceTest, ATracedValueIsCutLikeEveryMessage) {
  channel = MakeChannel(setup);
  AsnText const value(std::string(8'000'000, 'v'));

  channel->ASNTrace(&value, false, true);

  EXPECT_EQ(CountOf(LogAfterStop(), "   I: ASN Trace:\n" + std::string(2048 - 11, 'v') + "\n"), 1U);
}

TEST_F(AsnTraceTest, APrintThatThrowsTracesNothing) {
  channel = MakeChannel(setup);
  AsnThatBreaks const value;

  EXPECT_THROW(channel->ASNTrace(&value, false, true), std::runtime_error);

  EXPECT_EQ(CountOf(LogAfterStop(), "half"), 0U);
}

}  // namespace
}  // namespace velt::test
