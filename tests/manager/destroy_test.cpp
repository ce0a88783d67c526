// The manager destroyed while output threads print values that trace through it.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/support/files.h"
#include "tests/support/manager.h"
#include "tests/support/manager_host.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

constexpr int kRecords = 30;
constexpr std::chrono::milliseconds kLimit(30'000);

bool TraceTo(std::string const& sub_name, AsnType const* value = nullptr) {
  return VeltDebugMgr::Instance()->AppTrace("m", kLevel3, "text", value, false, true, sub_name);
}

// Its Print traces, to known sub-names or to one without a channel yet, for so long that Destroy is called
// meanwhile.
class AsnThatTraces : public AsnType {
 public:
  explicit AsnThatTraces(bool new_names) : new_names_(new_names) {}
  AsnType* Clone() const override { return new AsnThatTraces(new_names_); }
  void Print(std::ostream& out, int, int) const override {
    int const number = ++printed_;
    if (new_names_) (void)TraceTo("new" + std::to_string(number));
    for (int i = 0; i < 200 && !new_names_; ++i) (void)TraceTo("gw" + std::to_string((number + i) % 3));
    out << "value";
  }

 private:
  bool new_names_;
  inline static std::atomic<int> printed_{0};
};

// The life of a host. Returns 0 when every call and every file is right.
int TraceAndDestroy(ManagerHost const& host, std::string const& name, bool new_names, int run) {
  if (!host.Init(name)) return 1;
  AsnThatTraces const value(new_names);
  for (int i = 0; i < kRecords; ++i) {
    if (!TraceTo("gw" + std::to_string(i % 3), &value)) return 2;
  }
  // Destroy comes earlier or later in the work of the output threads.
  std::this_thread::sleep_for(std::chrono::milliseconds(run % 5 * 4));
  if (VeltDebugMgr::Destroy() != 0) return 3;
  if (TraceTo("gw0") || TraceTo("after")) return 4;
  if (VeltDebugMgr::Instance()->Trace("m", kLevel3, "text", nullptr, false, true)) return 5;
  return 0;
}

class DestroyTest : public ::testing::TestWithParam<bool> {
 protected:
  ManagerHost const host_{"nMaxFileNum=100\n"};
};

TEST_P(DestroyTest, ComesToItsEndWhileValuesTraceAndEveryRecordIsWritten) {
  constexpr int kRuns = 10;
  for (int run = 0; run < kRuns; ++run) {
    std::string const name = "run" + std::to_string(run) + "_";
    auto const outcome = RunInChild([&] { return TraceAndDestroy(host_, name, GetParam(), run); }, kLimit);

    ASSERT_EQ(outcome.signal, 0) << "run " << run << " hung or died: " << outcome.err;
    ASSERT_EQ(outcome.exit_code, 0) << "run " << run << ": " << outcome.err;
    std::size_t values = 0;
    for (int i = 0; i < 3; ++i) {
      values += CountOf(host_.Text(name + "gw" + std::to_string(i) + "_"), "ASN Trace:\nvalue\n");
    }
    EXPECT_EQ(values, static_cast<std::size_t>(kRecords)) << "run " << run;
  }
}

// The end of an output thread is polled for every 100 ms: one after the other, 50 channels would take 5
// seconds. Destroys the manager that prints it, and keeps the result.
class AsnThatDestroys : public AsnType {
 public:
  AsnType* Clone() const override { return new AsnThatDestroys; }
  void Print(std::ostream& out, int, int) const override {
    result = VeltDebugMgr::Destroy();
    error = errno;
    done = true;
    out << "value";
  }

  inline static std::atomic<int> result{0};
  inline static std::atomic<int> error{0};
  inline static std::atomic<bool> done{false};
};

TEST(DestroyOnAnOutputThreadTest, IsRefusedInsteadOfWaitingForItself) {
  ManagerHost const host;
  ASSERT_TRUE(host.Init());
  AsnThatDestroys const value;
  ASSERT_TRUE(VeltDebugMgr::Instance()->Trace("m", kLevel3, "text", &value, false, true));

  ASSERT_TRUE(WaitUntil([] { return AsnThatDestroys::done.load(); }, kLimit));

  EXPECT_EQ(AsnThatDestroys::result, -1);
  EXPECT_EQ(AsnThatDestroys::error, EDEADLK);
  EXPECT_TRUE(VeltDebugMgr::Instance()->IsInit());
  EXPECT_EQ(VeltDebugMgr::Destroy(), 0) << "the host's own thread can";
}

TEST(DestroyManyTest, FiftyChannelsEndTogether) {
  constexpr int kChannels = 50;
  ManagerHost const host("nMaxFileNum=100\n");
  ASSERT_TRUE(host.Init());
  for (int i = 0; i < kChannels; ++i) {
    ASSERT_TRUE(TraceTo("gw" + std::to_string(i)));
  }
  ASSERT_TRUE(VeltDebugMgr::Instance()->Flush(30'000));

  auto const begin = std::chrono::steady_clock::now();
  EXPECT_EQ(VeltDebugMgr::Destroy(), 0);
  auto const took = std::chrono::steady_clock::now() - begin;

  EXPECT_LT(std::chrono::duration_cast<std::chrono::milliseconds>(took).count(), 2'500);
  for (int i = 0; i < kChannels; ++i) {
    std::string const text = host.Text("host_gw" + std::to_string(i) + "_");
    EXPECT_EQ(Bodies(text), (std::vector<std::string>{" m I: text"})) << i;
    EXPECT_EQ(CountOf(text, "thread handle output string exit\n"), 1U) << i;
    EXPECT_EQ(CountOf(text, " after m_OutputQueue cleared\n"), 1U) << i;
    EXPECT_EQ(CountOf(text, "File close at "), 1U) << i;
  }
}

std::string NameOf(testing::TestParamInfo<bool> const& info) { return info.param ? "New" : "Known"; }
INSTANTIATE_TEST_SUITE_P(ToSubNames, DestroyTest, ::testing::Bool(), NameOf);

}  // namespace
}  // namespace velt::test
