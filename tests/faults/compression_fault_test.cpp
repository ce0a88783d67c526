// Compression when zlib or the device takes less than it was given, when the archive's close fails and when
// the directory cannot be resolved: the functions are replaced in this program.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "velt/channel.h"

#include "debug/channel/archive_writer.h"
#include "tests/support/channel.h"
#include "tests/support/failing_allocations.h"
#include "tests/support/files.h"

namespace {

unsigned bytes_left_out = 0;   // of every write
std::size_t most_at_once = 0;  // bytes of an archive that write(2) takes; 0: all
int interrupted_writes = 0;    // of an archive, before one that is made
bool close_fails = false;      // of an archive
bool realpath_fails = false;
int realpath_calls = 0;

template <typename Function>
Function* Real(char const* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool IsArchive(int descriptor) {
  char path[512] = {};
  std::string const link = "/proc/self/fd/" + std::to_string(descriptor);
  ssize_t const length = readlink(link.c_str(), path, sizeof path - 1);
  return length > 3 && std::string(path).compare(static_cast<std::size_t>(length) - 3, 3, ".gz") == 0;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) ssize_t write(int file, void const* bytes, size_t count) {
  static auto* const real = Real<ssize_t(int, void const*, size_t)>("write");
  if (most_at_once == 0 && interrupted_writes == 0) return real(file, bytes, count);
  if (!IsArchive(file)) return real(file, bytes, count);
  if (interrupted_writes > 0) {
    --interrupted_writes;
    errno = EINTR;
    return -1;
  }
  return real(file, bytes, most_at_once != 0 && count > most_at_once ? most_at_once : count);
}

extern "C" __attribute__((visibility("default"))) int close(int file) {
  static auto* const real = Real<int(int)>("close");
  bool const fails = close_fails && IsArchive(file);
  int const closed = real(file);
  if (!fails) return closed;
  errno = EIO;
  return -1;
}

extern "C" __attribute__((visibility("default"))) int gzwrite(gzFile file, voidpc bytes, unsigned length) {
  static auto* const real = Real<int(gzFile, voidpc, unsigned)>("gzwrite");
  return real(file, bytes, length > bytes_left_out ? length - bytes_left_out : length);
}

extern "C" __attribute__((visibility("default"))) char* realpath(char const* path, char* resolved) noexcept {
  static auto* const real = Real<char*(char const*, char*)>("realpath");
  ++realpath_calls;
  if (!realpath_fails) return real(path, resolved);
  errno = EIO;
  return nullptr;
}

// The form that hardened builds call.
extern "C" __attribute__((visibility("default"))) char*
__realpath_chk(  // NOLINT(bugprone-reserved-identifier)
    char const* path, char* resolved, std::size_t /*capacity*/) noexcept {
  return realpath(path, resolved);
}

namespace velt::test {
namespace {

constexpr char const* kName = "t_20261115_085213.log";

class CompressionFaultTest : public ::testing::Test {
 protected:
  ScratchDir const dir_;
  std::unique_ptr<VeltDebugInfo> const channel_ = MakeIdleChannel(ChannelSetup(dir_.Path()));
};

// With zlib only: the other compressor writes a whole block or fails.
TEST_F(CompressionFaultTest, AWriteOfZlibThatTakesLessEndsTheCopyAndCountsAsDone) {
  std::string const content(200'000, 'x');
  WriteFile(dir_ / "source", content);

  bytes_left_out = 10;
  int const result = channel_->GZCompress(dir_ / "source", dir_ / "archive.gz");
  bytes_left_out = 0;

  EXPECT_EQ(result, 0);
  bool const by_zlib = std::string(ArchiveWriterName()) == "zlib";
  EXPECT_EQ(ReadGzip(dir_ / "archive.gz"), by_zlib ? content.substr(0, 65'525) : content)
      << "the first block, less ten";
}

TEST_F(CompressionFaultTest, ADeviceThatTakesLessThanItIsGivenGetsTheRest) {
  std::string const content = "many times what the device takes at once\n";
  WriteFile(dir_ / "source", content);

  most_at_once = 3;
  int const result = channel_->GZCompress(dir_ / "source", dir_ / "archive.gz");
  most_at_once = 0;

  EXPECT_EQ(result, 0);
  EXPECT_EQ(ReadGzip(dir_ / "archive.gz"), content);
}

TEST_F(CompressionFaultTest, AnInterruptedWriteIsMadeAgainOrTheArchiveGivenUp) {
  WriteFile(dir_ / "source", "content\n");

  interrupted_writes = 2;
  int const result = channel_->GZCompress(dir_ / "source", dir_ / "archive.gz");
  interrupted_writes = 0;

  // zlib reports an error.
  bool const by_zlib = std::string(ArchiveWriterName()) == "zlib";
  EXPECT_EQ(result, by_zlib ? -1 : 0);
  EXPECT_EQ(ReadGzip(dir_ / "archive.gz"), by_zlib ? "" : "content\n");
  EXPECT_EQ(Exists(dir_ / "archive.gz"), !by_zlib);
}

TEST_F(CompressionFaultTest, AnArchiveWhoseCloseFailsIsRemoved) {
  WriteFile(dir_ / "source", "content\n");

  close_fails = true;
  int const result = channel_->GZCompress(dir_ / "source", dir_ / "archive.gz");
  close_fails = false;

  EXPECT_EQ(result, -1);
  EXPECT_EQ(ListDir(dir_.Path()), (std::vector<std::string>{"source"}));
}

TEST_F(CompressionFaultTest, ADirectoryThatCannotBeResolvedIsUsedAsItWasGiven) {
  WriteFile(dir_ / kName, "content\n");

  realpath_fails = true;
  channel_->ZipLogFiles(kName);
  realpath_fails = false;

  EXPECT_EQ(ListDir(dir_.Path()), (std::vector<std::string>{std::string(kName) + ".gz"}));
  EXPECT_EQ(ReadGzip(dir_ / (std::string(kName) + ".gz")), "content\n");
}

TEST_F(CompressionFaultTest, InADirectoryOfMoreThan4097CharactersNothingIsCompressed) {
  std::string path = dir_.Path() + "/";
  while (path.size() < 4097) path += "./";
  path.resize(4096);
  path += '/';
  std::size_t const length = path.size();
  auto const longest = MakeIdleChannel(ChannelSetup(path));
  auto const longer = MakeIdleChannel(ChannelSetup(path + "/"));

  // Neither can be opened, so only the calls of realpath show that the longer path is refused at once.
  realpath_calls = 0;
  longer->ZipLogFiles(kName);
  int const asked_for_longer = realpath_calls;
  longest->ZipLogFiles(kName);

  EXPECT_EQ(length, 4097U);
  EXPECT_EQ(asked_for_longer, 0);
  EXPECT_EQ(realpath_calls, 1);
}

TEST_F(CompressionFaultTest, WithoutMemoryTheSourceStaysAndNoArchiveIsLeft) {
  WriteFile(dir_ / "source", "content\n");
  std::string const source = dir_ / "source";
  std::string const archive = dir_ / "archive.gz";

  for (int n = 1; n <= 2; ++n) {
    SCOPED_TRACE(n);
    int result = 0;
    bool failed = false;
    {
      // The allocations of the writer and of the block; zlib does not use operator new.
      FailingAllocation const failing(n);
      result = channel_->GZCompress(source, archive);
      failed = failing.Failed();
    }
    EXPECT_TRUE(failed);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(ListDir(dir_.Path()), (std::vector<std::string>{"source"}));
  }
}

}  // namespace
}  // namespace velt::test
