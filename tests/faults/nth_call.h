// What the scenarios of n-th calls share: the fault, a channel's life with it, and another run afterwards.
#ifndef VELT_TESTS_FAULTS_NTH_CALL_H
#define VELT_TESTS_FAULTS_NTH_CALL_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "tests/checker/report.h"
#include "tests/faults/scale.h"
#include "tests/faults/scenario.h"
#include "tests/faults/shim/shim.h"
#include "tests/support/files.h"

namespace velt::faults {

inline constexpr unsigned kMoreThanTheFault = 5;  // records beyond those that reach the n-th call
inline constexpr unsigned kAfterwards = 3;        // records after the fault, and as many of the next run

enum class Lasts { kOnce, kUntilMended, kUntilTheEnd };

struct Fault {
  char const* name;
  shim::Call call;
  int error;
  Lasts lasts;
  bool of_archives = false;  // calls with a path: of archives alone
};

// Test names without addresses.
inline void PrintTo(Fault const& fault, std::ostream* out) { *out << fault.name; }
inline std::string NameOf(testing::TestParamInfo<Fault> const& info) {
  char const* const ends[] = {"Once", "UntilMended", "UntilTheEnd"};
  return std::string("Every") + info.param.name + ends[static_cast<std::size_t>(info.param.lasts)];
}

inline std::vector<unsigned> Places() {
  if (!FullScale()) return {1, 2, 3, 5, 8};
  std::vector<unsigned> all;
  for (unsigned n = 1; n <= 50; ++n) all.push_back(n);
  return all;
}

// A channel in which every record ends its file, and the n-th call at which its fault begins.
struct Life {
  Life(std::string const& root, unsigned nth) : n(nth), family(root, "logs" + std::to_string(nth)) {
    family.setup.max_bytes = 0;
    family.setup.keep = 1'000;
    family.expected.max_bytes = 0;
    family.producers.records = 1'000;
    pattern = "*/logs" + std::to_string(nth) + "/*";
    archives = pattern + ".log.gz";
  }

  unsigned Applied() const { return shim::AppliedCalls(rule); }
  std::vector<std::string> Archives() const { return test::FilesOf(family.setup.directory, "t_", ".log.gz"); }

  unsigned n;
  Family family;
  std::string pattern;
  std::string archives;
  int rule = -1;
  int opened = -1;  // a rule that makes nothing fail and counts the log files
};
using Lives = std::vector<std::unique_ptr<Life>>;

class NthCall : public Scenario, public testing::WithParamInterface<Fault> {
 protected:
  int AddRule(Life const& life, bool anywhere = false) const {
    unsigned const count = GetParam().lasts == Lasts::kOnce ? 1 : 0;
    char const* const path = anywhere                 ? nullptr
                             : GetParam().of_archives ? life.archives.c_str()
                                                      : life.pattern.c_str();
    return shim::AddRule({GetParam().call, shim::Action::kFail, life.n, count, GetParam().error, 0, path});
  }

  // Ending a channel costs a poll; in parallel they cost one together.
  static void End(Lives const& lives) {
    std::vector<std::thread> threads;
    for (auto const& life : lives) threads.emplace_back([&life] { life->family.Stop(); });
    for (auto& thread : threads) thread.join();
  }

  // Another run of every channel; the longest call of the run before is taken from its producer first.
  static void RunAgain(Lives const& lives) {
    for (auto const& life : lives) {
      EXPECT_LT(life->family.producer->LongestCall(), kLongestCall);
      ++life->family.producers.run;
      life->family.drains = true;  // the fault is over
      life->family.Start();
      EXPECT_TRUE(life->family.Trace(kAfterwards));
    }
    End(lives);
  }

  // `gives_up`: accepted records that the documented rules do not keep.
  checker::Report Verify(Life& life, std::size_t gives_up = 0) {
    checker::Report report = life.family.Finish();
    EXPECT_EQ(report.missing, gives_up) << report.Text();
    EXPECT_TRUE(gives_up > 0 ? report.CleanBut({checker::Kind::kMissing}) : report.Clean()) << report.Text();
    ++cases;
    verified += report.found;
    std::size_t const allowed = std::min(report.missing, gives_up);
    given_up += allowed;
    lost += report.missing - allowed;
    return report;
  }

  void Print() const {
    Figure({{"cases", cases},
            {"failures", failures},
            {"records_verified", static_cast<long long>(verified)},
            {"given_up", static_cast<long long>(given_up)},
            {"lost", static_cast<long long>(lost)}});
  }

  long long cases = 0;
  long long failures = 0;
  std::size_t verified = 0;
  std::size_t given_up = 0;
  std::size_t lost = 0;
};

}  // namespace velt::faults

#endif
