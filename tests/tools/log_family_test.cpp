// What veltpipe sees of its own files in a directory that others may tidy up.
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tools/veltpipe/log_family.h"

namespace velt::test {
namespace {

using tools::LogFamily;

constexpr char const* kName = "t_20200101_000000.log";

TEST(LogFamilyTest, AFileThatWasThereBeforeIsNoNewerOne) {
  ScratchDir const scratch;
  WriteFile(scratch / kName, "old");

  LogFamily family(scratch.Path(), "t_");

  EXPECT_FALSE(family.FindNewerLog());
  EXPECT_EQ(family.Measure().log_bytes, -1);
}

TEST(LogFamilyTest, TheNewestNameBecomesTheCurrentFileOnce) {
  ScratchDir const scratch;
  LogFamily family(scratch.Path(), "t_");
  WriteFile(scratch / kName, "12345");
  WriteFile(scratch / (kName + std::string(".gz")), "123");

  bool const found = family.FindNewerLog();
  bool const again = family.FindNewerLog();

  EXPECT_TRUE(found);
  EXPECT_FALSE(again);
  EXPECT_EQ(family.Measure().log_bytes, 5);
  EXPECT_EQ(family.Measure().archive_bytes, 3);
}

TEST(LogFamilyTest, ANameThatVanishedIsForgottenAndCountsAsNewWhenItComesAgain) {
  ScratchDir const scratch;
  LogFamily family(scratch.Path(), "t_");
  WriteFile(scratch / kName, "first");
  ASSERT_TRUE(family.FindNewerLog());
  std::filesystem::remove(scratch / kName);
  ASSERT_EQ(family.Measure().log_bytes, -1);
  WriteFile(scratch / kName, "second time");

  bool const found = family.FindNewerLog();

  EXPECT_TRUE(found);
  EXPECT_EQ(family.Measure().log_bytes, 11);
}

TEST(LogFamilyTest, OtherFilesOfTheDirectoryAreNotOfTheFamily) {
  ScratchDir const scratch;
  LogFamily family(scratch.Path(), "t_");
  for (char const* const name :
       {"u_20200101_000000.log", "t_20200101_000000.txt", "t_gw_20200101_000000.log", "t_.log"}) {
    WriteFile(scratch / name, "other");
  }

  EXPECT_FALSE(family.FindNewerLog());
}

}  // namespace
}  // namespace velt::test
