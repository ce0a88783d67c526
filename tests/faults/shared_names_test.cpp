// A family that is written faster than one file a second: files of one second share a name. What is lost is
// lost in whole files, callers are told nothing, and everything else is as it was traced.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <thread>

#include "tests/checker/report.h"
#include "tests/faults/scenario.h"

namespace velt::faults {
namespace {

using checker::Kind;

constexpr std::size_t kFileBytes = 1'048'576;
constexpr std::size_t kTextBytes = 100;  // of a record's payload; its line has about 60 more
constexpr unsigned kLineBytes = 160;

struct Pace {
  unsigned megabytes_a_second;
  bool ordinary_user;
};

class SharedNamesTest : public Scenario, public ::testing::WithParamInterface<Pace> {
 protected:
  // A thousand times a second as many records as are due then; what a slow machine is late with is not made
  // up for.
  void TraceFor(std::chrono::seconds time) {
    constexpr std::chrono::milliseconds kTick(1);
    unsigned const records = GetParam().megabytes_a_second * 1'000U / kLineBytes;
    auto due = std::chrono::steady_clock::now();
    for (auto const end = due + time; due < end;) {
      ASSERT_TRUE(family.Trace(records));
      due = std::max(due + kTick, std::chrono::steady_clock::now());
      std::this_thread::sleep_until(due);
    }
  }

  Family family{dir.Path()};
};

TEST_P(SharedNamesTest, WholeFilesAreLostAndNoCallerIsTold) {
  if (!GetParam().ordinary_user && geteuid() != 0) GTEST_SKIP() << "only root's archives are written over";
  std::optional<OrdinaryUser> ordinary;
  if (GetParam().ordinary_user) ordinary.emplace(dir.Path());
  family.setup.max_bytes = kFileBytes;
  family.setup.keep = 200;
  family.producers.records = 1'000'000;
  family.producers.length = [](unsigned) { return kTextBytes; };

  family.Start();
  ASSERT_TRUE(family.WaitForFile());
  TraceFor(std::chrono::seconds(Scaled(2, 12)));
  auto const report = family.Finish();

  EXPECT_EQ(report.refused, 0U);
  // A plain file beside the archive of its name is the younger of the two, and read first.
  EXPECT_TRUE(report.CleanBut({Kind::kMissing, Kind::kDifferingTwin, Kind::kOutOfOrder})) << report.Text();
  EXPECT_GT(report.found, 0U) << "the last file at least, or the only one";
  family.Print(report);
  Figure({{"found_percent", static_cast<long long>(100 * report.found / report.accepted)}});
}

INSTANTIATE_TEST_SUITE_P(Paces, SharedNamesTest,
                         ::testing::Values(Pace{2, false}, Pace{2, true}, Pace{5, false}, Pace{5, true}),
                         [](auto const& test) {
                           return std::to_string(test.param.megabytes_a_second) + "MegabytesASecond" +
                                  (test.param.ordinary_user ? "AsAnOrdinaryUser" : "AsRoot");
                         });

}  // namespace
}  // namespace velt::faults
