// veltcfg as its users run it: what it finds in a configuration, and its exit code for that.
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
#include "tests/support/installation.h"
#include "tests/support/process.h"
#include "tests/support/running_program.h"

namespace velt::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

std::string const kProgram = std::string(VELT_TOOLS_DIR) + "/veltcfg";

class VeltcfgTest : public testing::Test {
 protected:
  Outcome Run(std::vector<std::string> const& arguments = {}) const {
    std::vector<std::string> command{kProgram};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return RunProgram(command);
  }

  // The findings on default_debug.cfg with that text, each without the path; velt.cfg stays as it is.
  std::vector<std::string> FindingsOn(std::string const& debug_text, int exit_code = 1) {
    WriteFile(root_.DebugFile(), debug_text);
    Outcome const outcome = Run();
    EXPECT_EQ(outcome.exit_code, exit_code) << outcome.out << outcome.err;
    EXPECT_THAT(outcome.err, IsEmpty());
    return Findings(outcome.out);
  }

  std::vector<std::string> Findings(std::string const& report) const {
    std::vector<std::string> found;
    std::string const directory = root_.Dir() / "conf/";
    bool inside = false;
    for (auto line : Lines(report)) {
      if (inside) {
        for (std::size_t at = line.find(directory); at != std::string::npos; at = line.find(directory))
          line.erase(at, directory.size());
        found.push_back(line);
      }
      inside = inside || line == "Findings";
    }
    return found;
  }

  InstalledRoot root_;
};

// ---- Exit codes

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
  std::vector<std::vector<std::string>> const mistakes{{"--unknown"}, {"--name"},         {"--name", ""},
                                                       {""},          {"a.cfg", "b.cfg"}, {"--json=yes"}};
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
  for (char const* const option : {"--name", "--json", "--help", "--version"}) {
    EXPECT_THAT(help.out, HasSubstr(std::string("\n  ") + option + " "));
  }
  EXPECT_EQ(version.exit_code, 0);
  EXPECT_EQ(version.out, "veltcfg 1.0.0\n");
}

TEST_F(VeltcfgTest, AnOutputThatTakesNothingIsExitCodeTwo) {
  WriteFile(root_.DebugFile(), "");
  Descriptor const full(open("/dev/full", O_WRONLY | O_CLOEXEC));
  Descriptor const err(open((root_.Dir() / "err").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  RunningProgram program({kProgram}, {-1, full, err});

  EXPECT_EQ(program.Wait(), 2);
  EXPECT_THAT(ReadFile(root_.Dir() / "err"), HasSubstr("cannot write to standard output"));
}

TEST_F(VeltcfgTest, NothingIsLeftOnDisk) {
  WriteFile(root_.DebugFile(), "net_level = 1\n");
  setenv("_APP_LOG_DIR", (root_.Dir() / "log").c_str(), 1);
  std::filesystem::create_directory(root_.Dir() / "log");

  Outcome const outcome = RunProgram({"env", "TMPDIR=" + root_.Dir().Path(), kProgram});

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

// ---- Environment and files

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

// Of the root user too: without these two capabilities its accesses are checked like anybody's.
void ObeyPermissions() {
  prctl(PR_CAPBSET_DROP, 1 /* CAP_DAC_OVERRIDE */);
  prctl(PR_CAPBSET_DROP, 2 /* CAP_DAC_READ_SEARCH */);
}

TEST_F(VeltcfgTest, AFileWithoutPermissionIsExitCodeTwoAndASecondOneAWarning) {
  WriteFile(root_.DebugFile(), "");
  WriteFile(root_.MainFile(), "");
  Descriptor const out(open((root_.Dir() / "out").c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600));

  chmod(root_.MainFile().c_str(), 0);
  int const second = RunningProgram({kProgram}, {-1, out, -1}, ObeyPermissions).Wait();
  chmod(root_.DebugFile().c_str(), 0);
  int const first = RunningProgram({kProgram}, {-1, out, -1}, ObeyPermissions).Wait();

  EXPECT_EQ(second, 1);
  EXPECT_EQ(first, 2);
  std::string const report = ReadFile(root_.Dir() / "out");
  EXPECT_THAT(report, HasSubstr("velt.cfg: warning: the file cannot be read: Permission denied"));
  EXPECT_THAT(report, HasSubstr("default_debug.cfg: error: the file cannot be read"));
}

// ---- Lines

TEST_F(VeltcfgTest, ALineWithoutAnEqualsSignIsAWarningAndACommentIsNone) {
  EXPECT_THAT(
      FindingsOn("# nMaxFileNum 5\n  \n[traces]\r\n"),
      ElementsAre("default_debug.cfg:3: warning: a line without \"=\" is skipped: \"[traces]\" [no-item]"));
}

TEST_F(VeltcfgTest, ALineOfTheLongestLengthIsReadWhole) {
  std::string const comment = "#" + std::string(2046, 'x');

  EXPECT_THAT(FindingsOn(comment + "\nnMaxFileNum = 101\n"),
              ElementsAre(HasSubstr("default_debug.cfg:2: warning: nMaxFileNum = 101")));
}

TEST_F(VeltcfgTest, AMegabyteInOneLineEndsTheReadingAndTheLinesBehindItAreCounted) {
  EXPECT_THAT(
      FindingsOn("nMaxFileNum = 7\n#" + std::string(1 << 20, 'x') + "\nnMaxFileNum = 8\nlast"),
      ElementsAre("default_debug.cfg:2: warning: the line is over 2047 characters: it is cut there, and "
                  "nothing after it is read (2 more lines) [line-too-long]"));
}

TEST_F(VeltcfgTest, OneCharacterTooManyInTheLastLineIsTooLongWithoutAnyLineBehind) {
  EXPECT_THAT(
      FindingsOn("#" + std::string(2047, 'x')),
      ElementsAre("default_debug.cfg:1: warning: the line is over 2047 characters: it is cut there, and "
                  "nothing after it is read [line-too-long]"));
}

TEST_F(VeltcfgTest, NulBytesAndAByteOrderMarkAreWarnings) {
  std::string const text("\xEF\xBB\xBFnMaxFileNum = 7\nnFiltLogBufSize = 5\0005\n", 40);

  EXPECT_THAT(FindingsOn(text),
              ElementsAre(HasSubstr("default_debug.cfg:1: warning: the file begins with a byte order "
                                    "mark"),
                          HasSubstr("[unknown-name]"),
                          "default_debug.cfg:2: warning: the line is read up to its first NUL byte "
                          "[nul-byte]"));
}

TEST_F(VeltcfgTest, AFileOfNulBytesAloneIsSurvived) {
  EXPECT_THAT(FindingsOn(std::string(5000, '\0')),
              ElementsAre(HasSubstr("[nul-byte]"), HasSubstr("[line-too-long]")));
}

TEST_F(VeltcfgTest, ControlCharactersOfAFileDoNotReachTheTerminal) {
  std::vector<std::string> const findings = FindingsOn("\033[31mred\a\x9B\xC2\x9B\n");

  EXPECT_THAT(findings, ElementsAre(HasSubstr("skipped: \"\\x1b[31mred\\x07\\x9b\\xc2\\x9b\"")));
}

// ---- Names

TEST_F(VeltcfgTest, OfANumberSetTwiceTheFirstLineCounts) {
  EXPECT_THAT(
      FindingsOn("nMaxFileNum = 7\nnMaxFileNum = 8\n"),
      ElementsAre("default_debug.cfg:2: warning: \"nMaxFileNum\" does not count: line 1 has it already "
                  "[duplicate]"));
  EXPECT_THAT(Run().out, HasSubstr("  nMaxFileNum             7 channels  (\"7\" in "));
}

TEST_F(VeltcfgTest, OfASetGivenTwiceTheLastLineCountsWhateverItsNameAddsBehindTheMarker) {
  EXPECT_THAT(
      FindingsOn("net_level = 1\nnet_level2 = 01\n"),
      ElementsAre("default_debug.cfg:1: warning: \"net_level\" does not count: line 2 sets the levels of "
                  "module \"net\" again [duplicate]",
                  "default_debug.cfg:2: warning: \"net_level2\" is taken as \"net_level\" [key-tail]"));
  EXPECT_THAT(Run().out, HasSubstr("    levels   1 (E)  (\"01\" in "));
}

TEST_F(VeltcfgTest, ANameInAnotherCaseIsAWarning) {
  EXPECT_THAT(
      FindingsOn("nmaxfilenum = 7\nDEBUG_level = 1\n"),
      ElementsAre("default_debug.cfg:1: warning: \"nmaxfilenum\" is not \"nMaxFileNum\" [name-case]",
                  "default_debug.cfg:2: warning: \"DEBUG_level\" is not \"debug_level\" [name-case]"));
}

TEST_F(VeltcfgTest, ASwitchInTheDebugConfigurationIsInTheWrongFile) {
  EXPECT_THAT(
      FindingsOn("EnablePrint = 1\n"),
      ElementsAre(
          "default_debug.cfg:1: warning: \"EnablePrint\" is looked for in velt.cfg only [wrong-file]"));
}

TEST_F(VeltcfgTest, AModuleInTheMainFileIsNotReadAndHostNamesThereAreNobodysBusiness) {
  WriteFile(root_.MainFile(), "net_output = 1\ncolour = red\n");

  EXPECT_THAT(FindingsOn(""),
              ElementsAre("velt.cfg:1: warning: \"net_output\" registers nothing: modules are read "
                          "from \"default_debug.cfg\" only [module-not-read]"));
}

TEST_F(VeltcfgTest, ANumberThatBothFilesHaveCountsFromTheFirst) {
  WriteFile(root_.MainFile(), "nMaxFileNum = 8\nnFiltLogBufSize = 9\n");

  EXPECT_THAT(FindingsOn("nMaxFileNum = 7\n", 0),
              ElementsAre("velt.cfg:1: note: \"nMaxFileNum\" does not count: \"default_debug.cfg\" has it "
                          "[overridden]"));
  EXPECT_THAT(Run().out,
              HasSubstr("  nMaxFileNum             7 channels  (\"7\" in " + root_.DebugFile() + ":1)"));
  EXPECT_THAT(Run().out,
              HasSubstr("  nFiltLogBufSize         9 records  (\"9\" in " + root_.MainFile() + ":2)"));
}

TEST_F(VeltcfgTest, MainFileGivenAsTheHostsOwnIsReadOnce) {
  WriteFile(root_.DebugFile(), "");
  WriteFile(root_.MainFile(), "net_level = 1\nEnableLog = 0\nnMaxFileNum = 101\n");

  Outcome const outcome = Run({root_.MainFile()});

  EXPECT_THAT(Findings(outcome.out),
              ElementsAre(HasSubstr("velt.cfg:3: warning: nMaxFileNum = 101 is not from")));
  EXPECT_THAT(outcome.out, HasSubstr("  second  nothing"));
  EXPECT_THAT(outcome.out, HasSubstr("  EnableLog               no"));
}

// ---- Numbers

TEST_F(VeltcfgTest, EveryLimitOutOfRangeIsReplacedAndSaysByWhat) {
  EXPECT_THAT(
      FindingsOn("nFiltLogBufSize = 1001\nnMaxFileNum = 101\nnEachFileMaxSize = 51\n"
                 "nEachProcessMaxZipNum = 0\nnZipFileIncludeFileNum = -1\n"),
      ElementsAre("default_debug.cfg:1: warning: nFiltLogBufSize = 1001 is not from 0 to 1000: 100 replaces "
                  "it [limit-replaced]",
                  "default_debug.cfg:2: warning: nMaxFileNum = 101 is not from 0 to 100: 50 replaces it "
                  "[limit-replaced]",
                  "default_debug.cfg:3: warning: nEachFileMaxSize = 51 is not from 1 MB to 50 MB: 5 MB "
                  "replaces it [limit-replaced]",
                  "default_debug.cfg:4: warning: nEachProcessMaxZipNum = 0 is not from 1 to 200: 30 replaces "
                  "it [limit-replaced]",
                  "default_debug.cfg:5: warning: nZipFileIncludeFileNum = -1 is not from 1 to 50: 10 "
                  "replaces it [limit-replaced]"));
  EXPECT_THAT(Run().out, HasSubstr("  nEachFileMaxSize        5242880 bytes  (\"51\" in " +
                                   root_.DebugFile() + ":3)  instead of 53477376\n"));
}

TEST_F(VeltcfgTest, ATextThatIsNotWhollyANumberSaysWhatItIsReadAs) {
  EXPECT_THAT(FindingsOn("nMaxFileNum = 10MB\nnFiltLogBufSize =\nnEachFileMaxSize = 99999999999\n"),
              ElementsAre("default_debug.cfg:1: warning: nMaxFileNum = \"10MB\" is read as 10 [number-text]",
                          "default_debug.cfg:2: warning: nFiltLogBufSize = \"\" is read as 0 [number-text]",
                          HasSubstr("nEachFileMaxSize = \"99999999999\" is read as 1215752191 [number-text]"),
                          HasSubstr("[limit-wrapped]"), HasSubstr("[limit-replaced]")));
}

TEST_F(VeltcfgTest, ASizeThatWrapsIntoTheRangeIsAWarning) {
  EXPECT_THAT(
      FindingsOn("nEachFileMaxSize = 4097\n"),
      ElementsAre("default_debug.cfg:1: warning: nEachFileMaxSize = 4097 MB is more than 32 bits hold: it is "
                  "taken as 1 MB [limit-wrapped]"));
}

TEST_F(VeltcfgTest, ANumberOfTooManyCharactersIsPassedOver) {
  WriteFile(root_.MainFile(), "nMaxFileNum = 8\n");

  EXPECT_THAT(
      FindingsOn("nMaxFileNum = " + std::string(1791, '0') + "7\n"),
      Contains(
          "default_debug.cfg:1: warning: nMaxFileNum is passed over: its value has 1792 characters, more "
          "than are read of a number [number-too-long]"));
  EXPECT_THAT(Run().out, HasSubstr("  nMaxFileNum             8 channels"));
}

TEST_F(VeltcfgTest, OneHostKeepsFiveTimesTheArchives) {
  WriteFile(root_.DebugFile(), "nEachProcessMaxZipNum = 20\n");

  EXPECT_THAT(Run({"--name", "VELTMrb_p2_"}).out, HasSubstr("  nEachProcessMaxZipNum   100 archives"));
  EXPECT_THAT(Run({"--name", "VELTMrb_p3_"}).out, HasSubstr("  nEachProcessMaxZipNum   20 archives"));
}

TEST_F(VeltcfgTest, SwitchesAreReadFromTheMainFile) {
  WriteFile(root_.DebugFile(), "");
  WriteFile(root_.MainFile(), "EnablePrint = yes\nEnableLog = 0\n");

  Outcome const outcome = Run();

  EXPECT_THAT(Findings(outcome.out),
              ElementsAre("velt.cfg:1: warning: EnablePrint = \"yes\" is read as 0 [number-text]"));
  EXPECT_THAT(outcome.out, HasSubstr("  EnablePrint             no  (\"yes\" in "));
  EXPECT_THAT(outcome.out, HasSubstr("  EnableLog               no  (\"0\" in "));
}

// ---- Modules

TEST_F(VeltcfgTest, EveryModuleStandsThereWithBitsAndTags) {
  WriteFile(root_.DebugFile(), "net_level = 11111\nstore_output = 11\n");

  std::vector<std::string> const lines = Lines(Run().out);

  auto const modules = std::find(lines.begin(), lines.end(), "Modules");
  EXPECT_THAT(
      std::vector<std::string>(modules, lines.end()),
      ElementsAre("Modules", "  debug", "    levels   0 (A), 1 (E)  (default)",
                  "    outputs  1 (log file)  (default)", "  net",
                  "    levels   0 (A), 1 (E), 2 (W), 3 (I), 4  (\"11111\" in " + root_.DebugFile() + ":1)",
                  "    outputs  1 (log file)  (default)", "  store", "    levels   0 (A), 1 (E)  (default)",
                  "    outputs  0 (standard output), 1 (log file)  (\"11\" in " + root_.DebugFile() + ":2)",
                  "Findings: none"));
}

TEST_F(VeltcfgTest, AnInvalidSetTextSaysWhatReplacesIt) {
  EXPECT_THAT(
      FindingsOn("net_level = 10x1\nnet_output = abc\n"),
      ElementsAre("default_debug.cfg:1: warning: net_level = \"10x1\" is not a text of 0 and 1: levels of "
                  "module \"net\" are 0 (A), 1 (E) [set-invalid]",
                  "default_debug.cfg:2: warning: net_output = \"abc\" is not a text of 0 and 1: outputs of "
                  "module \"net\" are 0 (standard output), 1 (log file) [set-invalid]"));
}

TEST_F(VeltcfgTest, ASetOfHighBitsIsReducedAndALongTextCountsFromItsEnd) {
  EXPECT_THAT(
      FindingsOn("net_level = 10000000000001\nstore_level = 1" + std::string(32, '0') + "\n"),
      ElementsAre("default_debug.cfg:1: warning: net_level = \"10000000000001\" keeps bits 0 to 3 only: "
                  "levels of module \"net\" are 0 (A) [set-reduced]",
                  "default_debug.cfg:2: warning: store_level has 33 characters, of which the last 32 count: "
                  "levels of module \"store\" are none [set-too-long]"));
}

TEST_F(VeltcfgTest, ALevelThatStandsOnlyInTheSecondFileLeavesDebugEmpty) {
  WriteFile(root_.MainFile(), "debug_level = 1111\n");

  EXPECT_THAT(FindingsOn(""),
              ElementsAre("velt.cfg:1: warning: \"debug_level\" stands only in the file that is read "
                          "second, and does not count: levels of module \"debug\" are none "
                          "[debug-set-lost]"));
}

TEST_F(VeltcfgTest, AnOutputThatStandsOnlyInTheSecondFileIsEmptyOrTheDefault) {
  WriteFile(root_.MainFile(), "debug_output = 11\n");

  EXPECT_THAT(FindingsOn(""),
              ElementsAre(HasSubstr("outputs of module \"debug\" are none [debug-set-lost]")));
  EXPECT_THAT(FindingsOn("debug_level = 1\n"),
              ElementsAre(HasSubstr("outputs of module \"debug\" are 1 (log file) [debug-set-lost]")));
}

TEST_F(VeltcfgTest, ItemsWithoutAModuleOrWithBothMarkersAreWarnings) {
  EXPECT_THAT(
      FindingsOn("_level = 1\na_level_output = 1\n"),
      ElementsAre("default_debug.cfg:1: warning: \"_level\" names no module and is skipped [module-nameless]",
                  "default_debug.cfg:2: warning: \"a_level_output\" gives levels to module \"a\" and outputs "
                  "to module \"a_level\" [key-ambiguous]"));
}

}  // namespace
}  // namespace velt::test
