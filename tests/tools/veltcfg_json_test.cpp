// veltcfg --json: valid whatever the files hold, and the same content as the text.
#include <cstdlib>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/support/files.h"
#include "tests/support/installation.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

using Json = nlohmann::json;
using testing::HasSubstr;

std::string const kProgram = std::string(VELT_TOOLS_DIR) + "/veltcfg";

std::string Padded(std::string text, std::size_t width) {
  text.resize(std::max(width, text.size()), ' ');
  return text;
}

std::string Text(Json const& value) { return value.is_string() ? value.get<std::string>() : value.dump(); }

std::string OrElse(Json const& text, std::string const& otherwise) {
  return text.is_null() ? otherwise : Text(text);
}

std::string At(Json const& entry) {
  if (entry["file"].is_null()) return "environment";
  return Text(entry["file"]) + (entry["line"].is_null() ? "" : ":" + Text(entry["line"]));
}

std::string Origin(Json const& entry) {
  return entry["text"].is_null() ? "  (default)" : "  (\"" + Text(entry["text"]) + "\" in " + At(entry) + ")";
}

std::string LocationLine(Json const& entry) {
  std::string const missing = entry["exists"] == true ? ")" : "; does not exist)";
  std::string const line = "  " + Padded(entry["name"], 19);
  return entry["path"].is_null() ? line + "none"
                                 : line + Text(entry["path"]) + "  (" + Text(entry["from"]) + missing;
}

std::string SetLine(char const* name, Json const& set) {
  std::string bits;
  for (auto const& bit : set["bits"]) {
    std::string const tag = bit["tag"];
    bits += (bits.empty() ? "" : ", ") + Text(bit["bit"]) + (tag.empty() ? "" : " (" + tag + ")");
  }
  return "    " + Padded(name, 9) + (bits.empty() ? "none" : bits) + Origin(set) + "\n";
}

std::string NumberLines(Json const& report) {
  std::string text = "Limits\n";
  for (auto const& limit : report["limits"]) {
    text +=
        "  " + Padded(limit["key"], 24) + Text(limit["value"]) + " " + Text(limit["unit"]) + Origin(limit);
    text += limit["replaced"] == true ? "  instead of " + Text(limit["as_read"]) + "\n" : "\n";
  }
  text += "Switches\n";
  for (auto const& entry : report["switches"]) {
    text += "  " + Padded(entry["key"], 24) + (entry["on"] == true ? "yes" : "no") + Origin(entry) + "\n";
  }
  return text;
}

// The text report, made of nothing but the JSON.
std::string TextOf(Json const& report) {
  std::string text = "Environment\n";
  for (auto const& entry : report["environment"]) {
    std::string const value = entry["value"].is_null() ? "not set" : "\"" + Text(entry["value"]) + "\"";
    text += "  " + Padded(entry["variable"], 17) + value + "\n";
  }
  text += "Directories\n";
  for (auto const& entry : report["directories"]) text += LocationLine(entry) + "\n";
  text += "Files\n";
  for (auto const& entry : report["files"]) text += LocationLine(entry) + "\n";
  text += "Read\n  first   " + OrElse(report["read"]["first"], "nothing") + "\n";
  text += "  second  " + OrElse(report["read"]["second"], "nothing") + "\n";
  if (!report["limits"].empty()) {
    text += NumberLines(report) + "Modules\n";
    for (auto const& entry : report["modules"]) {
      text += "  " + Text(entry["name"]) + "\n" + SetLine("levels", entry["levels"]) +
              SetLine("outputs", entry["outputs"]);
    }
  }
  text += report["findings"].empty() ? "Findings: none\n" : "Findings\n";
  for (auto const& entry : report["findings"]) {
    text += At(entry) + ": " + Text(entry["severity"]) + ": " + Text(entry["message"]) + " [" +
            Text(entry["kind"]) + "]\n";
  }
  return text;
}

class VeltcfgJsonTest : public testing::Test {
 protected:
  Json Read() {
    Outcome const outcome = RunProgram({kProgram, "--json"});
    exit_code_ = outcome.exit_code;
    raw_ = outcome.out;
    return Json::parse(outcome.out);
  }

  InstalledRoot root_;
  int exit_code_ = -1;
  std::string raw_;
};

TEST_F(VeltcfgJsonTest, ACleanReportHasTheContentOfTheText) {
  WriteFile(root_.DebugFile(), "nMaxFileNum = 7\nnet_level = 1\n");

  Json const report = Read();

  EXPECT_EQ(TextOf(report), RunProgram({kProgram}).out);
  EXPECT_EQ(report["status"], 0);
  EXPECT_EQ(exit_code_, 0);
  EXPECT_EQ(report["program"], "veltcfg");
  EXPECT_EQ(report["version"], "1.0.0");
}

TEST_F(VeltcfgJsonTest, AReportFullOfFindingsHasTheContentOfTheText) {
  setenv("COMMON_LIB_PATH", " /shared", 1);
  setenv("_APP_LOG_DIR", "/no/such/directory", 1);
  WriteFile(root_.MainFile(), "debug_level = 1\nnet_output = 1\nnMaxFileNum = 1\nEnablePrint = x\n");
  WriteFile(root_.DebugFile(),
            "nMaxFileNum = 1000\nnMaxFileNum = 5\nno item\nnEachFileMaxSize = 4097\nnet_level = 12\n"
            "_output = 1\ncolour = red\nENABLELOG = 1\nnet_output = 00000000000000001\n" +
                std::string(3000, '='));

  Json const report = Read();

  EXPECT_EQ(TextOf(report), RunProgram({kProgram}).out);
  EXPECT_EQ(report["status"], 1);
  EXPECT_EQ(exit_code_, 1);
  EXPECT_GE(report["findings"].size(), 13U);
}

TEST_F(VeltcfgJsonTest, AReportWithoutAConfigurationHasTheContentOfTheText) {
  Json const report = Read();

  EXPECT_EQ(TextOf(report), RunProgram({kProgram}).out);
  EXPECT_EQ(report["status"], 2);
  EXPECT_EQ(exit_code_, 2);
  EXPECT_TRUE(report["limits"].empty());
  EXPECT_TRUE(report["read"]["first"].is_null());
}

TEST_F(VeltcfgJsonTest, ALimitSaysWhatWasReadAndWhatItsBoundsAre) {
  WriteFile(root_.DebugFile(), "\nnEachFileMaxSize = 51\n");

  Json const report = Read();

  Json const& size = report["limits"].at(2);
  EXPECT_EQ(size["key"], "nEachFileMaxSize");
  EXPECT_EQ(size["text"], "51");
  EXPECT_EQ(size["number"], 51);
  EXPECT_EQ(size["file"], root_.DebugFile());
  EXPECT_EQ(size["line"], 2);
  EXPECT_EQ(size["as_read"], 53477376);
  EXPECT_EQ(size["value"], 5242880);
  EXPECT_EQ(size["low"], 1048576);
  EXPECT_EQ(size["high"], 52428800);
  EXPECT_EQ(size["default"], 5242880);
  EXPECT_EQ(size["replaced"], true);
}

TEST_F(VeltcfgJsonTest, ASetIsThereInTheFormOfTheConfigurationToo) {
  WriteFile(root_.DebugFile(), "net_level = 0110\nnet_output =\n");

  Json const report = Read();

  Json const& net = report["modules"].at(1);
  EXPECT_EQ(net["name"], "net");
  EXPECT_EQ(net["levels"]["set"], "011");
  EXPECT_EQ(net["levels"]["bits"].at(0)["bit"], 1);
  EXPECT_EQ(net["levels"]["bits"].at(0)["tag"], "E");
  EXPECT_EQ(net["outputs"]["set"], "");
  EXPECT_EQ(net["outputs"]["text"], "");
}

TEST_F(VeltcfgJsonTest, QuotesBackslashesAndControlCharactersAreEscaped) {
  WriteFile(root_.DebugFile(), "a\"b\\c\x01\x1b\td_level = 1\n");

  Json const report = Read();

  EXPECT_EQ(report["modules"].at(0)["name"], "a\"b\\c\x01\x1b\td");
  EXPECT_THAT(raw_, HasSubstr("a\\\"b\\\\c\\u0001\\u001b\\td"));
}

TEST_F(VeltcfgJsonTest, BytesThatAreNoUtf8BecomeTheReplacementCharacterAndUtf8Stays) {
  WriteFile(root_.DebugFile(), "\xC3\xA9\xFF\xC0\xAF\xED\xA0\x80\xF0\x9F\x98\x80\xE2\x82_level = 1\n");

  Json const report = Read();

  std::string const gone = "\xEF\xBF\xBD";
  std::string name = "\xC3\xA9" + gone;             // FF
  name += gone + gone;                              // C0 AF, an overlong form
  name += gone + gone + gone + "\xF0\x9F\x98\x80";  // ED A0 80, a surrogate
  name += gone + gone;                              // E2 82, a sequence without its end
  EXPECT_EQ(report["modules"].at(1)["name"], name);
}

TEST_F(VeltcfgJsonTest, OverlongFormsOfThreeBytesAndWhatIsAboveUnicodeAreNoUtf8) {
  WriteFile(root_.DebugFile(), "\xE0\x80\x80\xF4\x90\x80\x80_level = 1\n");

  Json const report = Read();

  std::string seven;
  for (int byte = 0; byte < 7; ++byte) seven += "\xEF\xBF\xBD";
  EXPECT_EQ(report["modules"].at(1)["name"], seven);
}

TEST_F(VeltcfgJsonTest, EveryByteAndANewlineInAPathGiveValidJson) {
  std::string bytes;
  for (int byte = 1; byte < 256; ++byte) bytes += static_cast<char>(byte);
  WriteFile(root_.DebugFile(), bytes + "\n" + bytes + "_level = " + bytes);
  setenv("_APP_TMP_DIR", bytes.c_str(), 1);

  EXPECT_NO_THROW(Read());
  EXPECT_EQ(exit_code_, 1);
}

TEST_F(VeltcfgJsonTest, ANewlineInAPathDoesNotBeginALineOfTheText) {
  WriteFile(root_.DebugFile(), "");
  setenv("_APP_TMP_DIR", "/tmp\nFindings: none", 1);

  EXPECT_THAT(RunProgram({kProgram}).out,
              HasSubstr("  temporary          /tmp\\x0aFindings: none/  (_APP_TMP_DIR"));
}

}  // namespace
}  // namespace velt::test
