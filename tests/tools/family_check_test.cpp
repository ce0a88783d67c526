// family_check: says so when a family is not what was traced, and reads archives too.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include "tests/support/files.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

using testing::HasSubstr;

std::string Record(std::string const& message, std::string const& tag = "I: ") {
  return "11-21 15:57:41.745076.T2084 net " + tag + message + "\n";
}

class FamilyCheckTest : public testing::Test {
 protected:
  FamilyCheckTest() {
    WriteFile(Log(1), "File create at time 2026-11-21 15:57:41. Current ospid is 2084\n" + Record("one") +
                          Record("two"));
    Pack(Log(2) + ".gz", Record("two") + Record("no tag", ""));
    WriteFile(scratch_ / "t_notes.log", Record("of another file"));
    Trace("one\ntwo\ntwo\nno tag\n");
  }

  std::string Log(int day) const { return scratch_ / ("t_2026112" + std::to_string(day) + "_155741.log"); }
  void Trace(std::string const& messages) const { WriteFile(scratch_ / "traced", messages); }
  static void Pack(std::string const& path, std::string const& text) {
    gzFile_s* const file = gzopen(path.c_str(), "wb");
    ASSERT_EQ(gzwrite(file, text.data(), static_cast<unsigned>(text.size())), static_cast<int>(text.size()));
    ASSERT_EQ(gzclose(file), Z_OK);
  }
  Outcome Check() const {
    return RunProgram({VELT_TOOLS_DIR "/family_check", scratch_.Path(), "t_", scratch_ / "traced"});
  }

  ScratchDir scratch_;
};

TEST_F(FamilyCheckTest, AFamilyOfWhatWasTracedIsExitCodeZero) {
  Outcome const outcome = Check();

  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.out, "traced 4, found 4 (in 2 files)\n");
}

TEST_F(FamilyCheckTest, ARecordThatIsMissingIsNamed) {
  Trace("one\ntwo\ntwo\ntwo\nno tag\n");

  Outcome const outcome = Check();

  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.out, "traced 5, found 4 (in 2 files)\ntraced 3 times but found 2 times: two\n");
}

TEST_F(FamilyCheckTest, ARecordThatNobodyTracedIsNamed) {
  Trace("one\ntwo\ntwo\n");

  Outcome const outcome = Check();

  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_THAT(outcome.out, HasSubstr("traced 0 times but found 1 times: no tag\n"));
}

TEST_F(FamilyCheckTest, AFileThatIsThereInBothFormsCountsOnceAsItsArchive) {
  WriteFile(Log(2), Record("a head of"));

  EXPECT_EQ(Check().out, "traced 4, found 4 (in 2 files)\n");
}

TEST_F(FamilyCheckTest, AnArchiveThatIsCutIsExitCodeTwo) {
  std::string const whole = ReadFile(Log(2) + ".gz");
  WriteFile(Log(2) + ".gz", whole.substr(0, whole.size() - 12));

  Outcome const outcome = Check();

  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_EQ(outcome.err, "family_check: cannot read t_20261122_155741.log.gz\n");
}

TEST_F(FamilyCheckTest, ARecordOnTheLastLineWithoutANewlineCounts) {
  WriteFile(Log(1), Record("two") + "11-21 15:57:41.745076.T2084 net I: one");

  EXPECT_EQ(Check().exit_code, 0);
}

TEST_F(FamilyCheckTest, AListOrADirectoryThatIsMissingIsExitCodeTwo) {
  EXPECT_EQ(RunProgram({VELT_TOOLS_DIR "/family_check", scratch_.Path(), "t_", scratch_ / "none"}).exit_code,
            2);
  EXPECT_EQ(
      RunProgram({VELT_TOOLS_DIR "/family_check", scratch_ / "none", "t_", scratch_ / "traced"}).exit_code,
      2);
  EXPECT_EQ(RunProgram({VELT_TOOLS_DIR "/family_check", scratch_.Path(), "t_"}).exit_code, 2);
}

}  // namespace
}  // namespace velt::test
