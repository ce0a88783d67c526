// Compressing one file, with every result that this can have.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "velt/channel.h"

#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace fs = std::filesystem;

namespace velt::test {
namespace {

constexpr char const* kEmptyArchive = "";  // what unpacking an empty archive gives

// Bytes of every value, NUL included, that do not compress; the same for the same size.
std::string Noise(std::size_t size) {
  std::string text(size, '\0');
  std::uint32_t state = 12345;
  for (char& c : text) {
    state = state * 1664525U + 1013904223U;
    c = static_cast<char>(state >> 24);
  }
  return text;
}

// Lines as servers write them, the same for the same count.
std::string Lines(unsigned count) {
  std::string text;
  for (unsigned i = 0; i < count; ++i)
    text += "GET /api/v2/orders/" + std::to_string(i * 2'654'435'761U) + " 200 in " +
            std::to_string(i % 977) + " ms\n";
  return text;
}

// A compression that reads from a pipe: it runs until the pipe is closed.
class RunningCompression {
 public:
  RunningCompression(VeltDebugInfo const& channel, std::string const& source, std::string const& archive)
      : made_(mkfifo(source.c_str(), 0600) == 0),
        thread_([&channel, source, archive, this] { result_ = channel.GZCompress(source, archive); }) {
    int const writer = open(source.c_str(), O_WRONLY | O_CLOEXEC);
    writer_ = fcntl(writer, F_DUPFD_CLOEXEC, 100);
    close(writer);
    (void)!write(writer_, "text", 4);
    both_open_ = WaitUntil([&] { return Exists(archive); }, std::chrono::seconds(10));
  }
  ~RunningCompression() { Finish(); }
  RunningCompression(RunningCompression const&) = delete;
  RunningCompression& operator=(RunningCompression const&) = delete;

  bool BothOpen() const { return made_ && both_open_; }
  int Finish() {
    if (thread_.joinable()) {
      close(writer_);
      thread_.join();
    }
    return result_;
  }

 private:
  bool made_;
  bool both_open_ = false;
  int writer_ = -1;
  int result_ = -2;
  std::thread thread_;
};

class GzipTest : public ::testing::Test {
 protected:
  int Compress() const { return channel->GZCompress(source, archive); }

  ScratchDir const dir;
  std::unique_ptr<VeltDebugInfo> const channel = MakeIdleChannel(ChannelSetup(dir.Path()));
  std::string const source = dir / "source";
  std::string const archive = dir / "archive.gz";
};

TEST_F(GzipTest, AnArchiveUnpacksToItsSource) {
  for (std::size_t const size : {1U, 2U, 65'534U, 65'535U, 65'536U, 131'070U, 131'071U, 1'000'000U}) {
    std::string const content = Noise(size);
    WriteFile(source, content);

    int const result = Compress();

    EXPECT_EQ(result, 0) << size;
    EXPECT_TRUE(ReadGzip(archive) == content) << size;
    EXPECT_TRUE(ReadFile(source) == content) << size;
  }
}

TEST_F(GzipTest, AnArchiveIsGzipDataAndSmallerThanARepetitiveSource) {
  WriteFile(source, std::string(1'000'000, 'a'));

  ASSERT_EQ(Compress(), 0);

  std::string const packed = ReadFile(archive);
  EXPECT_EQ(packed.substr(0, 3), "\x1F\x8B\x08");
  EXPECT_LT(packed.size(), 10'000U);
}

TEST_F(GzipTest, GzipZcatAndPythonReadAnArchiveOfEverySizeAsOneMember) {
  for (std::string const& content :
       {std::string("x"), Noise(65'536), Noise(3'000'000), Lines(20'000), Lines(1)}) {
    SCOPED_TRACE(content.size());
    WriteFile(source, content);
    ASSERT_EQ(Compress(), 0);

    EXPECT_EQ(RunProgram({"gzip", "-t", archive}).exit_code, 0);
    EXPECT_TRUE(RunProgram({"zcat", archive}).out == content);
    EXPECT_TRUE(
        RunProgram({"python3", "-c",
                    "import gzip, sys; sys.stdout.buffer.write(gzip.open(sys.argv[1]).read())", archive})
            .out == content);
    Outcome const members = RunProgram(
        {"python3", "-c",
         "import sys, zlib; d = zlib.decompressobj(31); d.decompress(open(sys.argv[1], 'rb').read()); "
         "print(d.eof, len(d.unused_data))",
         archive});
    EXPECT_EQ(members.out, "True 0\n") << "one whole gzip member, and nothing behind it";
  }
}

TEST_F(GzipTest, ANewArchiveHasTheModeThatTheUmaskLeaves) {
  WriteFile(source, "content");
  mode_t const before = umask(0027);

  int const result = Compress();

  umask(before);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(ModeOf(archive), 0640U);
}

TEST_F(GzipTest, ALargeSourceTakesNoMoreMemoryThanASmallOne) {
  WriteFile(source, "");
  fs::resize_file(source, 100'000'000);

  Outcome const child = RunInChild([this] {
    rusage before{};
    rusage after{};
    getrusage(RUSAGE_SELF, &before);
    int const result = Compress();
    getrusage(RUSAGE_SELF, &after);
    return result == 0 && after.ru_maxrss - before.ru_maxrss < 20'000 ? 0 : 1;
  });

  EXPECT_EQ(child.exit_code, 0);
}

TEST_F(GzipTest, AProgramThatTheHostStartsMeanwhileInheritsNeitherFile) {
  RunningCompression running(*channel, source, archive);
  ASSERT_TRUE(running.BothOpen());

  std::string const inherited = RunProgram({"ls", "-l", "/proc/self/fd"}).out;

  EXPECT_NE(inherited.find(" 0 -> "), std::string::npos) << inherited;
  EXPECT_EQ(inherited.find(source), std::string::npos) << inherited;
  EXPECT_EQ(inherited.find(archive), std::string::npos) << inherited;
  EXPECT_EQ(running.Finish(), 0);
  EXPECT_EQ(ReadGzip(archive), "text");
}

TEST_F(GzipTest, InAHostWithoutStandardDescriptorsNeitherFileBecomesOne) {
  Outcome const child = RunInChild([this] {
    for (int standard = 0; standard < 3; ++standard) close(standard);
    RunningCompression running(*channel, source, archive);
    if (!running.BothOpen()) return 2;
    // An open may use one for a moment.
    auto const none = [] {
      for (int standard = 0; standard < 3; ++standard)
        if (fcntl(standard, F_GETFD) != -1) return false;
      return true;
    };
    bool const kept_free = WaitUntil(none, std::chrono::seconds(10));
    return kept_free && running.Finish() == 0 ? 0 : 1;
  });

  EXPECT_EQ(child.exit_code, 0);
  EXPECT_EQ(ReadGzip(archive), "text");
}

TEST_F(GzipTest, AnExistingDestinationIsReplaced) {
  WriteFile(source, "new");
  WriteFile(archive, std::string(10'000, 'o'));

  ASSERT_EQ(Compress(), 0);

  EXPECT_EQ(ReadGzip(archive), "new");
}

TEST_F(GzipTest, AMissingSourceFailsAndMakesNoArchive) {
  EXPECT_EQ(Compress(), -1);
  EXPECT_FALSE(Exists(archive));
}

TEST_F(GzipTest, EmptyNamesFail) {
  WriteFile(source, "content");

  EXPECT_EQ(channel->GZCompress("", archive), -1);
  EXPECT_EQ(channel->GZCompress(source, ""), -1);
  EXPECT_EQ(ListDir(dir.Path()), std::vector<std::string>{"source"});
}

TEST_F(GzipTest, AnEmptySourceFailsAndLeavesNoArchive) {
  WriteFile(source, "");

  EXPECT_EQ(Compress(), -1);
  EXPECT_FALSE(Exists(archive));
  EXPECT_TRUE(Exists(source));
}

TEST_F(GzipTest, AnEmptySourceRemovesADestinationThatWasThere) {
  WriteFile(source, "");
  WriteFile(archive, "older");

  EXPECT_EQ(Compress(), -1);
  EXPECT_FALSE(Exists(archive));
}

TEST_F(GzipTest, ADirectoryAsSourceIsDoneWithAnEmptyArchive) {
  fs::create_directory(source);

  EXPECT_EQ(Compress(), 0);
  EXPECT_TRUE(Exists(archive));
  EXPECT_EQ(ReadFile(archive).substr(0, 2), "\x1F\x8B");
  EXPECT_EQ(ReadGzip(archive), kEmptyArchive);
  EXPECT_EQ(RunProgram({"gzip", "-t", archive}).exit_code, 0) << "a whole archive of nothing";
  EXPECT_TRUE(fs::is_directory(source));
}

TEST_F(GzipTest, ADestinationInAMissingDirectoryFails) {
  WriteFile(source, "content");

  EXPECT_EQ(channel->GZCompress(source, dir / "missing/archive.gz"), -1);
  EXPECT_EQ(ReadFile(source), "content");
}

TEST_F(GzipTest, ADestinationThatIsADirectoryFailsAndStays) {
  WriteFile(source, "content");
  fs::create_directory(archive);

  EXPECT_EQ(Compress(), -1);
  EXPECT_TRUE(fs::is_directory(archive));
  EXPECT_EQ(ReadFile(source), "content");
}

TEST_F(GzipTest, AnOrdinaryUserCannotReplaceAReadOnlyArchive) {
  WriteFile(source, "new");
  WriteFile(archive, "older");
  chmod(archive.c_str(), 0440);
  chmod(dir.Path().c_str(), 0777);

  Outcome const child = RunInChild([this] {
    if (geteuid() == 0 && setuid(65534) != 0) return 2;
    return Compress() == -1 ? 0 : 1;
  });

  EXPECT_EQ(child.exit_code, 0);
  EXPECT_EQ(ReadFile(archive), "older");
  EXPECT_EQ(ReadFile(source), "new");
}

TEST_F(GzipTest, AnOrdinaryUserCannotCompressAnUnreadableSource) {
  WriteFile(source, "content");
  chmod(source.c_str(), 0000);
  chmod(dir.Path().c_str(), 0777);

  Outcome const child = RunInChild([this] {
    if (geteuid() == 0 && setuid(65534) != 0) return 2;
    return Compress() == -1 ? 0 : 1;
  });

  EXPECT_EQ(child.exit_code, 0);
  EXPECT_FALSE(Exists(archive));
}

TEST_F(GzipTest, AFullDeviceDuringTheWritesFailsAndTheArchiveIsRemoved) {
  WriteFile(source, Noise(1'000'000));
  fs::create_symlink("/dev/full", archive);

  EXPECT_EQ(Compress(), -1);
  EXPECT_FALSE(Exists(archive)) << "the link, not the device";
  EXPECT_TRUE(Exists("/dev/full"));
  EXPECT_TRUE(ReadFile(source) == Noise(1'000'000));
}

TEST_F(GzipTest, AFullDeviceAtTheCloseFailsAndTheArchiveIsRemoved) {
  WriteFile(source, "so little that it is written by the close only");
  fs::create_symlink("/dev/full", archive);

  EXPECT_EQ(Compress(), -1);
  EXPECT_FALSE(Exists(archive));
  EXPECT_TRUE(Exists(source));
}

TEST_F(GzipTest, ADestinationThatIsAPipeStaysWhenCompressionFails) {
  WriteFile(source, "");
  ASSERT_EQ(mkfifo(archive.c_str(), 0600), 0);
  int const reader = open(archive.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_NE(reader, -1);

  EXPECT_EQ(Compress(), -1);
  EXPECT_TRUE(Exists(archive));
  close(reader);
}

TEST_F(GzipTest, ADeviceThatFillsUpHalfwayFailsAndTheArchiveIsRemoved) {
  WriteFile(source, Noise(1'000'000));
  auto const handler = std::signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  rlimit const half{300'000, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &half);

  int const result = Compress();

  setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handler);
  EXPECT_EQ(result, -1);
  EXPECT_FALSE(Exists(archive));
  EXPECT_TRUE(ReadFile(source) == Noise(1'000'000));
}

TEST_F(GzipTest, ASourceThatIsGzipDataIsUnpackedFirst) {
  WriteFile(source, "inner text");
  ASSERT_EQ(channel->GZCompress(source, dir / "packed"), 0);

  int const result = channel->GZCompress(dir / "packed", archive);

  EXPECT_EQ(result, 0);
  EXPECT_EQ(ReadGzip(archive), "inner text");
}

TEST_F(GzipTest, ASourceThatOnlyBeginsLikeGzipDataGivesAnEmptyArchive) {
  WriteFile(source, std::string("\x1F\x8B\x08\x00", 4) + std::string(6, '\0') + std::string(1000, '\xFF'));

  EXPECT_EQ(Compress(), 0);
  EXPECT_TRUE(Exists(archive));
  EXPECT_EQ(ReadGzip(archive), kEmptyArchive);
}

TEST_F(GzipTest, ASourceThatCannotBeReadToItsEndGivesAnArchiveOfItsHead) {
  std::string const content = Noise(400'000);
  WriteFile(source, content);
  ASSERT_EQ(channel->GZCompress(source, dir / "packed"), 0);
  fs::resize_file(dir / "packed", 200'000);

  int const result = channel->GZCompress(dir / "packed", archive);

  EXPECT_EQ(result, 0);
  std::string const kept = ReadGzip(archive);
  EXPECT_GE(kept.size(), 65'535U);
  EXPECT_LT(kept.size(), 400'000U);
  EXPECT_TRUE(content.compare(0, kept.size(), kept) == 0);
}

class ZipLogFilesTest : public ::testing::Test {
 protected:
  ScratchDir const dir;
  std::unique_ptr<VeltDebugInfo> const channel = MakeIdleChannel(ChannelSetup(dir.Path()));
};

TEST_F(ZipLogFilesTest, TheFileIsReplacedByAReadOnlyArchive) {
  WriteFile(dir / "any name", "content");

  channel->ZipLogFiles("any name");

  EXPECT_EQ(ListDir(dir.Path()), std::vector<std::string>{"any name.gz"});
  EXPECT_EQ(ReadGzip(dir / "any name.gz"), "content");
  EXPECT_EQ(ModeOf(dir / "any name.gz"), 0440U);
}

TEST_F(ZipLogFilesTest, AnEmptyNameIsNothingToDo) {
  WriteFile(dir / "file", "content");

  channel->ZipLogFiles("");

  EXPECT_EQ(ListDir(dir.Path()), std::vector<std::string>{"file"});
  EXPECT_FALSE(Exists(dir / ".gz"));
}

TEST_F(ZipLogFilesTest, AMissingFileIsNothingToDo) {
  channel->ZipLogFiles("missing");

  EXPECT_EQ(ListDir(dir.Path()), std::vector<std::string>{});
}

TEST_F(ZipLogFilesTest, AnEmptyFileStays) {
  WriteFile(dir / "file", "");

  channel->ZipLogFiles("file");

  EXPECT_EQ(ListDir(dir.Path()), std::vector<std::string>{"file"});
}

TEST_F(ZipLogFilesTest, AFileWhoseArchiveCannotBeMadeStays) {
  WriteFile(dir / "file", "content");
  fs::create_directory(dir / "file.gz");

  channel->ZipLogFiles("file");

  EXPECT_EQ(ListDir(dir.Path()), (std::vector<std::string>{"file", "file.gz"}));
  EXPECT_EQ(ReadFile(dir / "file"), "content");
}

TEST_F(ZipLogFilesTest, ALinkIsReplacedByAnArchiveOfItsTargetWhichStays) {
  WriteFile(dir / "target", "content");
  fs::create_symlink("target", dir / "link");

  channel->ZipLogFiles("link");

  EXPECT_EQ(ListDir(dir.Path()), (std::vector<std::string>{"link.gz", "target"}));
  EXPECT_EQ(ReadGzip(dir / "link.gz"), "content");
  EXPECT_EQ(ReadFile(dir / "target"), "content");
}

}  // namespace
}  // namespace velt::test
