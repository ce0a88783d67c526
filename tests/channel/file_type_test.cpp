// Which files of a log directory are a channel's, and of which kind.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/channel/housekeeping.h"
#include "tests/support/channel.h"

namespace fs = std::filesystem;

namespace velt::test {
namespace {

using FileTypeTest = HousekeepingTest;

TEST_F(FileTypeTest, PrefixSuffixAndLengthTellTheKinds) {
  struct Row {
    char const* name;
    int type;
  };
  Row const rows[] = {
      {"abc_20240305_140709.tar.gz", 0},
      {"abc_20240305_140709.log", 1},
      {"abc_20240305_140709.tar", 2},
      {"abc_20240305_140709.log.gz", 3},
      {"abc_xxxxxxxxxxxxxxx.log", 1},  // the time characters are not looked at
      {"abc_...............log", 4},   // one character short
      {"abc_2024030_140709.log", 4},
      {"abc_d20240305_140709.log", 4},
      {"abc_20240305_140709.log.bak", 4},
      {"abc_20240305_140709.LOG", 4},
      {"abc_20240305_140709.log ", 4},
      {"abc_20240305_140709_log", 4},
      {"abc_2024030_140709.tar", 4},
      {"abc_d20240305_140709.tar", 4},
      {"abc_2024030_140709.tar.gz", 4},
      {"abc_d20240305_140709.tar.gz", 4},
      {"abc_2024030_140709.log.gz", 4},
      {"abc_d20240305_140709.log.gz", 4},
      {"abc_20240305_140709.old.gz", 3},  // any name of that length that ends in ".gz"
      {"abc_xxxxxxxxxxxxxxxxxxx.gz", 3},
      {"abc_20240305_140709.gz", 4},
      {"abc_20240305_140709.zip", 4},
      {"Abc_20240305_140709.log", 4},
      {"xabc_20240305_140709.log", 4},
      {"ab_20240305_1407091.log", 4},
      {"abc_.log", 4},
      {"abc_", 4},
      {"abc", 4},
      {"a", 4},
      {".log", 4},
      {"unrelated", 4},
  };

  for (Row const& row : rows) {
    Put(row.name);
    EXPECT_EQ(TypeOf(row.name), row.type) << row.name;
  }
}

TEST_F(FileTypeTest, AMissingFileIsForeign) { EXPECT_EQ(TypeOf("abc_20240305_140709.log"), 4); }

TEST_F(FileTypeTest, AnEmptyNameIsForeign) { EXPECT_EQ(TypeOf(""), 4); }

TEST_F(FileTypeTest, WithAnEmptyPrefixTheTimeAloneMakesTheName) {
  setup.prefix = "";
  Put("20240305_140709.log");
  Put("20240305_140709.log.gz");
  Put("a20240305_140709.log");

  EXPECT_EQ(TypeOf("20240305_140709.log"), 1);
  EXPECT_EQ(TypeOf("20240305_140709.log.gz"), 3);
  EXPECT_EQ(TypeOf("a20240305_140709.log"), 4);
}

TEST_F(FileTypeTest, DirectoriesAndFifosAreForeign) {
  fs::create_directory(dir / "abc_20240305_140709.log");
  ASSERT_EQ(mkfifo((dir / "abc_20240305_140710.log").c_str(), 0600), 0);

  EXPECT_EQ(TypeOf("abc_20240305_140709.log"), 4);
  EXPECT_EQ(TypeOf("abc_20240305_140710.log"), 4);
}

TEST_F(FileTypeTest, ASocketHasTheBitThatIsAskedFor) {
  std::string const path = dir / "abc_20240305_140709.log";
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(path.size(), sizeof address.sun_path);
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  int const fd = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr const*>(&address), sizeof address), 0);

  EXPECT_EQ(TypeOf("abc_20240305_140709.log"), 1);
  MakeIdleChannel(setup)->ProcessLogFileBeforeCreateNew();
  EXPECT_EQ(Names(), std::vector<std::string>{"abc_20240305_140709.log"})
      << "a file that cannot be read stays";
  close(fd);
}

TEST_F(FileTypeTest, LinksAreWhatTheyPointTo) {
  Put("target");
  fs::create_directory(dir / "directory");
  fs::create_symlink("target", dir / "abc_20240305_140701.log");
  fs::create_symlink("directory", dir / "abc_20240305_140702.log");
  fs::create_symlink("missing", dir / "abc_20240305_140703.log");
  fs::create_symlink("abc_20240305_140704.log", dir / "abc_20240305_140704.log");

  EXPECT_EQ(TypeOf("abc_20240305_140701.log"), 1);
  EXPECT_EQ(TypeOf("abc_20240305_140702.log"), 4) << "a directory";
  EXPECT_EQ(TypeOf("abc_20240305_140703.log"), 4) << "nothing";
  EXPECT_EQ(TypeOf("abc_20240305_140704.log"), 4) << "itself";
}

TEST_F(FileTypeTest, ALengthFitsOneKindOnly) {
  auto const channel = MakeIdleChannel(setup);
  auto const fits = [&channel](std::size_t length, int type) {
    return channel->CheckFileLength(std::string(length, 'x'), type);
  };

  EXPECT_FALSE(fits(25, 0));
  EXPECT_TRUE(fits(26, 0));
  EXPECT_FALSE(fits(27, 0));
  EXPECT_FALSE(fits(22, 1));
  EXPECT_TRUE(fits(23, 1));
  EXPECT_FALSE(fits(24, 1));
  EXPECT_FALSE(fits(22, 2));
  EXPECT_TRUE(fits(23, 2));
  EXPECT_FALSE(fits(24, 2));
  EXPECT_FALSE(fits(25, 3));
  EXPECT_TRUE(fits(26, 3));
  EXPECT_FALSE(fits(27, 3));
  EXPECT_FALSE(fits(0, 1));
}

TEST_F(FileTypeTest, NoLengthFitsAnUnknownKind) {
  auto const channel = MakeIdleChannel(setup);

  for (int const type : {-1, 4, 5, 1000}) {
    for (std::size_t length = 0; length < 40; ++length) {
      EXPECT_FALSE(channel->CheckFileLength(std::string(length, 'x'), type)) << type << " " << length;
    }
  }
}

}  // namespace
}  // namespace velt::test
