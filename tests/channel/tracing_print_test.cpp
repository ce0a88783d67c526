// Values that trace while they are printed, on the output thread of a channel whose queue is full.
#include <atomic>
#include <chrono>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include "velt/channel.h"

#include "tests/faults/sanitizers.h"
#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

constexpr VeltLogLevel kLevel3{3};
constexpr bool kSanitized = VELT_ADDRESS_SANITIZER || VELT_THREAD_SANITIZER;
// A sanitizer would take long to fill a queue of full size; there its water marks are lowered.
constexpr std::size_t kQueueRecords = kSanitized ? 8'000 : 128'000;
constexpr unsigned kTracing = 1'000;

// What the calls out of Print returned.
struct Nested {
  std::atomic<unsigned> accepted{0};
  std::atomic<unsigned> refused{0};
  std::atomic<bool> stop{false};  // ends the test soon once it has failed
};

class AsnThatTraces : public AsnType {
 public:
  AsnThatTraces(VeltDebugInfo& channel, Nested& nested) : channel_(channel), nested_(nested) {}
  AsnType* Clone() const override { return new AsnThatTraces(channel_, nested_); }
  void Print(std::ostream& out, int, int) const override {
    out << "value";
    if (nested_.stop) return;
    bool const accepted = channel_.Trace("m", kLevel3, "from print", nullptr, false, true);
    ++(accepted ? nested_.accepted : nested_.refused);
  }

 private:
  VeltDebugInfo& channel_;
  Nested& nested_;
};

class TracingPrintTest : public ::testing::Test {
 protected:
  void Start() {
    channel_ = MakeChannel(ChannelSetup(dir_.Path()));
    if (kSanitized) {
      OutputQueueOf(*channel_).high_water_mark(kQueueRecords * sizeof(OutDataUnit));
      OutputQueueOf(*channel_).low_water_mark(kQueueRecords * sizeof(OutDataUnit));
    }
  }
  void FillWithPlainRecords() {
    while (OutputQueueOf(*channel_).message_count() < kQueueRecords) {
      ASSERT_TRUE(channel_->Trace("m", kLevel3, "plain", nullptr, false, true));
    }
  }
  // Whether `calls` calls out of Print have returned within the limit.
  bool WaitForCalls(unsigned calls) {
    return WaitUntil([&] { return nested_.accepted + nested_.refused >= calls; },
                     std::chrono::milliseconds(20'000));
  }

  ScratchDir const dir_;
  std::unique_ptr<VeltDebugInfo> channel_;
  Nested nested_;
};

TEST_F(TracingPrintTest, InAFullQueueEveryTraceOutOfPrintIsAcceptedWithoutAWait) {
  Start();
  Gate gate;
  StallAt(gate, *channel_);
  AsnThatTraces const value(*channel_, nested_);
  for (unsigned i = 0; i < kTracing; ++i) {
    ASSERT_TRUE(channel_->Trace("m", kLevel3, "with value", &value, false, true));
  }
  FillWithPlainRecords();

  gate.Open();
  bool const in_time = WaitForCalls(kTracing);
  nested_.stop = true;
  channel_.reset();

  EXPECT_TRUE(in_time) << nested_.accepted << " accepted, " << nested_.refused << " refused";
  EXPECT_EQ(nested_.refused, 0U);
  std::string const text = ReadFamily(dir_.Path(), "t_");
  EXPECT_EQ(CountOf(text, " m I: from print\n"), kTracing);
  EXPECT_EQ(CountOf(text, " m I: plain\n"), kQueueRecords - kTracing);
}

// The thread that empties the queue cannot wait for room: only its own work makes some.
TEST_F(TracingPrintTest, WhereOtherCallersTookTheRoomATraceOutOfPrintIsRefusedAtOnce) {
  constexpr unsigned kCalls = 5'000;
  class AsnThatFillsTheQueue : public AsnType {
   public:
    AsnThatFillsTheQueue(VeltDebugInfo& channel, Nested& nested) : channel_(channel), nested_(nested) {}
    AsnType* Clone() const override { return new AsnThatFillsTheQueue(channel_, nested_); }
    void Print(std::ostream& /*out*/, int, int) const override {
      for (unsigned i = 0; i < kCalls && !nested_.stop; ++i) {
        bool const accepted = channel_.Trace("m", kLevel3, "from print", nullptr, false, true);
        ++(accepted ? nested_.accepted : nested_.refused);
      }
    }

   private:
    VeltDebugInfo& channel_;
    Nested& nested_;
  };
  Start();
  OutputQueueOf(*channel_).high_water_mark(100 * sizeof(OutDataUnit));
  OutputQueueOf(*channel_).low_water_mark(100 * sizeof(OutDataUnit));
  AsnThatFillsTheQueue const value(*channel_, nested_);

  ASSERT_TRUE(channel_->Trace("m", kLevel3, "with value", &value, false, true));
  bool const in_time = WaitForCalls(kCalls);
  nested_.stop = true;
  channel_.reset();

  EXPECT_TRUE(in_time) << nested_.accepted << " accepted, " << nested_.refused << " refused";
  EXPECT_EQ(nested_.accepted, 100U);
  EXPECT_EQ(nested_.refused, kCalls - 100U);
  EXPECT_EQ(CountOf(ReadFamily(dir_.Path(), "t_"), " m I: from print\n"), 100U);
}

}  // namespace
}  // namespace velt::test
