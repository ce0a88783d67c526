// New log files: their names, heads and modes. The channels here have no output thread.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "velt/channel.h"

#include "tests/channel/log_file.h"
#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

using ::testing::EndsWith;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

class Umask {
 public:
  explicit Umask(mode_t mask) : before_(umask(mask)) {}
  ~Umask() { umask(before_); }
  Umask(Umask const&) = delete;
  Umask& operator=(Umask const&) = delete;

 private:
  mode_t before_;
};

TEST_F(LogFileTest, ANewFileIsNamedByPrefixAndLocalTime) {
  auto const channel = MakeIdleChannel(setup);
  std::string const earliest = ComingNames(setup.prefix, 0).front();

  bool const opened = channel->OpenNewFile();

  std::string const latest = ComingNames(setup.prefix, 0).front();
  ASSERT_TRUE(opened);
  EXPECT_THAT(Name(), MatchesRegex("t_[0-9]{8}_[0-9]{6}\\.log"));
  EXPECT_LE(earliest, Name());
  EXPECT_LE(Name(), latest);
}

TEST_F(LogFileTest, ANewFileHoldsMarkCreationLineAndHeader) {
  setup.header = "first header line\nsecond header line\n";
  auto const channel = MakeIdleChannel(setup);

  ASSERT_TRUE(channel->OpenNewFile());

  std::string const t = Name().substr(2, 15);
  EXPECT_EQ(Content(),
            "\xEF\xBB\xBF"
            "File create at time " +
                t.substr(0, 4) + "-" + t.substr(4, 2) + "-" + t.substr(6, 2) + " " + t.substr(9, 2) + ":" +
                t.substr(11, 2) + ":" + t.substr(13, 2) + ". Current ospid is " + std::to_string(getpid()) +
                "\nfirst header line\nsecond header line\n");
}

TEST_F(LogFileTest, AHeaderWithoutLineEndRunsIntoTheNextText) {
  setup.header = "no line end";
  auto const channel = MakeIdleChannel(setup);
  ASSERT_TRUE(channel->OpenNewFile());

  channel->WriteFile("next\n");
  channel->CloseFile();

  EXPECT_NE(Content().find("\nno line endnext\nFile close at "), std::string::npos) << Content();
}

TEST_F(LogFileTest, AnEmptyHeaderAddsNothing) {
  setup.header = "";
  auto const channel = MakeIdleChannel(setup);

  ASSERT_TRUE(channel->OpenNewFile());

  EXPECT_THAT(Content(), EndsWith(". Current ospid is " + std::to_string(getpid()) + "\n"));
}

TEST_F(LogFileTest, PercentSignsOfAHeaderAreText) {
  setup.header = "100%s %n %d\n";
  auto const channel = MakeIdleChannel(setup);

  ASSERT_TRUE(channel->OpenNewFile());

  EXPECT_THAT(Content(), EndsWith("\n100%s %n %d\n"));
}

TEST_F(LogFileTest, AHeaderOfThreeMillionBytesIsCutLikeEveryText) {
  setup.header = std::string(3'000'000, 'h');
  auto const channel = MakeIdleChannel(setup);

  ASSERT_TRUE(channel->OpenNewFile());

  std::string const content = Content();
  EXPECT_EQ(content.size() - content.find('\n') - 1, kLongestWrite);
}

TEST_F(LogFileTest, APrefixMayBeEmpty) {
  setup.prefix = "";
  auto const channel = MakeIdleChannel(setup);

  ASSERT_TRUE(channel->OpenNewFile());

  EXPECT_THAT(Name(), MatchesRegex("[0-9]{8}_[0-9]{6}\\.log"));
}

TEST_F(LogFileTest, AMissingDirectoryIsCreated) {
  Umask const mask(022);
  setup.directory = dir / "logs";
  auto const channel = MakeIdleChannel(setup);

  bool const opened = channel->OpenNewFile();

  EXPECT_TRUE(opened);
  EXPECT_EQ(ModeOf(dir / "logs"), 0755U);
  EXPECT_EQ(ModeOf(setup.directory + "/" + Name()), 0640U);
}

TEST_F(LogFileTest, OnlyOneDirectoryLevelIsCreated) {
  setup.directory = dir / "logs/today";
  auto const channel = MakeIdleChannel(setup);

  bool const opened = channel->OpenNewFile();

  EXPECT_FALSE(opened);
  EXPECT_FALSE(channel->WriteFile("text\n"));
  EXPECT_EQ(ListDir(dir.Path()), std::vector<std::string>{});
}

TEST_F(LogFileTest, AnOpenThatFailedCanBeRepeated) {
  setup.directory = dir / "logs/today";
  auto const channel = MakeIdleChannel(setup);
  ASSERT_FALSE(channel->OpenNewFile());
  std::filesystem::create_directory(dir / "logs");

  bool const opened = channel->OpenNewFile();

  EXPECT_TRUE(opened);
  EXPECT_TRUE(channel->WriteFile("text\n"));
  EXPECT_THAT(Content(), StartsWith(Head()));
}

TEST_F(LogFileTest, UnderAnOpenUmaskTheModesAreTheSame) {
  Umask const mask(000);
  setup.directory = dir / "logs";
  auto const channel = MakeIdleChannel(setup);

  ASSERT_TRUE(channel->OpenNewFile());

  EXPECT_EQ(ModeOf(dir / "logs"), 0755U);
  EXPECT_EQ(ModeOf(setup.directory + "/" + Name()), 0640U);
}

TEST_F(LogFileTest, ATightUmaskNarrowsTheDirectoryOnly) {
  Umask const mask(077);
  setup.directory = dir / "logs";
  auto const channel = MakeIdleChannel(setup);

  ASSERT_TRUE(channel->OpenNewFile());

  EXPECT_EQ(ModeOf(dir / "logs"), 0700U);
  EXPECT_EQ(ModeOf(setup.directory + "/" + Name()), 0640U);
}

TEST_F(LogFileTest, AnExistingDirectoryKeepsItsMode) {
  setup.directory = dir / "logs";
  std::filesystem::create_directory(dir / "logs");
  chmod((dir / "logs").c_str(), 0711);
  auto const channel = MakeIdleChannel(setup);

  ASSERT_TRUE(channel->OpenNewFile());

  EXPECT_EQ(ModeOf(dir / "logs"), 0711U);
}

TEST_F(LogFileTest, ANameTakenByADirectoryIsAFailedOpen) {
  for (auto const& name : ComingNames(setup.prefix, 120)) std::filesystem::create_directory(dir / name);
  auto const channel = MakeIdleChannel(setup);

  bool const opened = channel->OpenNewFile();

  EXPECT_FALSE(opened);
  EXPECT_FALSE(channel->WriteFile("text\n"));
}

TEST_F(LogFileTest, ANameThatIsTooLongIsAFailedOpen) {
  setup.prefix = std::string(300, 'p');
  auto const channel = MakeIdleChannel(setup);

  bool const opened = channel->OpenNewFile();

  EXPECT_FALSE(opened);
  EXPECT_EQ(ListDir(dir.Path()), std::vector<std::string>{});
}

TEST_F(LogFileTest, AnExistingFileOfTheNameIsTruncatedAndGetsTheMode) {
  for (auto const& name : ComingNames(setup.prefix, 120)) {
    WriteFile(dir / name, std::string(5000, 'o'));
    chmod((dir / name).c_str(), 0600);
  }
  auto const channel = MakeIdleChannel(setup);

  ASSERT_TRUE(channel->OpenNewFile());
  channel->CloseFile();

  std::size_t fresh = 0;
  for (auto const& name : ListDir(dir.Path())) {
    std::string const content = ReadFile(dir / name);
    if (content[0] == 'o') continue;
    ++fresh;
    EXPECT_THAT(content, StartsWith(HeadOf(name, setup)));
    EXPECT_EQ(content.find('o' + std::string(100, 'o')), std::string::npos);
    EXPECT_EQ(ModeOf(dir / name), 0640U);
  }
  EXPECT_EQ(fresh, 1U);
}

TEST_F(LogFileTest, ANameThatIsALinkLeadsToItsTarget) {
  for (auto const& name : ComingNames(setup.prefix, 120))
    std::filesystem::create_symlink("target", dir / name);
  auto const channel = MakeIdleChannel(setup);

  ASSERT_TRUE(channel->OpenNewFile());
  channel->WriteFile("text\n");
  channel->CloseFile();

  EXPECT_EQ(CountOf(ReadFile(dir / "target"), "header\ntext\nFile close at "), 1U);
  EXPECT_EQ(ModeOf(dir / "target"), 0640U);
}

TEST_F(LogFileTest, TwoFilesOfOneSecondShareANameAndTheOlderIsLost) {
  std::size_t files = 2;
  std::string content;
  // On a busy machine the second may change in between, so it is tried again.
  for (int attempt = 0; attempt < 20 && files != 1; ++attempt) {
    ScratchDir const own;
    auto const channel = MakeIdleChannel(ChannelSetup(own.Path()));
    WaitForNextSecond();
    EXPECT_TRUE(channel->OpenNewFile());
    channel->WriteFile("older\n");
    channel->CloseFile();
    EXPECT_TRUE(channel->OpenNewFile());
    channel->WriteFile("newer\n");
    channel->CloseFile();
    files = ListDir(own.Path()).size();
    content = ReadFile(own / ListDir(own.Path()).front());
  }

  ASSERT_EQ(files, 1U);
  EXPECT_EQ(CountOf(content, "older\n"), 0U);
  EXPECT_EQ(CountOf(content, "newer\n"), 1U);
  EXPECT_EQ(CountOf(content, "File create at"), 1U);
}

TEST_F(LogFileTest, FilesOfTwoSecondsAreTwoFiles) {
  auto const channel = MakeIdleChannel(setup);
  ASSERT_TRUE(channel->OpenNewFile());
  channel->WriteFile("older\n");
  channel->CloseFile();
  WaitForNextSecond();

  ASSERT_TRUE(channel->OpenNewFile());

  auto const names = ListDir(dir.Path());
  ASSERT_EQ(names.size(), 2U);
  EXPECT_EQ(CountOf(ReadFile(dir / names[0]), "older\n"), 1U);
  EXPECT_EQ(ReadFile(dir / names[1]), HeadOf(names[1], setup));
}

TEST_F(LogFileTest, AnUnwritableDirectoryIsAFailedOpenForAnOrdinaryUser) {
  setup.directory = dir / "locked";
  std::filesystem::create_directory(setup.directory);
  chmod(dir.Path().c_str(), 0755);
  chmod(setup.directory.c_str(), 0555);

  Outcome const child = RunInChild([this] {
    if (geteuid() == 0 && setuid(65534) != 0) return 2;
    auto const channel = MakeIdleChannel(setup);
    return channel->OpenNewFile() || channel->WriteFile("text\n") ? 1 : 0;
  });

  EXPECT_EQ(child.exit_code, 0) << child.err;
  EXPECT_EQ(ListDir(setup.directory), std::vector<std::string>{});
  chmod(setup.directory.c_str(), 0755);
}

}  // namespace
}  // namespace velt::test
