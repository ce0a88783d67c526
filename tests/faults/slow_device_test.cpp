// A slow device: callers get the room of every record that is dealt with, in the order in which they came,
// also during a long rotation.
#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "velt/channel.h"

#include "tests/faults/counted.h"
#include "tests/faults/scale.h"
#include "tests/faults/scenario.h"
#include "tests/faults/shim/shim.h"
#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/manager_host.h"
#include "tests/support/process.h"

namespace velt::faults {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

constexpr VeltLogLevel kLevel3{3};

void DelayWrites(char const* path, unsigned delay_ms) {
  shim::Rule slow;
  slow.call = shim::Call::kWrite;
  slow.action = shim::Action::kDelay;
  slow.count = 0;
  slow.delay_ms = delay_ms;
  slow.path = path;
  shim::AddRule(slow);
}

class SlowDeviceTest : public Scenario {
 protected:
  void Start(std::size_t queue_records) {
    channel_ = test::MakeChannel(setup_);
    queue_records_ = queue_records;
    test::OutputQueueOf(*channel_).high_water_mark(queue_records * sizeof(OutDataUnit));
    test::OutputQueueOf(*channel_).low_water_mark(queue_records * sizeof(OutDataUnit));
  }
  bool Trace(char const* text) { return channel_->Trace("m", kLevel3, text, nullptr, false, true); }
  std::size_t Queued() const { return test::OutputQueueOf(*channel_).message_count(); }
  void FillQueue() {
    while (Queued() < queue_records_) ASSERT_TRUE(Trace("filler"));
  }

  test::ChannelSetup setup_{dir / "logs"};
  std::unique_ptr<VeltDebugInfo> channel_;
  std::size_t queue_records_ = 0;
};

TEST_F(SlowDeviceTest, AtTenRecordsASecondAFullQueueRefusesNoneOfFiveCallers) {
  constexpr int kCallers = 5;
  auto const run = seconds(Scaled(6, 60));
  Start(2'000);
  test::Gate gate;
  StallAt(gate, *channel_);
  FillQueue();
  DelayWrites("*/logs/*.log", 100);
  gate.Open();

  std::atomic<unsigned> accepted{0};
  std::atomic<unsigned> refused{0};
  auto const end = Clock::now() + run;
  test::InThreads(kCallers, [&](int) {
    while (Clock::now() < end) ++(Trace("in time") ? accepted : refused);
  });
  shim::ClearRules();
  VeltTraceCounts const counts = QuietCounts(*channel_);
  channel_.reset();

  EXPECT_EQ(refused, 0U);
  EXPECT_GE(accepted, 30U) << "the callers must not be slower than the device";
  std::string const text = test::ReadFamily(setup_.directory, "t_");
  EXPECT_EQ(test::CountOf(text, " m I: in time\n"), accepted);
  EXPECT_EQ(test::CountOf(text, " m I: filler\n"), 2'000U);
  ExpectCounts(counts, accepted + 2'000 + 1, refused, test::Bodies(text).size());
  Figure({{"accepted", accepted}, {"refused", refused}});
}

TEST_F(SlowDeviceTest, DuringALongCompressionNoRecordThatIsDealtWithIsCounted) {
  constexpr std::size_t kRecords = 1'000;
  constexpr std::size_t kMostOfOneLook = 512;
  setup_.max_bytes = 15'000;
  Start(kRecords);
  test::Gate gate;
  StallAt(gate, *channel_);
  FillQueue();
  DelayWrites("*/logs/*.log.gz", 3'000);
  gate.Open();
  std::string finished;
  ASSERT_TRUE(test::WaitUntil([&] {
    auto const archives = test::FilesOf(setup_.directory, "t_", ".log.gz");
    if (archives.empty()) return false;
    finished = setup_.directory + "/" + archives[0].substr(0, archives[0].size() - 3);
    return true;
  }));

  std::size_t const written = test::CountOf(test::ReadFile(finished), " m I: filler\n");
  std::size_t const counted = Queued();
  unsigned accepted = 0;
  auto const begin = Clock::now();
  while (accepted < written && Trace("meanwhile")) ++accepted;
  auto const took = Clock::now() - begin;
  bool const still_compressed = test::Exists(finished);
  shim::ClearRules();
  VeltTraceCounts const counts = QuietCounts(*channel_);
  channel_.reset();

  // Without these the test would prove nothing.
  ASSERT_GT(written, 0U);
  ASSERT_LT(written, kMostOfOneLook) << "else room is given back during the rotation in any case";
  ASSERT_TRUE(still_compressed) << "the machine is too slow for this test";
  EXPECT_EQ(counted, kRecords - written);
  EXPECT_EQ(accepted, written);
  ExpectCounts(counts, kRecords + 1 + accepted, 0,
               test::Bodies(test::ReadFamily(setup_.directory, "t_")).size());
  EXPECT_LT(took, milliseconds(1'000)) << "no call waited for room";
}

}  // namespace
}  // namespace velt::faults
