// veltcfg as its users run it: its exit codes, its command line, and the files that it reads.
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/process.h"
#include "tests/support/running_program.h"
#include "tests/support/veltcfg.h"

namespace velt::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// --- Exit codes ---

TEST_F(VeltcfgTest, ACleanConfigurationIsExitCodeZeroAndNoFinding) {
  WriteFile(root_.DebugFile(), "# comment\n\nnMaxFileNum = 7\ndebug_level = 1110\n");

  Outcome const outcome = Run();

  EXPECT_EQ(outcome.exit_code, 0) << outcome.out;
  EXPECT_THAT(Lines(outcome.out), Contains("Findings: none"));
  EXPECT_THAT(outcome.err, IsEmpty());
}

TEST_F(VeltcfgTest, NotesAloneAreExitCodeZero) {
  EXPECT_THAT(FindingsOn("colour = red\n", 0),
              ElementsAre("default_debug.cfg:1: note: \"colour\" is not a name that traces are configured by "
                          "[unknown-name]"));
}

TEST_F(VeltcfgTest, NoConfigurationAtAllIsExitCodeTwo) {
  Outcome const outcome = Run();

  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_THAT(outcome.out, HasSubstr("[no-configuration]"));
  EXPECT_THAT(outcome.out, Not(HasSubstr("Limits")));
}

TEST_F(VeltcfgTest, NoRootAndNoFileIsExitCodeTwo) {
  unsetenv("APP_ROOT");

  Outcome const outcome = Run();

  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_THAT(outcome.out, HasSubstr("APP_ROOT is not set"));
}

TEST_F(VeltcfgTest, EachMistakeOnTheCommandLineIsExitCodeTwoAndAMessage) {
  WriteFile(root_.DebugFile(), "");
  std::vector<std::vector<std::string>> const mistakes{
      {"--unknown"},      {"--name"},     {"--name", ""},       {""},
      {"a.cfg", "b.cfg"}, {"--json=yes"}, {"--json", "--quiet"}};
  for (auto const& mistake : mistakes) {
    SCOPED_TRACE(mistake.front());

    Outcome const outcome = Run(mistake);

    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_THAT(outcome.out, IsEmpty());
    EXPECT_THAT(outcome.err, HasSubstr("veltcfg"));
    EXPECT_THAT(outcome.err, HasSubstr("Try 'veltcfg --help'."));
  }
}

TEST_F(VeltcfgTest, HelpNamesEveryOptionAndVersionIsOneLine) {
  Outcome const help = Run({"--help"});
  Outcome const version = Run({"--version"});

  EXPECT_EQ(help.exit_code, 0);
  for (char const* const option : {"--name", "--json", "--quiet", "--help", "--version"}) {
    EXPECT_THAT(help.out, HasSubstr(std::string("\n  ") + option + " "));
  }
  EXPECT_EQ(version.exit_code, 0);
  EXPECT_EQ(version.out, "veltcfg 1.0.0\n");
}

TEST_F(VeltcfgTest, AnOutputThatTakesNothingIsExitCodeTwo) {
  WriteFile(root_.DebugFile(), "");
  Descriptor const full(open("/dev/full", O_WRONLY | O_CLOEXEC));
  Descriptor const err(open((root_.Dir() / "err").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  for (std::vector<std::string> const& command :
       {std::vector<std::string>{kVeltcfg}, {kVeltcfg, "--help"}, {kVeltcfg, "--version"}}) {
    SCOPED_TRACE(command.back());
    RunningProgram program(command, {-1, full, err});

    EXPECT_EQ(program.Wait(), 2);
    EXPECT_THAT(Lines(ReadFile(root_.Dir() / "err")).back(),
                "veltcfg: cannot write to standard output: No space left on device");
  }
}

TEST_F(VeltcfgTest, QuietShowsTheFindingsAloneWithTheSameExitCode) {
  WriteFile(root_.DebugFile(), "nMaxFileNum = 101\ncolour = red\n");

  Outcome const outcome = Run({"--quiet"});

  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.out,
            root_.DebugFile() +
                ":1: warning: nMaxFileNum = 101 is not from 0 to 100: 50 replaces it "
                "[limit-replaced]\n" +
                root_.DebugFile() +
                ":2: note: \"colour\" is not a name that traces are configured by [unknown-name]\n");
}

TEST_F(VeltcfgTest, QuietSaysNothingAboutACleanConfiguration) {
  WriteFile(root_.DebugFile(), "nMaxFileNum = 100\n");

  Outcome const outcome = Run({"--quiet"});

  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(outcome.out, IsEmpty());
  EXPECT_THAT(outcome.err, IsEmpty());
}

TEST_F(VeltcfgTest, NothingIsLeftOnDisk) {
  WriteFile(root_.DebugFile(), "net_level = 1\n");
  setenv("_APP_LOG_DIR", (root_.Dir() / "log").c_str(), 1);
  std::filesystem::create_directory(root_.Dir() / "log");

  Outcome const outcome = RunProgram({"env", "TMPDIR=" + root_.Dir().Path(), kVeltcfg});

  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(ListDir(root_.Dir().Path()), ElementsAre("conf", "log"));
  EXPECT_THAT(ListDir(root_.Dir() / "log"), IsEmpty());
  EXPECT_THAT(ListDir(root_.Dir() / "conf"), ElementsAre("default_debug.cfg"));
}

TEST_F(VeltcfgTest, TheExampleConfigurationIsClean) {
  setenv("APP_ROOT", VELT_SOURCE_DIR "/examples", 1);

  Outcome const outcome = Run();

  EXPECT_EQ(outcome.exit_code, 0) << outcome.out;
  EXPECT_THAT(Lines(outcome.out), Contains("Findings: none"));
  EXPECT_THAT(outcome.out, HasSubstr("  first   " VELT_SOURCE_DIR "/examples/conf/default_debug.cfg\n"));
}

// --- Environment and files ---

TEST_F(VeltcfgTest, EveryPathIsShownWithTheVariableThatItComesFrom) {
  std::string const dir = root_.Dir().Path();
  std::filesystem::create_directory(dir + "/shared");
  setenv("COMMON_LIB_PATH", (dir + "/shared").c_str(), 1);
  setenv("_APP_LOG_DIR", (dir + " ").c_str(), 1);
  WriteFile(root_.DebugFile(), "");

  std::vector<std::string> const lines = Lines(Run().out);

  EXPECT_THAT(lines, Contains("  APP_ROOT         \"" + dir + "\""));
  EXPECT_THAT(lines, Contains("  _APP_LOG_DIR     \"" + dir + " \""));
  EXPECT_THAT(lines, Contains("  _APP_TMP_DIR     not set"));
  EXPECT_THAT(lines, Contains("  root               " + dir + "/  (APP_ROOT)"));
  EXPECT_THAT(lines, Contains("  configuration      " + dir + "/conf/  (APP_ROOT)"));
  EXPECT_THAT(lines, Contains("  log                " + dir + "//mrblog/  (_APP_LOG_DIR; does not exist)"));
  EXPECT_THAT(lines, Contains("  temporary          none"));
  EXPECT_THAT(lines, Contains("  default_debug.cfg  " + dir + "/conf/default_debug.cfg  (APP_ROOT)"));
  EXPECT_THAT(lines, Contains("  velt.cfg           " + dir +
                              "/shared/conf/velt.cfg  (COMMON_LIB_PATH; does not exist)"));
  EXPECT_THAT(lines, Contains("  first   " + dir + "/conf/default_debug.cfg"));
  EXPECT_THAT(lines, Contains("  second  " + dir + "/shared/conf/velt.cfg"));
}

TEST_F(VeltcfgTest, BlanksAroundARootAndAnUnusedSharedRootAreWarnings) {
  WriteFile(root_.Dir() / "own.cfg", "");
  setenv("COMMON_LIB_PATH", " /x", 1);
  unsetenv("APP_ROOT");

  Outcome const outcome = Run({root_.Dir() / "own.cfg"});

  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_THAT(outcome.out, HasSubstr("\nenvironment: warning: COMMON_LIB_PATH has blanks at its ends"));
  EXPECT_THAT(outcome.out,
              HasSubstr("\nenvironment: warning: COMMON_LIB_PATH is not looked at while APP_ROOT"));
}

TEST_F(VeltcfgTest, ABlankRootIsAWarning) {
  WriteFile(root_.Dir() / "own.cfg", "");
  setenv("APP_ROOT", " ", 1);

  Outcome const outcome = Run({root_.Dir() / "own.cfg"});

  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_THAT(outcome.out, HasSubstr("[environment-blank]"));
}

TEST_F(VeltcfgTest, ALogDirectoryThatCannotBeMadeIsANote) {
  WriteFile(root_.DebugFile(), "");
  setenv("_APP_LOG_DIR", (root_.Dir() / "missing").c_str(), 1);

  Outcome const outcome = Run();

  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(outcome.out, HasSubstr("environment: note: the default log directory \"" +
                                     (root_.Dir() / "missing") + "//mrblog/\" cannot be created"));
}

TEST_F(VeltcfgTest, AMissingFileOfTheHostIsAWarningAndTheInstallationsOwnIsRead) {
  WriteFile(root_.DebugFile(), "nMaxFileNum = 7\n");

  Outcome const outcome = Run({"missing.cfg"});

  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_THAT(Findings(outcome.out), ElementsAre("missing.cfg: warning: the file is missing: "
                                                 "\"default_debug.cfg\" is read instead [file-missing]"));
  EXPECT_THAT(outcome.out, HasSubstr("  nMaxFileNum             7 channels"));
}

TEST_F(VeltcfgTest, AFileOfTheHostWithoutAnInstallationIsReadAlone) {
  WriteFile(root_.MainFile(), "nMaxFileNum = 8\nnFiltLogBufSize = 9\n");
  WriteFile(root_.Dir() / "own.cfg", "nMaxFileNum = 7\n");

  Outcome const outcome = Run({root_.Dir() / "own.cfg"});

  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_THAT(outcome.out, HasSubstr("  nMaxFileNum             7 channels"));
  EXPECT_THAT(outcome.out, HasSubstr("  nFiltLogBufSize         100 records  (default)"));
  EXPECT_THAT(outcome.out, HasSubstr("[second-not-read]"));
  EXPECT_THAT(outcome.out, Not(HasSubstr("[overridden]"))) << "no item of velt.cfg would have an effect";
}

TEST_F(VeltcfgTest, ADirectoryInPlaceOfTheFileIsExitCodeTwo) {
  std::filesystem::create_directory(root_.DebugFile());

  Outcome const outcome = Run();

  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_THAT(Findings(outcome.out),
              ElementsAre("default_debug.cfg: error: the file cannot be read, and no other "
                          "takes its place: it is a directory [file-unreadable]"));
}

TEST_F(VeltcfgTest, APipeInPlaceOfEitherFileIsExitCodeTwoAndDoesNotHang) {
  mkfifo(root_.DebugFile().c_str(), 0600);
  Outcome const first = Run();
  std::filesystem::remove(root_.DebugFile());
  WriteFile(root_.DebugFile(), "");
  mkfifo(root_.MainFile().c_str(), 0600);
  Outcome const second = Run();

  EXPECT_EQ(first.exit_code, 2);
  EXPECT_THAT(first.out, HasSubstr("it is not a regular file"));
  EXPECT_EQ(second.exit_code, 2);
  EXPECT_THAT(second.out, HasSubstr("may wait without end"));
}

// From here on permissions hold for root, too: without these two capabilities its accesses are checked as any
// user's.
void ObeyPermissions() {
  prctl(PR_CAPBSET_DROP, 1 /* CAP_DAC_OVERRIDE */);
  prctl(PR_CAPBSET_DROP, 2 /* CAP_DAC_READ_SEARCH */);
}

TEST_F(VeltcfgTest, AFileWithoutPermissionIsExitCodeTwoAndASecondOneAWarning) {
  WriteFile(root_.DebugFile(), "");
  WriteFile(root_.MainFile(), "");
  Descriptor const out(open((root_.Dir() / "out").c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600));

  chmod(root_.MainFile().c_str(), 0);
  int const second = RunningProgram({kVeltcfg}, {-1, out, -1}, ObeyPermissions).Wait();
  chmod(root_.DebugFile().c_str(), 0);
  int const first = RunningProgram({kVeltcfg}, {-1, out, -1}, ObeyPermissions).Wait();

  EXPECT_EQ(second, 1);
  EXPECT_EQ(first, 2);
  std::string const report = ReadFile(root_.Dir() / "out");
  EXPECT_THAT(report, HasSubstr("velt.cfg: warning: the file cannot be read: Permission denied"));
  EXPECT_THAT(report, HasSubstr("default_debug.cfg: error: the file cannot be read"));
}

}  // namespace
}  // namespace velt::test
