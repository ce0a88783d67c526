// Compression when zlib takes less than it was given and when the directory cannot be resolved: the functions
// are replaced in this program.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <zlib.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "velt/channel.h"

#include "tests/support/channel.h"
#include "tests/support/failing_allocations.h"
#include "tests/support/files.h"

namespace {

unsigned bytes_left_out = 0;  // of every write
bool realpath_fails = false;
int realpath_calls = 0;

template <typename Function>
Function* Real(char const* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

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

TEST_F(CompressionFaultTest, AWriteThatTakesLessEndsTheCopyAndCountsAsDone) {
  std::string const content(200'000, 'x');
  WriteFile(dir_ / "source", content);

  bytes_left_out = 10;
  int const result = channel_->GZCompress(dir_ / "source", dir_ / "archive.gz");
  bytes_left_out = 0;

  EXPECT_EQ(result, 0);
  EXPECT_EQ(ReadGzip(dir_ / "archive.gz"), content.substr(0, 65'525)) << "the first block, less ten";
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

  // Neither can be opened, so that only what is asked of the system tells them apart.
  realpath_calls = 0;
  longer->ZipLogFiles(kName);
  int const asked_for_longer = realpath_calls;
  longest->ZipLogFiles(kName);

  EXPECT_EQ(length, 4097U);
  EXPECT_EQ(asked_for_longer, 0);
  EXPECT_EQ(realpath_calls, 1);
}

TEST_F(CompressionFaultTest, WithoutMemoryForItsBlockTheSourceStays) {
  WriteFile(dir_ / "source", "content\n");
  std::string const source = dir_ / "source";
  std::string const archive = dir_ / "archive.gz";
  int result = 0;
  bool failed = false;
  {
    FailingAllocation const failing(1);  // zlib's own memory does not come from operator new
    result = channel_->GZCompress(source, archive);
    failed = failing.Failed();
  }

  EXPECT_TRUE(failed);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(ListDir(dir_.Path()), (std::vector<std::string>{"source"}));
}

}  // namespace
}  // namespace velt::test
