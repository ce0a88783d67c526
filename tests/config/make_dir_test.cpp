#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/process.h"
#include "velt/config.h"

namespace velt::test {
namespace {

bool IsDirectory(std::string const& path) {
  struct stat info {};
  return lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// A path below `base` of exactly `length` characters in components of at most 100.
std::string PathOfLength(std::string const& base, std::size_t length) {
  std::string path = base;
  while (path.size() + 102 <= length) path += "/" + std::string(100, 'd');
  if (path.size() < length) path += "/" + std::string(length - path.size() - 1, 'e');
  return path;
}

// Runs `body` in a child that has no right to write everywhere.
int AsOrdinaryUser(std::string const& path, int (*body)(std::string const&)) {
  Outcome const child = RunInChild([&path, body] {
    constexpr unsigned kNobody = 65534;
    if (geteuid() == 0 && (setgid(kNobody) != 0 || setuid(kNobody) != 0)) return 99;
    return body(path);
  });
  return child.exit_code;
}

// The current directory is a scratch directory: if a name were run as a command, its output would be found
// there.
class MakeDirTest : public testing::Test {
 protected:
  MakeDirTest() : before_(std::filesystem::current_path()) { std::filesystem::current_path(scratch_.Path()); }
  ~MakeDirTest() override { std::filesystem::current_path(before_); }

  ScratchDir scratch_;

 private:
  std::filesystem::path before_;
};

TEST_F(MakeDirTest, CreatesTheWholeChain) {
  EXPECT_EQ(VeltMakeDirEx((scratch_ / "a/b/c").c_str()), 0);

  EXPECT_TRUE(IsDirectory(scratch_ / "a/b/c"));
}

TEST_F(MakeDirTest, CreatesOneLevel) {
  EXPECT_EQ(VeltMakeDirEx((scratch_ / "one").c_str()), 0);

  EXPECT_TRUE(IsDirectory(scratch_ / "one"));
}

TEST_F(MakeDirTest, APathThatExistsIsSuccess) {
  WriteFile(scratch_ / "file", "content");

  EXPECT_EQ(VeltMakeDirEx(scratch_.Path().c_str()), 0);
  EXPECT_EQ(VeltMakeDirEx((scratch_ / "file").c_str()), 0) << "a file is a path too";
  EXPECT_EQ(VeltMakeDirEx("/"), 0);
  EXPECT_EQ(VeltMakeDirEx("."), 0);

  EXPECT_EQ(ReadFile(scratch_ / "file"), "content");
}

TEST_F(MakeDirTest, CreatingTwiceIsSuccess) {
  EXPECT_EQ(VeltMakeDirEx("again/and"), 0);
  EXPECT_EQ(VeltMakeDirEx("again/and"), 0);

  EXPECT_TRUE(IsDirectory(scratch_ / "again/and"));
}

TEST_F(MakeDirTest, NullAndEmptyAreRefused) {
  EXPECT_EQ(VeltMakeDirEx(nullptr), -1);
  EXPECT_EQ(VeltMakeDirEx(""), -1);
}

TEST_F(MakeDirTest, APathWithADollarSignIsRefused) {
  ASSERT_EQ(mkdir((scratch_ / "there$").c_str(), 0755), 0);

  EXPECT_EQ(VeltMakeDirEx((scratch_ / "${X}").c_str()), -1);
  EXPECT_EQ(VeltMakeDirEx("x$"), -1);
  EXPECT_EQ(VeltMakeDirEx("$x"), -1);
  EXPECT_EQ(VeltMakeDirEx("$(touch executed)"), -1);
  EXPECT_EQ(VeltMakeDirEx((scratch_ / "there$").c_str()), -1) << "even one that exists";

  EXPECT_EQ(ListDir(scratch_.Path()), (std::vector<std::string>{"there$"}));
}

TEST_F(MakeDirTest, RelativePathsStartAtTheCurrentDirectory) {
  EXPECT_EQ(VeltMakeDirEx("rel/ative"), 0);
  EXPECT_EQ(VeltMakeDirEx("./dot/ted"), 0);

  EXPECT_TRUE(IsDirectory(scratch_ / "rel/ative"));
  EXPECT_TRUE(IsDirectory(scratch_ / "dot/ted"));
}

TEST_F(MakeDirTest, SlashesInPlentyAndAtTheEndAreTaken) {
  EXPECT_EQ(VeltMakeDirEx((scratch_ / "a//b///").c_str()), 0);

  EXPECT_TRUE(IsDirectory(scratch_ / "a/b"));
}

TEST_F(MakeDirTest, AStepUpIsTaken) {
  EXPECT_EQ(VeltMakeDirEx("down/../beside"), 0);

  EXPECT_TRUE(IsDirectory(scratch_ / "beside"));
}

TEST_F(MakeDirTest, NamesThatAShellWouldReadAreOrdinaryNames) {
  std::string const names[] = {"double\"quote",
                               "\"; touch executed; \"",
                               "single'quote",
                               "`touch executed`",
                               "; touch executed",
                               "semi;colon",
                               "a && touch executed",
                               "| touch executed",
                               "> executed",
                               "new\nline",
                               "touch\ntouch executed\n",
                               "back\\slash",
                               "star*",
                               "tilde~",
                               "#hash",
                               "  blanks  ",
                               "\xff\xfe",
                               "%s%n",
                               "!"};
  for (auto const& name : names) {
    EXPECT_EQ(VeltMakeDirEx((scratch_ / name).c_str()), 0) << name;
    EXPECT_TRUE(IsDirectory(scratch_ / name)) << name;
    EXPECT_EQ(VeltMakeDirEx(("below/" + name).c_str()), 0) << name;
    EXPECT_TRUE(IsDirectory(scratch_ / ("below/" + name))) << name;
  }

  EXPECT_FALSE(Exists(scratch_ / "executed"));
  EXPECT_EQ(ListDir(scratch_.Path()).size(), std::size(names) + 1) << "nothing else was made";
}

TEST_F(MakeDirTest, ALeadingDashIsNoOption) {
  EXPECT_EQ(VeltMakeDirEx("-m"), 0);
  EXPECT_EQ(VeltMakeDirEx("--help"), 0);
  EXPECT_EQ(VeltMakeDirEx("-p/-v"), 0);

  EXPECT_EQ(ListDir(scratch_.Path()), (std::vector<std::string>{"--help", "-m", "-p"}));
  EXPECT_TRUE(IsDirectory(scratch_ / "-p/-v"));
}

TEST_F(MakeDirTest, APathOf1007CharactersIsCreated) {
  std::string const path = PathOfLength(scratch_.Path(), 1007);
  ASSERT_EQ(path.size(), 1007U);

  EXPECT_EQ(VeltMakeDirEx(path.c_str()), 0);

  EXPECT_TRUE(IsDirectory(path));
}

TEST_F(MakeDirTest, APathOf1008CharactersIsRefusedAndNothingOfItIsMade) {
  std::string const path = PathOfLength(scratch_.Path(), 1008);
  ASSERT_EQ(path.size(), 1008U);

  EXPECT_EQ(VeltMakeDirEx(path.c_str()), -1);

  EXPECT_TRUE(ListDir(scratch_.Path()).empty());
}

TEST_F(MakeDirTest, ALongPathThatExistsIsSuccess) {
  std::string const path = PathOfLength(scratch_.Path(), 1500);
  ASSERT_TRUE(std::filesystem::create_directories(path));

  EXPECT_EQ(VeltMakeDirEx(path.c_str()), 0);
}

TEST_F(MakeDirTest, PathsAndNamesThatTheSystemRefusesAreRefused) {
  EXPECT_EQ(VeltMakeDirEx(std::string(256, 'n').c_str()), -1) << "a name of 256 characters";
  EXPECT_EQ(VeltMakeDirEx(std::string(10'000, 'n').c_str()), -1);
  EXPECT_EQ(VeltMakeDirEx("/proc/no/such"), -1);

  EXPECT_TRUE(ListDir(scratch_.Path()).empty());
}

TEST_F(MakeDirTest, AFileInTheMiddleIsInTheWay) {
  WriteFile(scratch_ / "file", "content");

  EXPECT_EQ(VeltMakeDirEx((scratch_ / "file/below").c_str()), -1);
  EXPECT_EQ(VeltMakeDirEx((scratch_ / "file/below/more").c_str()), -1);

  EXPECT_EQ(ReadFile(scratch_ / "file"), "content");
}

TEST_F(MakeDirTest, ADanglingLinkIsInTheWay) {
  std::filesystem::create_symlink(scratch_ / "nowhere", scratch_ / "link");

  EXPECT_EQ(VeltMakeDirEx((scratch_ / "link").c_str()), -1);
  EXPECT_EQ(VeltMakeDirEx((scratch_ / "link/below").c_str()), -1);

  EXPECT_FALSE(Exists(scratch_ / "nowhere"));
}

TEST_F(MakeDirTest, ALinkToADirectoryIsFollowed) {
  ASSERT_EQ(mkdir((scratch_ / "real").c_str(), 0755), 0);
  std::filesystem::create_directory_symlink(scratch_ / "real", scratch_ / "link");

  EXPECT_EQ(VeltMakeDirEx((scratch_ / "link").c_str()), 0);
  EXPECT_EQ(VeltMakeDirEx((scratch_ / "link/a/b").c_str()), 0);

  EXPECT_TRUE(IsDirectory(scratch_ / "real/a/b"));
}

TEST_F(MakeDirTest, WithoutPermissionNothingIsMade) {
  ASSERT_EQ(chmod(scratch_.Path().c_str(), 0755), 0);
  ASSERT_EQ(mkdir((scratch_ / "locked").c_str(), 0555), 0);

  int const result = AsOrdinaryUser(scratch_ / "locked", [](std::string const& locked) {
    if (VeltMakeDirEx((locked + "/new").c_str()) != -1) return 1;
    return VeltMakeDirEx((locked + "/new/more").c_str()) == -1 ? 0 : 2;
  });

  EXPECT_EQ(result, 0);
  EXPECT_TRUE(ListDir(scratch_ / "locked").empty());
}

TEST_F(MakeDirTest, WithoutAUmaskEverybodyMayDoEverything) {
  mode_t const before = umask(0);

  int const result = VeltMakeDirEx((scratch_ / "outer/inner").c_str());

  umask(before);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(ModeOf(scratch_ / "outer"), 0777U);
  EXPECT_EQ(ModeOf(scratch_ / "outer/inner"), 0777U);
}

TEST_F(MakeDirTest, TheUmaskIsTakenOffTheMode) {
  mode_t const before = umask(027);

  int const made = VeltMakeDirEx((scratch_ / "outer/inner").c_str());

  umask(before);
  EXPECT_EQ(made, 0);
  EXPECT_EQ(ModeOf(scratch_ / "outer"), 0750U);
  EXPECT_EQ(ModeOf(scratch_ / "outer/inner"), 0750U);
}

TEST_F(MakeDirTest, ParentsGetWhatTheUmaskTakesFromTheirOwnerAndTheLastDirectoryDoesNot) {
  mode_t const before = umask(0322);

  int const made = VeltMakeDirEx((scratch_ / "outer/middle/inner").c_str());

  umask(before);
  EXPECT_EQ(made, 0);
  EXPECT_EQ(ModeOf(scratch_ / "outer"), 0755U);
  EXPECT_EQ(ModeOf(scratch_ / "outer/middle"), 0755U);
  EXPECT_EQ(ModeOf(scratch_ / "outer/middle/inner"), 0455U);
}

TEST_F(MakeDirTest, ParentsCanBeEnteredWhateverTheUmask) {
  ASSERT_EQ(mkdir((scratch_ / "open").c_str(), 0777), 0);
  ASSERT_EQ(chmod((scratch_ / "open").c_str(), 0777), 0);
  ASSERT_EQ(chmod(scratch_.Path().c_str(), 0755), 0);

  int const result = AsOrdinaryUser(scratch_ / "open", [](std::string const& open) {
    umask(0300);
    return VeltMakeDirEx((open + "/a/b/c").c_str()) == 0 ? 0 : 1;
  });

  EXPECT_EQ(result, 0);
  RunProgram({"chmod", "-R", "u+rwx", scratch_.Path()});  // so that it can be removed
}

}  // namespace
}  // namespace velt::test
