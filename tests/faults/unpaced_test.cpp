// Families that are written as fast as four threads can trace, many files a second: every record is there.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <thread>

#include "tests/checker/report.h"
#include "tests/faults/scenario.h"

namespace velt::faults {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr unsigned kThreads = 4;

struct Files {
  unsigned megabytes;
  bool ordinary_user;
};

void PrintTo(Files const& files, std::ostream* out) {  // test names without addresses
  *out << files.megabytes << " MB" << (files.ordinary_user ? " as an ordinary user" : " as root");
}

// The shortest call that was refused.
class Refusals {
 public:
  TraceCall Watch(TraceCall trace) {
    return [this, trace = std::move(trace)](std::string const& text) {
      auto const begin = Clock::now();
      bool const accepted = trace(text);
      if (accepted) return true;
      std::lock_guard<std::mutex> const lock(mutex_);
      shortest_ = std::min<std::chrono::nanoseconds>(shortest_, Clock::now() - begin);
      return false;
    };
  }
  std::chrono::nanoseconds Shortest() const { return shortest_; }

 private:
  std::mutex mutex_;
  std::chrono::nanoseconds shortest_ = std::chrono::hours(1);
};

class Unpaced : public Scenario {
 protected:
  explicit Unpaced(unsigned megabytes) {
    family.setup.max_bytes = megabytes << 20U;
    family.setup.keep = 100'000;
    family.expected.max_bytes = family.setup.max_bytes;
  }

  // Ends producers that began at `begin`, after `limit` at the latest, and compares files, calls and counts.
  void Trace(std::chrono::seconds limit) {
    Refusals refusals;
    family.channel = test::MakeChannel(family.setup);
    auto const begin = Clock::now();
    Producers producers(family.producers, refusals.Watch(ToChannel(*family.channel)));
    unsigned const all = family.producers.producers * family.producers.records;
    // All of them, or as many as the limit allows.
    (void)test::WaitUntil([&] { return producers.Traced() == all; }, limit);
    producers.Stop();
    auto const traced_ms = std::chrono::duration_cast<milliseconds>(Clock::now() - begin).count();
    ASSERT_TRUE(family.channel->Flush(300'000));
    VeltTraceCounts const counts = family.counts = family.channel->Counts();
    family.channel.reset();
    auto const stopped = Clock::now();
    checker::Report const report = family.Look();
    auto const read_ms = std::chrono::duration_cast<milliseconds>(Clock::now() - stopped).count();

    EXPECT_TRUE(report.Clean()) << report.Text();  // in the order of its thread, over all names
    EXPECT_TRUE(report.Accounted());
    EXPECT_EQ(report.found, report.accepted);
    family.ExpectCounted(report);
    EXPECT_EQ(counts.lost, 0U);
    EXPECT_EQ(counts.filesOpened, report.files);
    EXPECT_EQ(counts.archivesMade, report.archives);
    if (report.refused != 0) {
      EXPECT_GE(refusals.Shortest(), milliseconds(980));
    }
    Figure({{"records_verified", static_cast<long long>(report.found)},
            {"traced_ms", traced_ms},
            {"read_ms", read_ms},
            {"files", static_cast<long long>(report.files)},
            {"refused", static_cast<long long>(report.refused)},
            {"lost", static_cast<long long>(report.missing)}});
  }

  Family family{dir.Path()};
};

class UnpacedTest : public Unpaced, public ::testing::WithParamInterface<Files> {
 protected:
  UnpacedTest() : Unpaced(GetParam().megabytes) {}
};

TEST_P(UnpacedTest, EveryAcceptedRecordIsThereOnceAndNamesRiseInTheOrderOfCreation) {
  std::optional<OrdinaryUser> ordinary;
  if (GetParam().ordinary_user) ordinary.emplace(dir.Path());
  family.producers.producers = kThreads;
  // At small scale enough for two files of each size at least.
  unsigned const few = (kSanitized ? 10'000U : 60'000U) + GetParam().megabytes * 1'500U;
  family.producers.records = Scaled(few, 1'500'000U);

  Trace(std::chrono::seconds(FullScale() ? 10 : 120));
}

INSTANTIATE_TEST_SUITE_P(FourThreads, UnpacedTest,
                         ::testing::Values(Files{1, false}, Files{1, true}, Files{5, false}, Files{5, true},
                                           Files{50, false}, Files{50, true}),
                         [](auto const& test) {
                           return "FilesOf" + std::to_string(test.param.megabytes) + "MegabytesAs" +
                                  (test.param.ordinary_user ? "AnOrdinaryUser" : "Root");
                         });

class ManyUnpacedTest : public Unpaced {
 protected:
  ManyUnpacedTest() : Unpaced(5) {}
};

TEST_F(ManyUnpacedTest, EveryRecordOfSixtyFourThreadsIsThere) {
  family.producers.producers = 64;
  family.producers.records = Scaled(kSanitized ? 300U : 2'000U, 312'500U);  // 20 million in all

  Trace(std::chrono::seconds(600));
}

}  // namespace
}  // namespace velt::faults
