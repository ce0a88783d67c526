// Each system call that a channel makes for every file fails at its n-th time: once, from there on for a
// while, or from there on until the channel has ended.
//
// open and close of a new log file, open and close of both files of a compression, opendir, remove, write and
// close of an archive, and where zlib writes them its own two. The library renames nothing at all, so no
// rename can fail.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "debug/channel/archive_writer.h"
#include "tests/checker/report.h"
#include "tests/faults/nth_call.h"
#include "tests/faults/process_state.h"

namespace fs = std::filesystem;

namespace velt::faults {
namespace {

using checker::Report;
using shim::Action;
using shim::Call;

constexpr unsigned kOldKept = 4;
constexpr unsigned kOldSurplus = 10;

class NthCallFaultTest : public NthCall {
 protected:
  Lasts TheFault() const { return GetParam().lasts; }
  bool StopsOpening() const { return GetParam().call == Call::kCreate && TheFault() != Lasts::kOnce; }
  // Calls without a path are counted over all channels, so one channel at a time. Otherwise eight run side by
  // side: each needs two of the shim's 16 rules.
  std::size_t SideBySide() const {
    return GetParam().call == Call::kGzwrite || GetParam().call == Call::kGzclose ? 1 : 8;
  }

  static unsigned Recorded(Life const& life) { return life.n + kMoreThanTheFault; }

  // Log files of the run with the fault. The one that its last record opened has no record.
  unsigned FilesOfFirstRun(Life const& life) const {
    if (TheFault() != Lasts::kUntilTheEnd) return Recorded(life) + kAfterwards + 1;
    return StopsOpening() ? life.n - 1 : Recorded(life) + 1;
  }
  unsigned ArchivesInTheEnd(Life const& life) const { return FilesOfFirstRun(life) + kAfterwards; }

  // How many files become archives during the fault. For each file the log is opened and closed, then opened
  // as the source, and the archive opened and closed. The directory is listed three times for each file, and
  // three times at the start: for what to compress, for what to prune, and for the next name.
  unsigned ArchivesUnderTheFault(Life const& life) const {
    if (TheFault() == Lasts::kOnce) return Recorded(life);  // what failed is made up for at the next file
    if (GetParam().of_archives) return life.n - 1;          // one write and one close each
    switch (GetParam().call) {
      case Call::kCreate:
      case Call::kGzwrite:
        return life.n - 1;
      case Call::kOpen:
        return (life.n - 1) / 2;
      case Call::kClose:  // of the log file, its archive, and the log file again as the source
        return life.n / 3;
      case Call::kGzclose:
        return life.n / 2;
      case Call::kOpendir:
        return life.n < 2 ? 0 : (life.n - 2) / 3;
      default:  // kRemove: every archive is made, and its log stays
        return Recorded(life);
    }
  }

  static void Pack(std::string const& path) {
    std::string const text =
        "\xEF\xBB\xBF"
        "File create at time 2020-01-01 00:00:00. Current ospid is 1\nheader\n"
        "File close at UTC 2020-01-01 00:00:00\n";
    gzFile_s* const file = gzopen(path.c_str(), "wb");
    EXPECT_EQ(gzwrite(file, text.data(), static_cast<unsigned>(text.size())), static_cast<int>(text.size()));
    EXPECT_EQ(gzclose(file), Z_OK);
  }
  // Archives of earlier years without records, more than the limit: some are removed at the start, and one
  // for every new archive. Four are left in the end.
  void MakeOldArchives(Life& life) const {
    life.family.setup.keep = ArchivesInTheEnd(life) + kOldKept;
    fs::create_directory(life.family.setup.directory);
    std::string const packed = dir / "old.log.gz";
    if (!test::Exists(packed)) {
      Pack(packed);
      ASSERT_EQ(chmod(packed.c_str(), 0440), 0);
    }
    for (unsigned i = 0; i < life.family.setup.keep + kOldSurplus; ++i) {
      std::string const name = "/t_20200101_" + std::to_string(100'000 + i) + ".log.gz";
      ASSERT_EQ(link(packed.c_str(), (life.family.setup.directory + name).c_str()), 0);
    }
  }
  static std::size_t OwnArchives(Life const& life) {
    auto const all = life.Archives();
    return all.size() - test::FilesOf(life.family.setup.directory, "t_20200101_", ".log.gz").size();
  }

  void Begin(Life& life) {
    MakeOldArchives(life);
    char const* const logs = life.pattern.c_str();
    life.opened = shim::AddRule({Call::kCreate, Action::kDelay, 1, 0, 0, 0, logs});
    life.rule = AddRule(life, SideBySide() == 1);
    life.family.Start();
    EXPECT_TRUE(life.family.Trace(Recorded(life)));
  }
  // Reads no file and lists no directory: the rules would apply to these calls, too.
  void WaitForTheFault(Life const& life) {
    bool const is_create = GetParam().call == Call::kCreate;
    unsigned const all = Recorded(life) + 1 + (is_create ? 1 : 0);
    EXPECT_TRUE(test::WaitUntil([&] {
      return StopsOpening() ? life.Applied() >= 2 : shim::MatchedCalls(life.opened) >= all;
    })) << life.n;
    if (TheFault() == Lasts::kOnce) {
      EXPECT_EQ(life.Applied(), 1U) << life.n;
    } else {
      EXPECT_GE(life.Applied(), 2U) << life.n;
    }
  }
  void CheckInTheEnd(Life& life) {
    // Each of the n - 1 files has a record; the others were met while no file was open.
    bool const gives_up = StopsOpening() && TheFault() == Lasts::kUntilTheEnd;
    Report const report = Verify(life, gives_up ? Recorded(life) - (life.n - 1) : 0);
    EXPECT_EQ(report.archives, ArchivesInTheEnd(life) + kOldKept);
    EXPECT_EQ(report.files, report.archives + 1);
    // For an ordinary user a log beside its whole archive stays: the archive cannot be written again.
    bool const keeps_logs = GetParam().call == Call::kRemove && geteuid() != 0;
    EXPECT_TRUE(keeps_logs || LogNames(life.family.setup.directory, "t_").size() == 1);
  }

  void RunSideBySide(Lives const& lives) {
    for (auto const& life : lives) Begin(*life);
    for (auto const& life : lives) WaitForTheFault(*life);
    if (TheFault() == Lasts::kUntilTheEnd) {
      for (auto const& life : lives) life->family.drains = !StopsOpening();
      End(lives);
    }
    for (auto const& life : lives) failures += life->Applied();
    shim::ClearRules();
    for (auto const& life : lives) EXPECT_EQ(OwnArchives(*life), ArchivesUnderTheFault(*life)) << life->n;

    if (TheFault() != Lasts::kUntilTheEnd) {
      for (auto const& life : lives) EXPECT_TRUE(life->family.Trace(kAfterwards));
      for (auto const& life : lives) EXPECT_TRUE(life->family.WaitForEmptyQueue());
      End(lives);
    }
    RunAgain(lives);
    for (auto const& life : lives) {
      SCOPED_TRACE("call " + std::to_string(life->n));
      CheckInTheEnd(*life);
    }
  }
};

TEST_P(NthCallFaultTest, CostsNoMoreThanWhatIsMetWhileNoFileIsOpen) {
  std::size_t const before = DescriptorsWithoutOutputThreads();
  std::vector<unsigned> const places = Places();

  for (std::size_t first = 0; first < places.size(); first += SideBySide()) {
    test::ScratchDir const own;
    Lives lives;
    for (std::size_t i = first; i < std::min(places.size(), first + SideBySide()); ++i)
      lives.push_back(std::make_unique<Life>(own.Path(), places[i]));
    RunSideBySide(lives);
  }

  EXPECT_EQ(DescriptorsWithoutOutputThreads(), before);
  EXPECT_EQ(cases, static_cast<long long>(places.size()));
  Print();
}

std::vector<Fault> FaultsOfFiles() {
  bool const by_zlib = std::string(ArchiveWriterName()) == "zlib";
  std::vector<Fault> all;
  for (Lasts const lasts : {Lasts::kOnce, Lasts::kUntilMended, Lasts::kUntilTheEnd}) {
    all.insert(all.end(), {{"Create", Call::kCreate, EMFILE, lasts},
                           {"Open", Call::kOpen, EMFILE, lasts},
                           {"Close", Call::kClose, EIO, lasts},
                           {"Opendir", Call::kOpendir, EMFILE, lasts},
                           {"Remove", Call::kRemove, EPERM, lasts},
                           {"WriteOfAnArchive", Call::kWrite, ENOSPC, lasts, true},
                           {"CloseOfAnArchive", Call::kClose, EIO, lasts, true}});
    if (!by_zlib) continue;
    all.insert(all.end(),
               {{"Gzwrite", Call::kGzwrite, ENOSPC, lasts}, {"Gzclose", Call::kGzclose, EIO, lasts}});
  }
  return all;
}
INSTANTIATE_TEST_SUITE_P(File, NthCallFaultTest, testing::ValuesIn(FaultsOfFiles()), NameOf);
}  // namespace
}  // namespace velt::faults
