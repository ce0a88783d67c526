// A thread that is cancelled while its trace call waits for room in the queue.
#include <pthread.h>

#include <atomic>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "velt/channel.h"

#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

constexpr VeltLogLevel kLevel3{3};
constexpr unsigned kQueueRecords = 4;

struct Caller {
  VeltDebugInfo* channel = nullptr;
  AsnType const* value = nullptr;
  std::atomic<int> result{-1};  // of its one call
  std::atomic<bool> went_on{false};
};

void* TraceOnce(void* argument) {
  auto* const caller = static_cast<Caller*>(argument);
  caller->result = caller->channel->Trace("m", kLevel3, "cancelled", caller->value, false, true) ? 1 : 0;
  pthread_testcancel();
  caller->went_on = true;
  return nullptr;
}

class CancelledCallerTest : public ::testing::Test {
 protected:
  // A full queue behind an output thread that waits at the gate, and one more caller that waits for room.
  void StartAndWait() {
    channel_ = MakeChannel(ChannelSetup(dir_.Path()));
    OutputQueueOf(*channel_).high_water_mark(kQueueRecords * sizeof(OutDataUnit));
    OutputQueueOf(*channel_).low_water_mark(kQueueRecords * sizeof(OutDataUnit));
    StallAt(gate_, *channel_);
    for (unsigned i = 0; i < kQueueRecords; ++i) {
      ASSERT_TRUE(channel_->Trace("m", kLevel3, "fills it", nullptr, false, true));
    }
    caller_.channel = channel_.get();
    caller_.value = &value_;
    ASSERT_EQ(pthread_create(&thread_, nullptr, &TraceOnce, &caller_), 0);
    ASSERT_TRUE(WaitUntil([this] { return OutputQueueOf(*channel_).CallersWait(); }));
  }
  void ExpectCancelled() {
    void* end = nullptr;
    ASSERT_EQ(pthread_join(thread_, &end), 0);
    EXPECT_EQ(end, PTHREAD_CANCELED);
    EXPECT_FALSE(caller_.went_on);
  }
  std::string Text() const { return ReadFamily(dir_.Path(), "t_"); }

  ScratchDir const dir_;
  Gate gate_;
  AsnText const value_{"value"};
  std::unique_ptr<VeltDebugInfo> channel_;
  Caller caller_;
  pthread_t thread_{};
};

TEST_F(CancelledCallerTest, ItsCallEndsAsAnyOtherAndTheThreadIsCancelledAfterwards) {
  StartAndWait();

  ASSERT_EQ(pthread_cancel(thread_), 0);
  ExpectCancelled();
  bool const still_waits = OutputQueueOf(*channel_).CallersWait();
  gate_.Open();
  channel_.reset();

  EXPECT_FALSE(still_waits);
  EXPECT_EQ(caller_.result, 0) << "refused after one second";
  EXPECT_EQ(AsnText::Live(), 1) << "the record's copy of the value is deleted";
  EXPECT_EQ(CountOf(Text(), "cancelled"), 0U);
  EXPECT_EQ(CountOf(Text(), " m I: fills it\n"), kQueueRecords);
}

TEST_F(CancelledCallerTest, ItsRecordIsWrittenWhenRoomComesInTime) {
  StartAndWait();

  ASSERT_EQ(pthread_cancel(thread_), 0);
  gate_.Open();
  ExpectCancelled();
  bool const still_waits = OutputQueueOf(*channel_).CallersWait();
  channel_.reset();

  EXPECT_FALSE(still_waits);
  EXPECT_EQ(caller_.result, 1);
  EXPECT_EQ(AsnText::Live(), 1);
  EXPECT_EQ(CountOf(Text(), " m I: cancelled\n"), 1U);
}

}  // namespace
}  // namespace velt::test
