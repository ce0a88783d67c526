// A disk without room: while records are written, while a file is compressed, at the close of the archive;
// and a file that reaches the process's limit.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "debug/channel/archive_writer.h"
#include "tests/checker/report.h"
#include "tests/faults/scenario.h"
#include "tests/faults/shim/shim.h"

namespace fs = std::filesystem;

namespace velt::faults {
namespace {

using checker::Kind;
using checker::Report;
using shim::Action;
using shim::Call;

constexpr std::size_t kPage = 4096;

// A small disk that only this process sees and that disappears with it.
class SmallDisk {
 public:
  SmallDisk(std::string path, std::string const& size) : path_(std::move(path)) {
    fs::create_directory(path_);
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return;
    mounted_ = mount("velt", path_.c_str(), "tmpfs", 0, ("size=" + size).c_str()) == 0;
  }
  ~SmallDisk() {
    if (mounted_) umount2(path_.c_str(), MNT_DETACH);
  }
  SmallDisk(SmallDisk const&) = delete;
  SmallDisk& operator=(SmallDisk const&) = delete;

  bool Mounted() const { return mounted_; }

  // Fills the disk up to `pages` free pages; Free removes the filling again.
  void FillBut(std::size_t pages) const {
    int const file = open(Ballast().c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    std::string const page(kPage, 'x');
    std::size_t written = 0;
    while (write(file, page.data(), page.size()) == static_cast<ssize_t>(kPage)) ++written;
    ASSERT_GT(written, pages);
    EXPECT_EQ(ftruncate(file, static_cast<off_t>((written - pages) * kPage)), 0);
    close(file);
  }
  void Free() const { fs::remove(Ballast()); }

 private:
  std::string Ballast() const { return path_ + "/ballast"; }

  std::string path_;
  bool mounted_ = false;
};

class FullDiskTest : public Scenario {
 protected:
  // The outcomes are on another disk.
  Family OnDisk() const {
    Family family(dir.Path(), "disk/logs");
    family.producers.side_directory = dir / "side";
    family.witness_directory = dir / "witness";
    return family;
  }

  SmallDisk const disk{dir / "disk", "256k"};
};

#define SKIP_WITHOUT_A_DISK() \
  if (!disk.Mounted()) GTEST_SKIP() << "only root can mount a small disk"

TEST_F(FullDiskTest, RecordsThatDoNotFitAreGivenUpAndTheFirstOneAfterRoomReturnsIsInTheFile) {
  SKIP_WITHOUT_A_DISK();
  Family family = OnDisk();
  family.Start();
  ASSERT_TRUE(family.WaitForFile());
  disk.FillBut(10);
  EXPECT_TRUE(family.Trace(1'000)) << "a full disk refuses no caller";
  ASSERT_TRUE(family.WaitForEmptyQueue());
  ASSERT_TRUE(test::WaitUntil([&] { return fs::file_size(family.OpenLog()) >= 10 * kPage; }));
  unsigned const before = family.producer->Accepted();

  disk.Free();
  EXPECT_TRUE(family.Trace(2)) << "the first record may be written while the fault ends";
  EXPECT_TRUE(family.Trace(100));

  Report const report = family.Finish();
  EXPECT_TRUE(report.CleanBut({Kind::kMissing, Kind::kTorn})) << report.Text();
  EXPECT_EQ(report.Count(Kind::kMissing), 1U) << "one stretch";
  EXPECT_LE(report.Count(Kind::kTorn), 1U) << "one fault";
  EXPECT_GT(report.missing, 500U);
  EXPECT_LE(report.missing, before) << "none of those after the fault";
  EXPECT_EQ(report.Text().find("to S" + std::to_string(before)), std::string::npos);
  family.Print(report);
}

TEST_F(FullDiskTest, AFileThatCannotBeCompressedStaysAndIsCompressedOnceThereIsRoom) {
  SKIP_WITHOUT_A_DISK();
  Family family = OnDisk();
  family.setup.max_bytes = 60'000;  // the archive takes about 40,000
  family.expected.max_bytes = family.setup.max_bytes;
  family.Start();
  ASSERT_TRUE(family.WaitForFile());
  disk.FillBut(14 + 6);  // 60,000 bytes are 15 pages, one of which the file has
  test::WaitForNextSecond();
  std::string const first = family.OpenLog();
  while (family.OpenLog() == first && family.producer->Accepted() < 1'000) {
    ASSERT_TRUE(family.Trace());
    ASSERT_TRUE(family.WaitForEmptyQueue());
  }
  ASSERT_TRUE(test::WaitUntil([&] { return family.OpenLog() != first; }));

  EXPECT_TRUE(test::Exists(first));
  EXPECT_EQ(test::FilesOf(family.setup.directory, "t_", ".gz").size(), 0U) << "no broken archive";
  disk.Free();
  EXPECT_TRUE(family.Fill());
  Report const report = family.Finish();

  EXPECT_TRUE(report.Clean()) << report.Text();
  EXPECT_EQ(report.archives, 2U);
  EXPECT_FALSE(test::Exists(first));
  family.Print(report);
}

TEST_F(FullDiskTest, AnArchiveThatFailsOnlyAtItsCloseIsRemovedAndThePlainFileStays) {
  SKIP_WITHOUT_A_DISK();
  Family family = OnDisk();
  // Three pages; the archive is between one and two, which a compressor writes at its end only.
  family.setup.max_bytes = 11'500;
  family.expected.max_bytes = family.setup.max_bytes;
  family.Start();
  ASSERT_TRUE(family.WaitForFile());
  disk.FillBut(2 + 1);
  int const at_close = shim::AddRule({Call::kClose, Action::kDelay, 1, 0, 0, 0, "*.gz"});
  int const at_write = shim::AddRule({Call::kWrite, Action::kDelay, 1, 0, 0, 0, "*.gz"});
  test::WaitForNextSecond();
  std::string const first = family.OpenLog();
  while (family.OpenLog() == first && family.producer->Accepted() < 200) {
    ASSERT_TRUE(family.Trace());
    ASSERT_TRUE(family.WaitForEmptyQueue());
  }
  ASSERT_TRUE(test::WaitUntil([&] { return family.OpenLog() != first; }));

  EXPECT_EQ(shim::MatchedCalls(at_close), 1U);
  EXPECT_GE(shim::MatchedCalls(at_write), 1U);
  EXPECT_TRUE(test::Exists(first));
  EXPECT_EQ(test::FilesOf(family.setup.directory, "t_", ".gz").size(), 0U) << "no broken archive";
  disk.Free();
  EXPECT_TRUE(family.Fill());
  Report const report = family.Finish();

  EXPECT_TRUE(report.Clean()) << report.Text();
  EXPECT_EQ(report.archives, 2U);
  family.Print(report);
}

// The same without a small disk: each write of the archive fails, and each call that makes it.
class CompressionFaultTest : public Scenario {
 protected:
  // Rotates a file of `bytes` bytes under the rule, then once more without it. Returns whether the rule was
  // applied.
  bool Run(unsigned bytes, shim::Rule const& rule) {
    test::ScratchDir const own;
    Family family(own.Path());
    family.setup.max_bytes = bytes;
    family.expected.max_bytes = bytes;
    family.producers.length = [](unsigned) { return std::size_t{1'900}; };
    shim::ClearRules();
    family.Start();
    EXPECT_TRUE(family.WaitForFile());
    test::WaitForNextSecond();
    int const number = shim::AddRule(rule);
    std::string const first = family.OpenLog();
    while (family.OpenLog() == first && family.producer->Accepted() < 1'000) {
      EXPECT_TRUE(family.Trace());
      EXPECT_TRUE(family.WaitForEmptyQueue());
    }
    EXPECT_TRUE(test::WaitUntil([&] { return family.OpenLog() > first; }));
    bool const met = shim::AppliedCalls(number) != 0;
    EXPECT_EQ(test::Exists(first), met);
    EXPECT_EQ(test::Exists(first + ".gz"), !met);
    shim::ClearRules();
    EXPECT_TRUE(family.Fill());
    Report const report = family.Finish();
    EXPECT_TRUE(report.Clean()) << report.Text();
    EXPECT_EQ(report.archives, 2U);
    in_files += report.found;
    lost += report.missing;
    return met;
  }

  std::size_t in_files = 0;
  std::size_t lost = 0;
};

TEST_F(CompressionFaultTest, AnArchiveThatIsRefusedAtAnyOfItsWritesIsMadeAtTheNextRotation) {
  unsigned const bytes = Scaled(200'000U, 1'500'000U);  // an archive of more than one piece, and of 15
  unsigned const most = Scaled(2U, 50U);                // more writes than such an archive takes
  unsigned faults = 0;

  for (unsigned n = 1; n <= most; ++n) {
    SCOPED_TRACE("write " + std::to_string(n));
    if (!Run(bytes, {Call::kWrite, Action::kFail, n, 1, ENOSPC, 0, "*.log.gz"})) break;
    ++faults;
  }

  EXPECT_GE(faults, Scaled(2U, 15U));
  Figure({{"faults", faults},
          {"in_files", static_cast<long long>(in_files)},
          {"lost", static_cast<long long>(lost)}});
}

TEST_F(CompressionFaultTest, AFailingCallOfTheCompressorLeavesThePlainFile) {
  struct {
    Call call;
    char const* path;
  } const calls[] = {{Call::kWrite, "*.log.gz"},
                     {Call::kClose, "*.log.gz"},
                     {Call::kGzwrite, nullptr},  // these two functions are called by zlib's writer only
                     {Call::kGzclose, nullptr}};
  unsigned const made = std::string(ArchiveWriterName()) == "zlib" ? 4 : 2;
  unsigned faults = 0;
  for (unsigned i = 0; i < made; ++i) {
    SCOPED_TRACE(i);
    faults += Run(40'000, {calls[i].call, Action::kFail, 1, 1, EIO, 0, calls[i].path}) ? 1 : 0;
  }
  EXPECT_EQ(faults, made);
  Figure({{"faults", faults},
          {"in_files", static_cast<long long>(in_files)},
          {"lost", static_cast<long long>(lost)}});
}

using FileSizeLimitTest = Scenario;

TEST_F(FileSizeLimitTest, TheHostOutlivesItAndRecordsComeBackWithTheLimit) {
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  Family family(dir.Path());
  family.Start();
  ASSERT_TRUE(family.WaitForFile());

  rlimit const low{20'000, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &low), 0);
  bool const accepted = family.Trace(500);
  bool const drained = family.WaitForEmptyQueue();
  bool const outgrown = test::WaitUntil([&] { return fs::file_size(family.OpenLog()) == 20'000; });
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_TRUE(family.Trace(101));

  EXPECT_TRUE(accepted && drained && outgrown);
  Report const report = family.Finish();
  EXPECT_TRUE(report.CleanBut({Kind::kMissing, Kind::kTorn})) << report.Text();
  EXPECT_EQ(report.Count(Kind::kTorn), 1U) << report.Text();
  EXPECT_EQ(report.Count(Kind::kMissing), 1U) << report.Text();
  EXPECT_GT(report.missing, 300U);
  EXPECT_LE(report.missing, 501U) << "the last of the 500 may come while the limit is lifted";
  EXPECT_GE(report.found, 200U);
  family.Print(report);
}

}  // namespace
}  // namespace velt::faults
