// Hosts that are killed, at any moment and at each step of a rotation, and started again.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "tests/checker/outcomes.h"
#include "tests/checker/report.h"
#include "tests/faults/host.h"
#include "tests/faults/killed_family.h"
#include "tests/faults/scale.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace velt::faults {
namespace {

using checker::Kind;
using checker::Report;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr unsigned kProducers = 2;  // of each host

// --- at each step ---

struct Step {
  char const* name;
  char const* rule;        // where the host stops itself
  unsigned keep;           // archives
  unsigned earlier_files;  // made by earlier runs, so that there is something to prune
  bool ordinary_user = false;
};

void PrintTo(Step const& step, std::ostream* out) { *out << step.name; }  // test names without addresses
std::string NameOf(testing::TestParamInfo<Step> const& step) { return step.param.name; }

class KillAtStepTest : public testing::TestWithParam<Step> {};

TEST_P(KillAtStepTest, EveryRecordThatHadReachedTheFileIsThereAfterARestart) {
  Step const step = GetParam();
  unsigned const rounds = Scaled(1U, 20U);
  std::size_t verified = 0;
  std::size_t lost = 0;
  std::size_t with_queue = 0;

  for (unsigned round = 0; round < rounds; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    test::ScratchDir const dir;
    KilledFamily family(dir.Path());
    family.keep = step.keep;
    family.max_bytes = 150'000;
    if (step.ordinary_user) family.BecomeOrdinaryUser(dir.Path());
    for (unsigned i = 0; i < step.earlier_files; ++i) ASSERT_TRUE(family.RunInOrder(20));

    family.Start({"records=2000", "pause_us=3000"}, step.rule);
    ASSERT_TRUE(family.WaitUntilStopped()) << "the step was never reached";
    family.Kill();
    Report const killed = family.Look();
    EXPECT_TRUE(killed.CleanBut({Kind::kBrokenArchive, Kind::kMode})) << killed.Text();
    EXPECT_GE(killed.found, 20U);

    ASSERT_TRUE(family.RunInOrder(20));
    Report const report = family.Look();

    EXPECT_TRUE(report.Clean()) << report.Text();
    EXPECT_TRUE(report.Accounted()) << report.Text();
    EXPECT_EQ(KilledFamily::LostSince(killed, report), 0U);
    family.ExpectLastRunCounted(report, kProducers);
    // Only root can write a read-only archive again: both files stay.
    if (step.ordinary_user) {
      EXPECT_EQ(family.PlainFilesWithArchive(), 1U);
    }
    EXPECT_TRUE(report.pruned == 0 || step.earlier_files != 0) << report.Text();
    verified += report.found;
    lost += report.missing + KilledFamily::LostSince(killed, report);
    with_queue += report.lost_with_queue;
  }
  Figure({{"kills", rounds},
          {"records_verified", static_cast<long long>(verified)},
          {"lost", static_cast<long long>(lost)},
          {"lost_with_queue", static_cast<long long>(with_queue)}});
}

INSTANTIATE_TEST_SUITE_P(
    Kill, KillAtStepTest,
    testing::Values(Step{"WhileTracing", "write,action=stop,first=200,path=*.log", 30, 0},
                    Step{"AfterClose", "opendir,action=stop,first=3", 30, 0},
                    Step{"WhenTheArchiveIsOpened", "open,action=stop,path=*.log.gz", 30, 0},
                    Step{"AtTheFirstByteOfTheArchive", "write,action=stop,first=1,path=*.log.gz", 30, 0},
                    Step{"InTheMiddleOfACompression", "write,action=stop,first=6,path=*.log.gz", 30, 0},
                    Step{"AtTheCloseOfTheArchive", "close,action=stop,path=*.log.gz", 30, 0},
                    Step{"BeforeThePlainFileIsRemoved", "remove,action=stop,path=*.log", 30, 0},
                    Step{"BeforeAnOrdinaryUsersPlainFileIsRemoved", "remove,action=stop,path=*.log", 30, 0,
                         true},
                    Step{"WhilePruning", "remove,action=stop,first=1,path=*.log.gz", 1, 3},
                    Step{"BetweenTwoPrunedArchives", "remove,action=stop,first=2,path=*.log.gz", 1, 3},
                    Step{"BeforeTheNextFileIsOpened", "create,action=stop,first=2,path=*.log", 30, 0}),
    NameOf);

// --- at any moment ---

// One directory whose host is killed and started again ten times, and then ends in order. One loop calls Step
// of many of these in turn.
class RandomKills {
 public:
  RandomKills(unsigned seed, unsigned count) : random_(seed), kills_left_(count) { Begin(); }

  bool Done() const { return done_; }

  // Kills or starts the host, if that is due.
  void Step() {
    if (family_ != nullptr) family_->LinkNow();
    if (Clock::now() < due_) return;
    if (!running_) return Begin();
    if (last_) return EndInOrder();
    family_->Kill();
    running_ = false;
    ++kills;
    Report const report = family_->Look();
    EXPECT_TRUE(report.CleanBut({Kind::kBrokenArchive, Kind::kMode, Kind::kTorn})) << report.Text();
    EXPECT_TRUE(report.Accounted()) << report.Text();
    EXPECT_LE(report.Count(Kind::kTorn), kills_in_series_ + 1) << report.Text();
    CountLost(report);
    before_ = report;
    ++kills_in_series_;
    --kills_left_;
    due_ = Clock::now();  // started again at once
  }

  unsigned kills = 0;
  std::size_t verified = 0;
  std::size_t lost = 0;
  std::size_t with_queue = 0;
  std::size_t unknown = 0;

 private:
  static constexpr unsigned kKillsInSeries = 10;

  void Begin() {
    if (family_ == nullptr) {
      dir_ = std::make_unique<test::ScratchDir>();
      family_ = std::make_unique<KilledFamily>(dir_->Path());
      family_->max_bytes = 300'000;  // more than a second of records
      before_ = Report();
      kills_in_series_ = 0;
    }
    last_ = kills_in_series_ == kKillsInSeries || kills_left_ == 0;
    if (last_) {
      family_->Start({"records=50"}, "");
      due_ = Clock::now();
    } else {
      family_->Start({"records=20000", "pause_us=2000"}, "");
      // Most lives are so short that they end within the start and its compression.
      unsigned const longest = random_() % 4 == 0 ? 2'500 : 300;
      due_ = Clock::now() + milliseconds(random_() % longest);
    }
    running_ = true;
  }

  void CountLost(Report const& report) {
    std::size_t const since = KilledFamily::LostSince(before_, report);
    EXPECT_EQ(since, 0U) << report.Text();
    lost += since;
  }

  void EndInOrder() {
    if (!family_->HasEnded()) return;
    running_ = false;
    Report const report = family_->Look();
    EXPECT_TRUE(report.CleanBut({Kind::kTorn})) << report.Text();
    EXPECT_TRUE(report.Accounted()) << report.Text();
    CountLost(report);
    family_->ExpectLastRunCounted(report, kProducers);
    lost += report.missing;
    verified += report.found;
    with_queue += report.lost_with_queue;
    unknown += report.unknown;
    family_.reset();
    dir_.reset();
    done_ = kills_left_ == 0;
    due_ = Clock::now();
  }

  std::minstd_rand random_;
  unsigned kills_left_;
  unsigned kills_in_series_ = 0;
  bool running_ = false;
  bool last_ = false;
  bool done_ = false;
  Clock::time_point due_ = Clock::now();
  std::unique_ptr<test::ScratchDir> dir_;
  std::unique_ptr<KilledFamily> family_;
  Report before_;
};

TEST(KillTest, AtAnyMomentNoRecordThatHadReachedTheFileIsLostAndEveryArchiveIsWholeInTheEnd) {
  unsigned const places = Scaled(6U, 20U);
  unsigned const kills_each = Scaled(3U, 50U);
  std::vector<std::unique_ptr<RandomKills>> all;
  for (unsigned i = 0; i < places; ++i) all.push_back(std::make_unique<RandomKills>(i + 1, kills_each));

  bool more = true;
  while (more) {
    more = false;
    for (auto& one : all) {
      if (one->Done()) continue;
      more = true;
      one->Step();
    }
    usleep(5'000);
  }

  long long kills = 0;
  long long verified = 0;
  long long lost = 0;
  long long with_queue = 0;
  long long unknown = 0;
  for (auto const& one : all) {
    kills += one->kills;
    verified += static_cast<long long>(one->verified);
    lost += static_cast<long long>(one->lost);
    with_queue += static_cast<long long>(one->with_queue);
    unknown += static_cast<long long>(one->unknown);
  }
  EXPECT_EQ(kills, places * kills_each);
  EXPECT_GT(verified, kills);
  Figure({{"kills", kills},
          {"records_verified", verified},
          {"lost", lost},
          {"lost_with_queue", with_queue},
          {"cut_off_calls", unknown}});
}

}  // namespace
}  // namespace velt::faults
