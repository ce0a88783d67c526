// What veltcfg finds in the lines, names, numbers and sets of a configuration.
#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/process.h"
#include "tests/support/veltcfg.h"

namespace velt::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class VeltcfgFindingsTest : public VeltcfgTest {};

// --- Lines ---

TEST_F(VeltcfgFindingsTest, ALineWithoutAnEqualsSignIsAWarningAndACommentIsNone) {
  EXPECT_THAT(
      FindingsOn("# nMaxFileNum 5\n  \n[traces]\r\n"),
      ElementsAre("default_debug.cfg:3: warning: a line without \"=\" is skipped: \"[traces]\" [no-item]"));
}

TEST_F(VeltcfgFindingsTest, ALineOfTheLongestLengthIsReadWhole) {
  std::string const comment = "#" + std::string(2046, 'x');

  EXPECT_THAT(FindingsOn(comment + "\nnMaxFileNum = 101\n"),
              ElementsAre(HasSubstr("default_debug.cfg:2: warning: nMaxFileNum = 101")));
}

TEST_F(VeltcfgFindingsTest, AMegabyteInOneLineEndsTheReadingAndTheLinesBehindItAreCounted) {
  EXPECT_THAT(
      FindingsOn("nMaxFileNum = 7\n#" + std::string(1 << 20, 'x') + "\nnMaxFileNum = 8\nlast"),
      ElementsAre("default_debug.cfg:2: warning: the line is over 2047 characters: it is cut there, and "
                  "nothing after it is read (2 more lines) [line-too-long]"));
}

TEST_F(VeltcfgFindingsTest, OneLineBehindALineThatIsTooLongIsCountedAsOne) {
  EXPECT_THAT(FindingsOn("#" + std::string(2047, 'x') + "\nlast"),
              ElementsAre(HasSubstr(" (1 more line) [")));
}

TEST_F(VeltcfgFindingsTest, AQuotedValueIsNotCutWithinALetter) {
  std::string const ascii(59, 'a');

  EXPECT_THAT(FindingsOn(ascii + "\xC3\xA9"
                                 "b\n"),
              ElementsAre("default_debug.cfg:1: warning: a line without \"=\" is skipped: \"" + ascii +
                          "...\" [no-item]"));
}

TEST_F(VeltcfgFindingsTest, OneCharacterTooManyInTheLastLineIsTooLongWithoutAnyLineBehind) {
  EXPECT_THAT(
      FindingsOn("#" + std::string(2047, 'x')),
      ElementsAre("default_debug.cfg:1: warning: the line is over 2047 characters: it is cut there, and "
                  "nothing after it is read [line-too-long]"));
}

TEST_F(VeltcfgFindingsTest, NulBytesAndAByteOrderMarkAreWarnings) {
  std::string const text("\xEF\xBB\xBFnMaxFileNum = 7\nnFiltLogBufSize = 5\0005\n", 40);

  EXPECT_THAT(FindingsOn(text),
              ElementsAre(HasSubstr("default_debug.cfg:1: warning: the file begins with a byte order "
                                    "mark"),
                          HasSubstr("[unknown-name]"),
                          "default_debug.cfg:2: warning: the line is read up to its first NUL byte "
                          "[nul-byte]"));
}

TEST_F(VeltcfgFindingsTest, AFileOfNulBytesAloneIsSurvived) {
  EXPECT_THAT(FindingsOn(std::string(5000, '\0')),
              ElementsAre(HasSubstr("[nul-byte]"), HasSubstr("[line-too-long]")));
}

TEST_F(VeltcfgFindingsTest, ControlCharactersOfAFileDoNotReachTheTerminal) {
  std::vector<std::string> const findings = FindingsOn("\033[31mred\a\x9B\xC2\x9B\n");

  EXPECT_THAT(findings, ElementsAre(HasSubstr("skipped: \"\\x1b[31mred\\x07\\x9b\\xc2\\x9b\"")));
}

// --- Names ---

TEST_F(VeltcfgFindingsTest, OfANumberSetTwiceTheFirstLineCounts) {
  EXPECT_THAT(
      FindingsOn("nMaxFileNum = 7\nnMaxFileNum = 8\n"),
      ElementsAre("default_debug.cfg:2: warning: \"nMaxFileNum\" does not count: line 1 has it already "
                  "[duplicate]"));
  EXPECT_THAT(Run().out, HasSubstr("  nMaxFileNum             7 channels  (\"7\" in "));
}

TEST_F(VeltcfgFindingsTest, OfASetGivenTwiceTheLastLineCountsWhateverItsNameAddsBehindTheMarker) {
  EXPECT_THAT(
      FindingsOn("net_level = 1\nnet_level2 = 01\n"),
      ElementsAre("default_debug.cfg:1: warning: \"net_level\" does not count: line 2 sets the levels of "
                  "module \"net\" again [duplicate]",
                  "default_debug.cfg:2: warning: \"net_level2\" is taken as \"net_level\" [key-tail]"));
  EXPECT_THAT(Run().out, HasSubstr("    levels   1 (E)  (\"01\" in "));
}

TEST_F(VeltcfgFindingsTest, ANameInAnotherCaseIsAWarning) {
  EXPECT_THAT(
      FindingsOn("nmaxfilenum = 7\nDEBUG_level = 1\n"),
      ElementsAre("default_debug.cfg:1: warning: \"nmaxfilenum\" is not \"nMaxFileNum\" [name-case]",
                  "default_debug.cfg:2: warning: \"DEBUG_level\" is not \"debug_level\" [name-case]"));
}

TEST_F(VeltcfgFindingsTest, AModuleThatDiffersFromAnotherInItsCaseOnlyIsANoteOnce) {
  EXPECT_THAT(
      FindingsOn("store_level = 1\nStore_output = 1\nStore_level = 1\nnet_level = 1\nSTORE_level = 1\n", 0),
      ElementsAre("default_debug.cfg:2: note: \"Store_output\" is of module \"Store\", another than "
                  "\"store\" of line 1 [module-case]",
                  "default_debug.cfg:5: note: \"STORE_level\" is of module \"STORE\", another than "
                  "\"store\" of line 1 [module-case]"));
}

TEST_F(VeltcfgFindingsTest, ItemsOfOneModuleInOneCaseAreNoNote) {
  EXPECT_THAT(FindingsOn("Store_output = 1\nStore_level = 1\nstores_level = 1\n", 0), IsEmpty());
}

TEST_F(VeltcfgFindingsTest, ASwitchInTheDebugConfigurationIsInTheWrongFile) {
  EXPECT_THAT(
      FindingsOn("EnablePrint = 1\n"),
      ElementsAre(
          "default_debug.cfg:1: warning: \"EnablePrint\" is looked for in velt.cfg only [wrong-file]"));
}

TEST_F(VeltcfgFindingsTest, AModuleInTheMainFileIsNotReadAndHostNamesThereAreNobodysBusiness) {
  WriteFile(root_.MainFile(), "net_output = 1\ncolour = red\n");

  EXPECT_THAT(FindingsOn(""),
              ElementsAre("velt.cfg:1: warning: \"net_output\" registers nothing: modules are read "
                          "from \"default_debug.cfg\" only [module-not-read]"));
}

TEST_F(VeltcfgFindingsTest, ANumberThatBothFilesHaveCountsFromTheFirst) {
  WriteFile(root_.MainFile(), "nMaxFileNum = 8\nnFiltLogBufSize = 9\n");

  EXPECT_THAT(FindingsOn("nMaxFileNum = 7\n", 0),
              ElementsAre("velt.cfg:1: note: \"nMaxFileNum\" does not count: \"default_debug.cfg\" has it "
                          "[overridden]"));
  EXPECT_THAT(Run().out,
              HasSubstr("  nMaxFileNum             7 channels  (\"7\" in " + root_.DebugFile() + ":1)"));
  EXPECT_THAT(Run().out,
              HasSubstr("  nFiltLogBufSize         9 records  (\"9\" in " + root_.MainFile() + ":2)"));
}

TEST_F(VeltcfgFindingsTest, MainFileGivenAsTheHostsOwnIsReadOnce) {
  WriteFile(root_.DebugFile(), "");
  WriteFile(root_.MainFile(), "net_level = 1\nEnableLog = 0\nnMaxFileNum = 101\n");

  Outcome const outcome = Run({root_.MainFile()});

  EXPECT_THAT(Findings(outcome.out),
              ElementsAre(HasSubstr("velt.cfg:3: warning: nMaxFileNum = 101 is not from")));
  EXPECT_THAT(outcome.out, HasSubstr("  second  nothing"));
  EXPECT_THAT(outcome.out, HasSubstr("  EnableLog               no"));
}

// --- Numbers ---

TEST_F(VeltcfgFindingsTest, EveryLimitOutOfRangeIsReplacedAndSaysByWhat) {
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

TEST_F(VeltcfgFindingsTest, ASignBeforeTheDigitsIsPartOfANumber) {
  EXPECT_THAT(FindingsOn("nMaxFileNum = +7\nnFiltLogBufSize = -0\n", 0), IsEmpty());
}

TEST_F(VeltcfgFindingsTest, ATextThatIsNotWhollyANumberSaysWhatItIsReadAs) {
  EXPECT_THAT(FindingsOn("nMaxFileNum = 10MB\nnFiltLogBufSize =\nnEachFileMaxSize = 99999999999\n"),
              ElementsAre("default_debug.cfg:1: warning: nMaxFileNum = \"10MB\" is read as 10 [number-text]",
                          "default_debug.cfg:2: warning: nFiltLogBufSize = \"\" is read as 0 [number-text]",
                          HasSubstr("nEachFileMaxSize = \"99999999999\" is read as 1215752191 [number-text]"),
                          HasSubstr("[limit-wrapped]"), HasSubstr("[limit-replaced]")));
}

TEST_F(VeltcfgFindingsTest, ASizeThatWrapsIntoTheRangeIsAWarning) {
  EXPECT_THAT(
      FindingsOn("nEachFileMaxSize = 4097\n"),
      ElementsAre("default_debug.cfg:1: warning: nEachFileMaxSize = 4097 MB is more than 32 bits hold: it is "
                  "taken as 1 MB [limit-wrapped]"));
}

TEST_F(VeltcfgFindingsTest, ANumberOfTooManyCharactersIsPassedOver) {
  WriteFile(root_.MainFile(), "nMaxFileNum = 8\n");

  EXPECT_THAT(
      FindingsOn("nMaxFileNum = " + std::string(1791, '0') + "7\n"),
      Contains(
          "default_debug.cfg:1: warning: nMaxFileNum is passed over: its value has 1792 characters, more "
          "than are read of a number [number-too-long]"));
  EXPECT_THAT(Run().out, HasSubstr("  nMaxFileNum             8 channels"));
}

TEST_F(VeltcfgFindingsTest, OneHostKeepsFiveTimesTheArchives) {
  WriteFile(root_.DebugFile(), "nEachProcessMaxZipNum = 20\n");

  EXPECT_THAT(Run({"--name", "VELTMrb_p2_"}).out, HasSubstr("  nEachProcessMaxZipNum   100 archives"));
  EXPECT_THAT(Run({"--name", "VELTMrb_p3_"}).out, HasSubstr("  nEachProcessMaxZipNum   20 archives"));
}

TEST_F(VeltcfgFindingsTest, ANumberOfTooManyCharactersInTheSecondFileIsPassedOverToo) {
  WriteFile(root_.MainFile(), "nMaxFileNum = " + std::string(1791, '0') + "7\n");

  EXPECT_THAT(
      FindingsOn(""),
      Contains(
          "velt.cfg:1: warning: nMaxFileNum is passed over: its value has 1792 characters, more than are "
          "read of a number [number-too-long]"));
}

TEST_F(VeltcfgFindingsTest, ASwitchIsOnWithEveryNumberButZero) {
  WriteFile(root_.DebugFile(), "");
  WriteFile(root_.MainFile(), "EnablePrint = 2\nEnableLog = -1\n");

  std::string const report = Run().out;

  EXPECT_THAT(report, HasSubstr("  EnablePrint             yes  (\"2\" in "));
  EXPECT_THAT(report, HasSubstr("  EnableLog               yes  (\"-1\" in "));
}

TEST_F(VeltcfgFindingsTest, SwitchesAreReadFromTheMainFile) {
  WriteFile(root_.DebugFile(), "");
  WriteFile(root_.MainFile(), "EnablePrint = yes\nEnableLog = 0\n");

  Outcome const outcome = Run();

  EXPECT_THAT(Findings(outcome.out),
              ElementsAre("velt.cfg:1: warning: EnablePrint = \"yes\" is read as 0 [number-text]"));
  EXPECT_THAT(outcome.out, HasSubstr("  EnablePrint             no  (\"yes\" in "));
  EXPECT_THAT(outcome.out, HasSubstr("  EnableLog               no  (\"0\" in "));
}

// --- Modules ---

TEST_F(VeltcfgFindingsTest, EveryModuleStandsThereWithBitsAndTags) {
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

TEST_F(VeltcfgFindingsTest, AnInvalidSetTextSaysWhatReplacesIt) {
  EXPECT_THAT(
      FindingsOn("net_level = 10x1\nnet_output = abc\n"),
      ElementsAre("default_debug.cfg:1: warning: net_level = \"10x1\" is not a text of 0 and 1: levels of "
                  "module \"net\" are 0 (A), 1 (E) [set-invalid]",
                  "default_debug.cfg:2: warning: net_output = \"abc\" is not a text of 0 and 1: outputs of "
                  "module \"net\" are 0 (standard output), 1 (log file) [set-invalid]"));
}

TEST_F(VeltcfgFindingsTest, ASetOfHighBitsIsReducedAndALongTextCountsFromItsEnd) {
  EXPECT_THAT(
      FindingsOn("net_level = 10000000000001\nstore_level = 1" + std::string(32, '0') + "\n"),
      ElementsAre("default_debug.cfg:1: warning: net_level = \"10000000000001\" keeps bits 0 to 3 only: "
                  "levels of module \"net\" are 0 (A) [set-reduced]",
                  "default_debug.cfg:2: warning: store_level has 33 characters, of which the last 32 count: "
                  "levels of module \"store\" are none [set-too-long]"));
}

TEST_F(VeltcfgFindingsTest, ALevelThatStandsOnlyInTheSecondFileLeavesDebugEmpty) {
  WriteFile(root_.MainFile(), "debug_level = 1111\n");

  EXPECT_THAT(FindingsOn(""),
              ElementsAre("velt.cfg:1: warning: \"debug_level\" stands only in the file that is read "
                          "second, and does not count: levels of module \"debug\" are none "
                          "[debug-set-lost]"));
}

TEST_F(VeltcfgFindingsTest, AnOutputThatStandsOnlyInTheSecondFileIsEmptyOrTheDefault) {
  WriteFile(root_.MainFile(), "debug_output = 11\n");

  EXPECT_THAT(FindingsOn(""),
              ElementsAre(HasSubstr("outputs of module \"debug\" are none [debug-set-lost]")));
  EXPECT_THAT(FindingsOn("debug_level = 1\n"),
              ElementsAre(HasSubstr("outputs of module \"debug\" are 1 (log file) [debug-set-lost]")));
}

TEST_F(VeltcfgFindingsTest, ItemsWithoutAModuleOrWithBothMarkersAreWarnings) {
  EXPECT_THAT(
      FindingsOn("_level = 1\na_level_output = 1\n"),
      ElementsAre("default_debug.cfg:1: warning: \"_level\" names no module and is skipped [module-nameless]",
                  "default_debug.cfg:2: warning: \"a_level_output\" gives levels to module \"a\" and outputs "
                  "to module \"a_level\" [key-ambiguous]"));
}

}  // namespace
}  // namespace velt::test
