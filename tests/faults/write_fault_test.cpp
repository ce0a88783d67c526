// A device that refuses writes: with each error, at each write, once and for a while.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <ostream>
#include <string>
#include <vector>

#include "tests/checker/report.h"
#include "tests/faults/scenario.h"
#include "tests/faults/shim/shim.h"

namespace velt::faults {
namespace {

using checker::Kind;
using checker::Report;
using shim::Action;
using shim::Call;

// Writes of a channel before its first record: the byte order mark, the creation line, the header text, and
// the two lines of its start. Then one for each record.
constexpr unsigned kHeadWrites = 3;
constexpr unsigned kWritesBeforeRecords = 5;
constexpr unsigned kRecords = 60;
constexpr unsigned kRecordsAfter = 10;

struct Fault {
  char const* name;
  Action action;
  int error;
  bool loses;  // whether the refused write is lost
};

void PrintTo(Fault const& fault, std::ostream* out) { *out << fault.name; }  // test names without addresses
std::string NameOf(testing::TestParamInfo<Fault> const& info) { return info.param.name; }

class WriteFaultTest : public Scenario, public testing::WithParamInterface<Fault> {
 protected:
  static std::vector<unsigned> Places() {
    if (!FullScale()) return {1, 2, 3, 4, 5, 6, 7, 30, 50};
    std::vector<unsigned> all;
    for (unsigned n = 1; n <= 50; ++n) all.push_back(n);
    return all;
  }

  static shim::Rule RuleFor(Fault const& fault, unsigned first, unsigned count) {
    return {Call::kWrite, fault.action, first, count, fault.error, 0, "*/logs?/t_*.log"};
  }

  // A channel with the rule, from its n-th write on: 60 records, then 10 more without the rule.
  Report Run(Family& family, shim::Rule const& rule) {
    shim::ClearRules();
    int const number = shim::AddRule(rule);
    family.Start();
    EXPECT_TRUE(family.Trace(kRecords));
    bool const stalls = rule.error == EINTR && rule.count == 0;
    unsigned const seen = stalls ? rule.first + 2 : kWritesBeforeRecords + kRecords;
    EXPECT_TRUE(test::WaitUntil([=] { return shim::MatchedCalls(number) >= seen; }))
        << shim::MatchedCalls(number);
    applied += shim::AppliedCalls(number);
    shim::ClearRules();
    EXPECT_TRUE(family.Trace(kRecordsAfter));
    return family.Finish();
  }

  // Findings of a refused head or start line are allowed: they are not about records.
  static std::vector<Kind> AllowedFor(unsigned n, bool loses) {
    if (!loses) return {};
    std::vector<Kind> allowed = {Kind::kMissing};
    if (n <= kHeadWrites) allowed.insert(allowed.end(), {Kind::kNoHeader, Kind::kWrongLine});
    return allowed;
  }
  static bool OnlyOf(Report const& report, std::vector<Kind> const& allowed) {
    for (auto const& finding : report.findings)
      if (std::find(allowed.begin(), allowed.end(), finding.kind) == allowed.end()) return false;
    return true;
  }

  std::size_t applied = 0;
};

TEST_P(WriteFaultTest, OnceAtTheNthWriteItCostsThatWriteAtMost) {
  Fault const fault = GetParam();
  std::size_t in_files = 0;
  std::size_t given_up = 0;

  for (unsigned const n : Places()) {
    SCOPED_TRACE("write " + std::to_string(n));
    test::ScratchDir const own;
    Family family(own.Path(), "logs1");

    Report const report = Run(family, RuleFor(fault, n, 1));

    bool const hits_record = fault.loses && n > kWritesBeforeRecords;
    EXPECT_EQ(report.missing, hits_record ? 1U : 0U) << report.Text();
    EXPECT_TRUE(OnlyOf(report, AllowedFor(n, fault.loses))) << report.Text();
    if (hits_record) {
      std::string const which = " S" + std::to_string(n - kWritesBeforeRecords - 1) + " to";
      EXPECT_NE(report.Text().find(which), std::string::npos) << report.Text();
    }
    in_files += report.found;
    given_up += report.missing;
  }

  EXPECT_EQ(applied, Places().size()) << "each fault was met";
  Figure({{"faults", static_cast<long long>(applied)},
          {"in_files", static_cast<long long>(in_files)},
          {"given_up", static_cast<long long>(given_up)}});
}

TEST_P(WriteFaultTest, FromTheNthWriteOnItEndsWithTheFault) {
  Fault const fault = GetParam();
  std::size_t in_files = 0;
  std::size_t given_up = 0;

  for (unsigned const n : Places()) {
    SCOPED_TRACE("write " + std::to_string(n));
    test::ScratchDir const own;
    Family family(own.Path(), "logs1");

    Report const report = Run(family, RuleFor(fault, n, 0));

    unsigned const written_before = n <= kWritesBeforeRecords ? 0 : n - kWritesBeforeRecords - 1;
    EXPECT_EQ(report.missing, fault.loses ? kRecords - written_before : 0U) << report.Text();
    EXPECT_TRUE(OnlyOf(report, AllowedFor(n, fault.loses))) << report.Text();
    EXPECT_EQ(report.found, kRecords + kRecordsAfter - report.missing) << "all that came after the fault";
    in_files += report.found;
    given_up += report.missing;
  }

  EXPECT_GE(applied, Places().size());
  Figure({{"faults", static_cast<long long>(Places().size())},
          {"in_files", static_cast<long long>(in_files)},
          {"given_up", static_cast<long long>(given_up)}});
}

INSTANTIATE_TEST_SUITE_P(Device, WriteFaultTest,
                         testing::Values(Fault{"ENOSPC", Action::kFail, ENOSPC, true},
                                         Fault{"EIO", Action::kFail, EIO, true},
                                         Fault{"EDQUOT", Action::kFail, EDQUOT, true},
                                         Fault{"EINTR", Action::kFail, EINTR, false},
                                         Fault{"ShortWrite", Action::kShort, 0, false}),
                         NameOf);

using TornHeadTest = Scenario;

TEST_F(TornHeadTest, AWriteThatIsTakenInPartAndThenRefusedLeavesOneTornHeadAndNoRecordTwice) {
  unsigned const last = Scaled(9U, 50U);
  std::size_t torn = 0;
  std::size_t given_up = 0;

  for (unsigned n = kWritesBeforeRecords + 1; n <= last; ++n) {
    SCOPED_TRACE("write " + std::to_string(n));
    test::ScratchDir const own;
    Family family(own.Path());
    shim::ClearRules();
    shim::AddRule({Call::kWrite, Action::kShort, n, 1, 0, 0, "*/logs/t_*.log"});
    int const refusal = shim::AddRule({Call::kWrite, Action::kFail, n + 1, 1, ENOSPC, 0, "*/logs/t_*.log"});
    family.Start();

    EXPECT_TRUE(family.Trace(kRecords));
    Report const report = family.Finish();

    EXPECT_EQ(shim::AppliedCalls(refusal), 1U);
    EXPECT_TRUE(report.CleanBut({Kind::kTorn, Kind::kMissing})) << report.Text();
    EXPECT_EQ(report.Count(Kind::kTorn), 1U) << report.Text();
    EXPECT_EQ(report.missing, 1U) << report.Text();
    torn += report.Count(Kind::kTorn);
    given_up += report.missing;
  }
  Figure({{"faults", static_cast<long long>(last - kWritesBeforeRecords)},
          {"torn", static_cast<long long>(torn)},
          {"given_up", static_cast<long long>(given_up)}});
}

}  // namespace
}  // namespace velt::faults
