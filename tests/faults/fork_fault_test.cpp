// Forks under load: eight threads trace into two families that rotate and compress, while thousands of
// children are forked and end.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "velt/manager.h"
#include "velt/process.h"

#include "tests/checker/report.h"
#include "tests/faults/counted.h"
#include "tests/faults/host.h"
#include "tests/faults/process_state.h"
#include "tests/faults/sanitizers.h"
#include "tests/faults/scale.h"
#include "tests/support/files.h"
#include "tests/support/manager_host.h"
#include "tests/support/process.h"

// The runtime of g++ ends a child that starts a thread if its parent had several.
#if defined(__SANITIZE_THREAD__)
#define VELT_CHILD_CAN_START_THREADS 0
#else
#define VELT_CHILD_CAN_START_THREADS 1
#endif

namespace {
pid_t const main_process = getpid();
}

// Called by the leak checker. Off in a child: memory to which only the parent's threads had pointers looks
// lost there.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name that it asks for
extern "C" int __lsan_is_turned_off() { return getpid() != main_process ? 1 : 0; }

namespace velt::test {
namespace {

using faults::Figure;
using faults::Scaled;
using Clock = std::chrono::steady_clock;

constexpr VeltLogLevel kLevel3{3};
constexpr unsigned kProducersOfAFamily = 4;
constexpr int kOwnRecords = 20;
constexpr unsigned kChildLimitSeconds = 60;  // a child that takes longer hangs
constexpr std::size_t kMostChildrenAtOnce = 8;
// The address sanitizer's runtime does not hold its allocator's locks over a fork: one or two in a thousand
// children hang when they allocate. In the optimised build none may hang.
constexpr int kHungOfAThousand = VELT_ADDRESS_SANITIZER ? 10 : 0;

VeltDebugMgr& Manager() { return *VeltDebugMgr::Instance(); }

// In 12 ms each producer writes one record: of a family that is less than 600 kB a second. Meanwhile the
// threads trace filtered records as fast as they can.
faults::TraceCall Busy(faults::TraceCall const& trace) {
  return [trace](std::string const& text) {
    auto const begin = Clock::now();
    while (Clock::now() - begin < std::chrono::milliseconds(4)) {
      for (int i = 0; i < 50; ++i) {
        Manager().Trace("net", kLevel3, "filtered", nullptr, false, false);
        Manager().AppTrace("net", kLevel3, "filtered", nullptr, false, false, "gw");
        Manager().Printf(VeltLogLevel{4}, "filtered %d", i);
      }
    }
    return trace(text);
  };
}

// The calls of every child; 0 when all of them return what they must.
int UseInherited() {
  auto const begin = Clock::now();
  for (int i = 0; i < 5; ++i) {
    if (Manager().Trace("net", kLevel3, "child", nullptr, true, true)) return 1;
    if (Manager().Trace("net", kLevel3, "child", nullptr, false, false)) return 2;
    if (Manager().AppTrace("net", kLevel3, "child", nullptr, false, true, "gw")) return 3;
    if (Manager().AppTrace("net", kLevel3, "child", nullptr, false, true, "new")) return 4;
    Manager().Printf(kLevel3, "child");
    VeltOutputFrmtString("child");
  }
  if (Manager().SetLogLevel("net", kLevel3, true)) return 5;
  // If each of the thirty trace calls waited its second, these would be thirty.
  return Clock::now() - begin < std::chrono::seconds(15) ? 0 : 6;
}

int UseOwn(std::string const& name, std::string const& directory) {
  if (VeltDebugMgr::Destroy() != 0) return 11;
  if (!Manager().Init(name, "", directory, "own\n", false, false)) return 12;
  for (int i = 0; i < kOwnRecords; ++i) {
    std::string const text = "own " + std::to_string(i);
    if (!Manager().Trace("net", kLevel3, text.c_str(), nullptr, false, true)) return 13;
    if (i % 4 == 0 && !Manager().AppTrace("net", kLevel3, text.c_str(), nullptr, false, true, "sub"))
      return 14;
  }
  return VeltDebugMgr::Destroy() == 0 ? 0 : 15;
}

// How children ended.
struct Ends {
  long long orderly = 0;
  long long hung = 0;
  std::set<int> hung_children;  // their numbers
  std::map<int, int> others;    // exit code, or 1000 and the signal

  void Add(int number, int status) {
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM) {
      ++hung;
      hung_children.insert(number);
    } else if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
      ++orderly;
    } else {
      ++others[WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status)];
    }
  }
};

class ForkFaultTest : public ::testing::Test {
 protected:
  ForkFaultTest() {
    setup_.producers = kProducersOfAFamily;
    setup_.records = 200'000;
    setup_.pause = std::chrono::milliseconds(8);
    setup_.length = [](unsigned sequence) { return std::size_t{1'600} + sequence % 300; };
  }

  faults::ProducerSetup FamilySetup(unsigned first) const {
    faults::ProducerSetup setup = setup_;
    setup.side_directory = host_.Dir() / ("side" + std::to_string(first));
    setup.first_producer = first;
    return setup;
  }
  // Forks child number `i`; with a manager of its own now and then.
  pid_t Fork(int i, bool own) const {
    pid_t const child = fork();
    if (child != 0) return child;
    alarm(kChildLimitSeconds);
    int code = UseInherited();
    std::string const number = std::to_string(i);
    if (code == 0 && own) code = UseOwn("own" + number + "_", host_.Dir() / "own");
    if (code == 0 && !own && i % 2 == 0 && VeltDebugMgr::Destroy() != 0) code = 7;
    std::exit(code);
  }
  void Reap(Ends& ends, std::size_t most) {
    while (children_.size() > most) {
      int status = 0;
      pid_t const child = waitpid(-1, &status, 0);
      ASSERT_GT(child, 0);
      ends.Add(children_[child], status);
      children_.erase(child);
    }
  }
  checker::Report CheckFamily(std::string const& prefix, std::string const& header, unsigned first) const {
    checker::Expectation expected;
    expected.directory = host_.LogDir();
    expected.prefix = prefix;
    expected.header = header;
    expected.max_bytes = 1'048'576;
    expected.other_texts = {"first"};
    return Check(expected, checker::ReadOutcomes(FamilySetup(first).side_directory));
  }
  bool BothHaveRotated() const {
    return !FilesOf(host_.LogDir(), "host_2", ".gz").empty() &&
           !FilesOf(host_.LogDir(), "host_gw_2", ".gz").empty();
  }

  ManagerHost const host_{
      "nEachFileMaxSize = 1\nnEachProcessMaxZipNum = 200\nnFiltLogBufSize = 10\nnet_level = 0000\n"
      "debug_level = 0000\n"};
  faults::ProducerSetup setup_;
  std::map<pid_t, int> children_;  // with their numbers
};

TEST_F(ForkFaultTest, AParentThatForksUnderLoadLosesNothingAndNoChildHangsOrWrites) {
  int const forks = faults::kSanitized ? Scaled(30, 1'000) : Scaled(150, 10'000);
  int const own_every = std::max(1, Scaled(10, forks / 200));
  auto const has_own = [own_every](int i) { return VELT_CHILD_CAN_START_THREADS == 1 && i % own_every == 0; };
  std::size_t const descriptors = faults::ProcessState::Now().descriptors;
  ASSERT_TRUE(host_.Init());
  ASSERT_TRUE(Manager().AppTrace("m", VeltLogLevel{3}, "first", nullptr, false, true, "gw"));
  std::fflush(nullptr);  // else children would print it again
  Ends ends;
  int forked = 0;
  int own = 0;

  faults::Producers main_family(FamilySetup(0), Busy(faults::ToManager()));
  faults::Producers gw_family(FamilySetup(kProducersOfAFamily), Busy(faults::ToManager("gw")));
  // No fork while threads are being started: a sanitizer's own locks do not allow that.
  ASSERT_TRUE(WaitUntil([&] { return main_family.Traced() > 20 && gw_family.Traced() > 20; }));
  auto const limit = Clock::now() + std::chrono::seconds(200);
  while (forked < forks || (!BothHaveRotated() && Clock::now() < limit)) {
    bool const with_own = has_own(forked);
    pid_t const child = Fork(forked, with_own);
    ASSERT_GT(child, 0);
    children_[child] = forked;
    ++forked;
    own += with_own ? 1 : 0;
    Reap(ends, kMostChildrenAtOnce - 1);
    if (forked > forks) std::this_thread::sleep_for(std::chrono::milliseconds(20));  // waits for the rotation
  }
  Reap(ends, 0);
  main_family.Stop();
  gw_family.Stop();
  auto counts = faults::QuietCounts();
  EXPECT_EQ(VeltDebugMgr::Destroy(), 0);
  EXPECT_EQ(faults::ProcessState::Now().descriptors, descriptors);

  EXPECT_EQ(ends.orderly + ends.hung, forked);
  EXPECT_LE(ends.hung, (forked * kHungOfAThousand + 999) / 1000);
  for (auto const& [end, count] : ends.others) ADD_FAILURE() << count << " children ended with " << end;
  checker::Report const main_report = CheckFamily("host_", "host header\n", 0);
  EXPECT_TRUE(main_report.Clean()) << main_report.Text();
  checker::Report const gw_report = CheckFamily("host_gw_", "m", kProducersOfAFamily);
  EXPECT_TRUE(gw_report.Clean()) << gw_report.Text();
  EXPECT_EQ(main_report.refused + gw_report.refused, 0U);
  faults::ExpectCounted(counts["host_"], main_report);
  faults::ExpectCounted(counts["host_gw_"], gw_report, 1);  // with the first one
  EXPECT_GT(main_report.archives, 0U);
  EXPECT_GT(gw_report.archives, 0U);
  long long own_records = 0;
  for (int i = 0; i < forked; ++i) {
    if (!has_own(i) || ends.hung_children.count(i) != 0) continue;
    std::string const prefix = "own" + std::to_string(i) + "_";
    auto const records = Bodies(ExactFamilyText(host_.Dir() / "own", prefix));
    EXPECT_EQ(records.size(), static_cast<std::size_t>(kOwnRecords)) << prefix;
    EXPECT_EQ(Bodies(ExactFamilyText(host_.Dir() / "own", prefix + "sub_")).size(), 5U) << prefix;
    own_records += static_cast<long long>(records.size());
  }
  Figure({{"forks", forked},
          {"children_orderly", ends.orderly},
          {"children_hung", ends.hung},
          {"own_managers", own},
          {"own_records", own_records},
          {"rotations", static_cast<long long>(main_report.archives + gw_report.archives)},
          {"records_verified", static_cast<long long>(main_report.found + gw_report.found)},
          {"lost", static_cast<long long>(main_report.missing + gw_report.missing)}});
}

// By the clock that stamps are taken from.
std::chrono::system_clock::time_point NextSecond() {
  return std::chrono::ceil<std::chrono::seconds>(std::chrono::system_clock::now() +
                                                 std::chrono::microseconds(1));
}

// Stamps a record about every millisecond, so that each thread stamps soon after a second begins.
// Counts itself in `tracing` after the first one.
void StampUntil(std::atomic<bool> const& stop, std::atomic<int>& tracing) {
  for (bool first = true; !stop; first = false) {
    Manager().Trace("net", kLevel3, "filtered", nullptr, false, false);
    if (first) ++tracing;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

TEST_F(ForkFaultTest, ChildrenForkedAsSecondsBeginTraceWithManagersOfTheirOwn) {
  int const seconds = Scaled(5, 60);
  int const threads = faults::kSanitized ? 64 : 200;
  constexpr int kForksOfASecond = 8;
  ASSERT_TRUE(host_.Init());
  std::fflush(nullptr);
  std::atomic<bool> stop{false};
  std::atomic<int> tracing{0};
  std::vector<std::thread> tracers;
  tracers.reserve(static_cast<std::size_t>(threads));
  for (int i = 0; i < threads; ++i) tracers.emplace_back([&] { StampUntil(stop, tracing); });
  // A thread that starts holds locks of a sanitizer's runtime: a child would wait for them for ever. The
  // optimised build forks meanwhile, too.
  if (faults::kSanitized) {
    EXPECT_TRUE(WaitUntil([&] { return tracing == threads; }));
  }

  Ends ends;
  int forked = 0;
  for (int i = 0; i < seconds; ++i) {
    std::this_thread::sleep_until(NextSecond());
    for (int n = 0; n < kForksOfASecond; ++n) {
      pid_t const child = Fork(forked, VELT_CHILD_CAN_START_THREADS == 1);
      ASSERT_GT(child, 0);
      children_[child] = forked++;
    }
  }
  Reap(ends, 0);
  stop = true;
  for (auto& tracer : tracers) tracer.join();
  EXPECT_EQ(VeltDebugMgr::Destroy(), 0);

  EXPECT_EQ(ends.orderly + ends.hung, forked);
  EXPECT_LE(ends.hung, (forked * kHungOfAThousand + 999) / 1000);
  for (auto const& [end, count] : ends.others) ADD_FAILURE() << count << " children ended with " << end;
  Figure({{"forks", forked},
          {"tracing_threads", threads},
          {"children_orderly", ends.orderly},
          {"children_hung", ends.hung}});
}

}  // namespace
}  // namespace velt::test
