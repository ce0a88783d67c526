// Writing to log files and closing them, on a full device too. The channels here have no output thread.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <string>

#include "velt/channel.h"

#include "tests/channel/log_file.h"
#include "tests/support/channel.h"
#include "tests/support/files.h"

namespace velt::test {
namespace {

using ::testing::MatchesRegex;
using ::testing::StartsWith;

// While it lives, no file of this process grows past `bytes`; the attempt fails without a signal.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before_);
    rlimit const limit{bytes, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }
  FileSizeLimit(FileSizeLimit const&) = delete;
  FileSizeLimit& operator=(FileSizeLimit const&) = delete;

 private:
  rlimit before_{};
  void (*handler_)(int);
};

TEST_F(LogFileTest, WritingWithoutAFileIsRefused) {
  auto const channel = MakeIdleChannel(setup);

  EXPECT_FALSE(channel->WriteFile("text\n"));
  EXPECT_EQ(ListDir(dir.Path()), std::vector<std::string>{});
}

TEST_F(LogFileTest, WritingAfterTheCloseIsRefused) {
  auto const channel = MakeIdleChannel(setup);
  ASSERT_TRUE(channel->OpenNewFile());
  channel->CloseFile();

  bool const written = channel->WriteFile("late\n");

  EXPECT_FALSE(written);
  EXPECT_EQ(CountOf(Content(), "late"), 0U);
}

TEST_F(LogFileTest, ANullTextIsRefusedAndWritesNothing) {
  auto const channel = MakeIdleChannel(setup);
  ASSERT_TRUE(channel->OpenNewFile());

  bool const written = channel->WriteFile(nullptr);

  EXPECT_FALSE(written);
  EXPECT_EQ(Content(), Head());
}

TEST_F(LogFileTest, AnEmptyTextIsWrittenAsNothing) {
  auto const channel = MakeIdleChannel(setup);
  ASSERT_TRUE(channel->OpenNewFile());

  bool const written = channel->WriteFile("");

  EXPECT_TRUE(written);
  EXPECT_EQ(Content(), Head());
}

TEST_F(LogFileTest, TextsFollowOneAnotherAsTheyAre) {
  auto const channel = MakeIdleChannel(setup);
  ASSERT_TRUE(channel->OpenNewFile());

  EXPECT_TRUE(channel->WriteFile("a"));
  EXPECT_TRUE(channel->WriteFile("b%d\r\n"));
  EXPECT_TRUE(channel->WriteFile("\x1B[0m\xFF"));
  channel->CloseFile();

  EXPECT_THAT(Content(), StartsWith(Head() + "ab%d\r\n\x1B[0m\xFF"
                                             "File close at "));
}

TEST_F(LogFileTest, OnlyTheFirstTwoMebibytesOfATextAreWritten) {
  for (std::size_t const size :
       {kLongestWrite - 1, kLongestWrite, kLongestWrite + 1, std::size_t{3'000'000}}) {
    ScratchDir const own;
    ChannelSetup const own_setup(own.Path());
    auto const channel = MakeIdleChannel(own_setup);
    ASSERT_TRUE(channel->OpenNewFile());
    std::string text(size, 'x');
    text[kLongestWrite - 2] = 'y';

    bool const written = channel->WriteFile(text.c_str());
    channel->CloseFile();

    EXPECT_TRUE(written);
    std::string const name = ListDir(own.Path()).front();
    std::string const content = ReadFile(own / name);
    std::size_t const body = content.rfind("File close at ") - HeadOf(name, own_setup).size();
    EXPECT_EQ(body, size < kLongestWrite ? 2'097'151U : 2'097'152U) << "of " << size;
  }
}

TEST_F(LogFileTest, ClosingWithoutAFileDoesNothing) {
  auto const channel = MakeIdleChannel(setup);

  channel->CloseFile();

  EXPECT_EQ(ListDir(dir.Path()), std::vector<std::string>{});
}

TEST_F(LogFileTest, ClosingTwiceWritesOneTrailer) {
  auto const channel = MakeIdleChannel(setup);
  ASSERT_TRUE(channel->OpenNewFile());

  channel->CloseFile();
  channel->CloseFile();

  EXPECT_EQ(CountOf(Content(), "File close at "), 1U);
}

TEST_F(LogFileTest, TheTrailerBearsTheZoneAndTheCreationLineTheWordTime) {
  setenv("TZ", "TST-3", 1);
  tzset();
  auto const channel = MakeIdleChannel(setup);
  std::time_t const before = std::time(nullptr) + 10'800;
  ASSERT_TRUE(channel->OpenNewFile());

  channel->CloseFile();

  std::time_t const after = std::time(nullptr) + 10'800;
  auto const lines = Lines(Content());
  ASSERT_EQ(lines.size(), 3U);
  std::string const pattern = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}";
  EXPECT_THAT(lines[0].substr(3),
              MatchesRegex("File create at time " + pattern + "\\. Current ospid is [0-9]+"));
  EXPECT_THAT(lines[2], MatchesRegex("File close at TST " + pattern));
  for (std::string const& time : {lines[0].substr(3 + 20, 19), lines[2].substr(18)}) {
    std::tm parsed{};
    ASSERT_NE(strptime(time.c_str(), "%Y-%m-%d %H:%M:%S", &parsed), nullptr);
    std::time_t const at = timegm(&parsed);
    EXPECT_LE(before, at);
    EXPECT_LE(at, after);
  }
}

TEST_F(LogFileTest, DestroyingTheChannelClosesTheFile) {
  auto channel = MakeIdleChannel(setup);
  ASSERT_TRUE(channel->OpenNewFile());
  channel->WriteFile("text\n");

  channel.reset();

  EXPECT_THAT(Content(), StartsWith(Head() + "text\nFile close at "));
  EXPECT_EQ(CountOf(Content(), "File close at "), 1U);
}

TEST_F(LogFileTest, AWriteThatTheDeviceRefusesFailsAndTheNextOneWorks) {
  auto const channel = MakeIdleChannel(setup);
  ASSERT_TRUE(channel->OpenNewFile());
  std::size_t const head = Head().size();
  bool written = true;
  {
    FileSizeLimit const limit(8192);
    written = channel->WriteFile(std::string(100'000, 'x').c_str());
  }

  bool const next = channel->WriteFile("room again\n");
  channel->CloseFile();

  EXPECT_FALSE(written);
  EXPECT_TRUE(next);
  std::string const content = Content();
  EXPECT_EQ(CountOf(content, "room again\n"), 1U);
  EXPECT_LE(CountOf(content, "x"), 8192 - head + 1) << "a refused text must not come later";
  EXPECT_EQ(CountOf(content, "File close at "), 1U);
}

TEST_F(LogFileTest, ADeviceThatIsFullFromTheStartLeavesAFileThatWorksLater) {
  auto const channel = MakeIdleChannel(setup);
  bool opened = false;
  {
    FileSizeLimit const limit(0);
    opened = channel->OpenNewFile();
  }

  bool const written = channel->WriteFile("room again\n");
  channel->CloseFile();

  EXPECT_TRUE(opened) << "the file is there, only its head is lost";
  EXPECT_TRUE(written);
  EXPECT_EQ(CountOf(Content(), "room again\n"), 1U);
}

TEST_F(LogFileTest, ClosingOnAFullDeviceLosesTheTrailerOnly) {
  auto const channel = MakeIdleChannel(setup);
  ASSERT_TRUE(channel->OpenNewFile());
  ASSERT_TRUE(channel->WriteFile("text\n"));
  {
    FileSizeLimit const limit(0);
    channel->CloseFile();
  }

  EXPECT_FALSE(channel->WriteFile("late\n")) << "no file is open";
  EXPECT_EQ(CountOf(Content(), "late"), 0U);
  EXPECT_EQ(CountOf(Content(), "File close at "), 0U);
}

}  // namespace
}  // namespace velt::test
