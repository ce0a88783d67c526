// Levels that change under full load, and sub-names that several threads use first.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/faults/counted.h"
#include "tests/faults/process_state.h"
#include "tests/faults/scale.h"
#include "tests/support/files.h"
#include "tests/support/manager_host.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

using faults::Figure;
using faults::Scaled;
using Clock = std::chrono::steady_clock;

VeltDebugMgr& Manager() { return *VeltDebugMgr::Instance(); }

// --- a level that changes ---

constexpr VeltLogLevel kLevel5{5};
constexpr int kTracers = 8;
constexpr std::chrono::milliseconds kAtOnce(100);
// Too long a name to be remembered: every call looks its sets up in the table.
std::string const kLongName(60, 'l');

// The level goes through these again and again. The number only grows, so that a thread that sees one number
// before and after a call knows that nothing changed meanwhile.
enum class Phase { kOff, kTurningOn, kOn, kTurningOff };
constexpr unsigned kEnd = ~0U;
Phase PhaseOf(unsigned step) { return static_cast<Phase>(step % 4); }
enum class Fate : unsigned char { kMustNot, kMay, kMust };

// One thread that traces as fast as it can, and notes where each of its records must be.
struct Tracer {
  void Run(std::atomic<unsigned> const& step) {
    constexpr int kMostInOneRound = 2'000;  // bounds the size of the file
    int in_this_round = 0;
    for (unsigned before = step; before != kEnd; before = step) {
      Phase const phase = PhaseOf(before);
      if (phase == Phase::kOff) in_this_round = 0;
      if (phase != Phase::kOff && ++in_this_round > kMostInOneRound) {
        std::this_thread::yield();
        continue;
      }
      std::string const text = std::to_string(number) + " " + std::to_string(fates.size());
      bool const accepted = Manager().Trace(module, kLevel5, text.c_str(), nullptr, false, false);
      refused += accepted ? 0 : 1;
      bool const settled = accepted && step == before;
      bool const surely_on = settled && phase == Phase::kOn;
      bool const surely_off = settled && phase == Phase::kOff;
      fates.push_back(surely_on ? Fate::kMust : surely_off ? Fate::kMustNot : Fate::kMay);
    }
  }

  int number = 0;
  std::string module;
  std::vector<Fate> fates;
  int refused = 0;
};

class LevelChangeFaultTest : public ::testing::Test {
 protected:
  // Sets level 5 of both modules; returns how long that took.
  std::chrono::nanoseconds Change(bool on) {
    ++step_;
    auto const begin = Clock::now();
    EXPECT_TRUE(Manager().SetLogLevel("net", kLevel5, on));
    EXPECT_TRUE(Manager().SetLogLevel(kLongName, kLevel5, on));
    auto const took = Clock::now() - begin;
    ++step_;
    std::this_thread::sleep_for(std::chrono::milliseconds(15));
    return took;
  }

  ManagerHost const host_{"nFiltLogBufSize = 0\nnEachFileMaxSize = 50\n"};
  std::atomic<unsigned> step_{0};
};

TEST_F(LevelChangeFaultTest, ALevelChangeTakesEffectAtOnceWhileEightThreadsTraceAtFullRate) {
  int const rounds = Scaled(10, 30);
  ASSERT_TRUE(host_.Init());
  ASSERT_TRUE(Manager().RegSubModuleInfo("net", Bits(), BitsOf({1}), false));
  ASSERT_TRUE(Manager().RegSubModuleInfo(kLongName, Bits(), BitsOf({1}), false));
  std::vector<Tracer> tracers(kTracers);
  std::vector<std::thread> threads;
  for (int i = 0; i < kTracers; ++i) {
    Tracer& tracer = tracers[static_cast<std::size_t>(i)];
    tracer.number = i;
    tracer.module = i % 2 == 0 ? "net" : kLongName;
    threads.emplace_back([&tracer, this] { tracer.Run(step_); });
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(15));

  std::vector<std::chrono::nanoseconds> changes;
  for (int i = 0; i < rounds; ++i) {
    changes.push_back(Change(true));
    changes.push_back(Change(false));
  }
  step_ = kEnd;
  for (auto& thread : threads) thread.join();
  VeltTraceCounts const counts = faults::QuietCounts()["host_"];
  auto const records = host_.StopAndRead();

  std::vector<std::vector<bool>> there(kTracers);
  for (std::size_t i = 0; i < tracers.size(); ++i) there[i].resize(tracers[i].fates.size());
  for (auto const& record : records) {
    std::size_t const text = record.rfind(' ', record.rfind(' ') - 1) + 1;
    std::size_t length = 0;
    auto const tracer = static_cast<std::size_t>(std::stoi(record.substr(text), &length));
    there.at(tracer).at(std::stoul(record.substr(text + length))) = true;
  }
  long long calls = 0;
  long long must = 0;
  long long wrong = 0;
  int refused = 0;
  for (std::size_t i = 0; i < tracers.size(); ++i) {
    refused += tracers[i].refused;
    for (std::size_t n = 0; n < tracers[i].fates.size(); ++n) {
      Fate const fate = tracers[i].fates[n];
      ++calls;
      must += fate == Fate::kMust ? 1 : 0;
      bool const as_it_must = fate == Fate::kMay || there[i][n] == (fate == Fate::kMust);
      wrong += as_it_must ? 0 : 1;
    }
  }
  std::sort(changes.begin(), changes.end());
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(refused, 0);
  faults::ExpectCounts(counts, records.size(), 0, records.size());  // filtered ones are not accepted
  EXPECT_GT(must, 0);
  // A quarter of the changes may be late: on a busy machine this thread may not run for a while.
  EXPECT_LT(changes[changes.size() / 4], kAtOnce);
  // The longest has no limit here: a thread that holds the lock may be kept from running.
  auto const late = changes.end() - std::lower_bound(changes.begin(), changes.end(), kAtOnce);
  if (faults::FullScale() && !faults::kSanitized) {
    EXPECT_LE(late, rounds * 2 / 5) << "one change in five";
  }
  Figure({{"level_changes", static_cast<long long>(changes.size())},
          {"calls", calls},
          {"wrong", wrong},
          {"median_us", changes[changes.size() / 2].count() / 1'000},
          {"longest_us", changes.back().count() / 1'000},
          {"over_100_ms", late}});
}

// --- sub-names ---

class FirstUseFaultTest : public ::testing::TestWithParam<int> {};

TEST_P(FirstUseFaultTest, ASubNameThatTwoThreadsUseFirstHasOneChannelAndEveryRecord) {
  constexpr int kNames = 25;  // for each life of the manager
  constexpr int kRecords = 4;
  int const lives = Scaled(2, 10);
  long long records = 0;
  long long wrong = 0;
  for (int life = 0; life < lives; ++life) {
    ManagerHost const host("nMaxFileNum = 100\n");
    ASSERT_TRUE(host.Init());
    std::atomic<int> arrived{0};
    std::atomic<int> refused{0};

    InThreads(2, [&](int thread) {
      for (int i = 0; i < kNames; ++i) {
        ++arrived;
        while (arrived < 2 * (i + 1)) {
        }
        for (int n = 0; n < kRecords; ++n) {
          std::string const text = std::to_string(thread) + "." + std::to_string(n);
          bool const taken = Manager().AppTrace("m", VeltLogLevel{3}, text.c_str(), nullptr, false, true,
                                                "s" + std::to_string(i));
          if (!taken) ++refused;
        }
      }
    });
    WaitUntil([] { return faults::OutputThreads() == kNames + 1; });
    EXPECT_EQ(faults::OutputThreads(), kNames + 1U);
    auto counts = faults::QuietCounts();
    EXPECT_EQ(VeltDebugMgr::Destroy(), 0);

    EXPECT_EQ(refused, 0);
    for (int i = 0; i < kNames; ++i) {
      std::string const prefix = "host_s" + std::to_string(i) + "_";
      auto const bodies = host.Records(prefix);
      faults::ExpectCounts(counts[prefix], std::size_t{2} * kRecords, 0, bodies.size());
      records += static_cast<long long>(bodies.size());
      for (int thread = 0; thread < 2; ++thread) {
        auto at = bodies.begin();
        for (int n = 0; n < kRecords; ++n) {
          std::string const body = " m I: " + std::to_string(thread) + "." + std::to_string(n);
          wrong += std::count(bodies.begin(), bodies.end(), body) == 1 ? 0 : 1;
          at = std::find(at, bodies.end(), body);  // behind the one before it
          wrong += at == bodies.end() ? 1 : 0;
        }
      }
      EXPECT_EQ(ExactFamily(host.LogDir(), prefix).size(), 1U) << prefix;
    }
  }
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(records, 2LL * kRecords * kNames * lives);
  Figure({{"first_uses", kNames * lives}, {"records_verified", records}, {"wrong", wrong}});
}

INSTANTIATE_TEST_SUITE_P(Lives, FirstUseFaultTest, ::testing::Range(0, 4));

}  // namespace
}  // namespace velt::test
