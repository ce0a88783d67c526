#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/process.h"
#include "velt/config.h"

namespace velt::test {
namespace {

using Items = std::map<std::string, std::string>;

// A configuration file of one test.
class ConfigFile {
 public:
  explicit ConfigFile(std::string const& content) : path_(directory_ / "test.cfg") {
    WriteFile(path_, content);
  }

  char const* Path() const { return path_.c_str(); }

 private:
  ScratchDir directory_;
  std::string path_;
};

struct Found {
  bool found = false;
  std::string text;  // what the buffer holds
  int length = -1;
};

Found LookUp(char const* name, char const* file, int capacity = 4096) {
  std::vector<char> buffer(static_cast<std::size_t>(capacity > 0 ? capacity : 1), '#');
  Found result;
  result.length = capacity;
  result.found = VeltGetCfgString(name, buffer.data(), result.length, file);
  if (result.found) result.text = buffer.data();
  return result;
}

std::string ValueOf(char const* name, std::string const& content) {
  ConfigFile const file(content);
  Found const result = LookUp(name, file.Path());
  if (!result.found) return result.length == 0 ? "<none>" : "<none, but a length>";
  return static_cast<std::size_t>(result.length) == result.text.size() ? result.text : "<wrong length>";
}

int NumberOf(std::string const& text, int untouched = -77) {
  ConfigFile const file("n = " + text + "\n");
  int value = untouched;
  VeltGetCfgInt("n", value, file.Path());
  return value;
}

Items AllOf(std::string const& content, std::string const& marker = {}) {
  ConfigFile const file(content);
  Items items;
  EXPECT_TRUE(VeltAllCfgItem(items, file.Path(), marker));
  return items;
}

// Runs `body` without the superuser's right to read everything.
int AsOrdinaryUser(int (*body)(std::string const&), std::string const& argument) {
  Outcome const child = RunInChild([body, &argument] {
    constexpr unsigned kNobody = 65534;
    if (geteuid() == 0 && (setgid(kNobody) != 0 || setuid(kNobody) != 0)) return 99;
    return body(argument);
  });
  return child.exit_code;
}

// --- one line ---

TEST(NameValueTest, TheFirstEqualsSignSplitsTheLine) {
  std::string name;
  std::string value;

  EXPECT_EQ(VeltGetNameValue("key=a=b==c", name, value), 1);

  EXPECT_EQ(name, "key");
  EXPECT_EQ(value, "a=b==c");
}

TEST(NameValueTest, BothSidesAreTrimmed) {
  std::string name;
  std::string value;

  EXPECT_EQ(VeltGetNameValue(" \t\r\n my key \t = \t my value \r\n", name, value), 1);

  EXPECT_EQ(name, "my key");
  EXPECT_EQ(value, "my value");
}

TEST(NameValueTest, ALineWithoutAnEqualsSignLeavesBothUntouched) {
  std::string name = "old name";
  std::string value = "old value";

  EXPECT_EQ(VeltGetNameValue("just text", name, value), -1);
  EXPECT_EQ(VeltGetNameValue("", name, value), -1);

  EXPECT_EQ(name, "old name");
  EXPECT_EQ(value, "old value");
}

TEST(NameValueTest, AnEqualsSignAtTheEndGivesTheEmptyValue) {
  std::string name = "old";
  std::string value = "old";

  EXPECT_EQ(VeltGetNameValue("key=", name, value), 1);

  EXPECT_EQ(name, "key");
  EXPECT_EQ(value, "");
}

TEST(NameValueTest, AnEqualsSignAtTheStartGivesTheEmptyName) {
  std::string name = "old";
  std::string value = "old";

  EXPECT_EQ(VeltGetNameValue("=text", name, value), 1);

  EXPECT_EQ(name, "");
  EXPECT_EQ(value, "text");
}

TEST(NameValueTest, ALoneEqualsSignGivesTwoEmptyTexts) {
  std::string name = "old";
  std::string value = "old";

  EXPECT_EQ(VeltGetNameValue("=", name, value), 1);

  EXPECT_EQ(name, "");
  EXPECT_EQ(value, "");
}

TEST(NameValueTest, ASideOfBlanksIsEmpty) {
  std::string name = "old";
  std::string value = "old";

  EXPECT_EQ(VeltGetNameValue(" \t=\r\n ", name, value), 1);

  EXPECT_EQ(name, "");
  EXPECT_EQ(value, "");
}

TEST(GetLineTest, ReadsOneItemAfterTheOther) {
  ConfigFile const file("a=1\n\n  # comment = no\nb=2");
  std::ifstream in(file.Path());
  std::string name = "old";
  std::string value = "old";

  EXPECT_EQ(VeltGetLine(in, name, value), 1);
  EXPECT_EQ(name + "/" + value, "a/1");
  EXPECT_EQ(VeltGetLine(in, name, value), 2) << "a blank line";
  EXPECT_EQ(VeltGetLine(in, name, value), 2) << "a comment";
  EXPECT_EQ(name + "/" + value, "a/1") << "assigned only with an item";
  EXPECT_EQ(VeltGetLine(in, name, value), 1) << "the last line has no newline";
  EXPECT_EQ(name + "/" + value, "b/2");
  EXPECT_FALSE(in.good());
}

TEST(GetLineTest, ALineWithoutAnEqualsSignHoldsNoItem) {
  ConfigFile const file("[section]\ntext\n");
  std::ifstream in(file.Path());
  std::string name = "old";
  std::string value = "old";

  EXPECT_EQ(VeltGetLine(in, name, value), 2);
  EXPECT_EQ(VeltGetLine(in, name, value), 2);

  EXPECT_EQ(name + "/" + value, "old/old");
}

TEST(GetLineTest, AStreamThatCannotBeReadHoldsNoItem) {
  ConfigFile const file("a=1\n");
  std::ifstream ended(file.Path());
  ended.setstate(std::ios::eofbit);
  std::ifstream never_opened;
  std::string name = "old";
  std::string value = "old";

  EXPECT_EQ(VeltGetLine(ended, name, value), 2);
  EXPECT_EQ(VeltGetLine(never_opened, name, value), 2);

  EXPECT_EQ(name + "/" + value, "old/old");
}

TEST(GetLineTest, ALineOf2047CharactersIsWholeAndTheNextOneFollows) {
  ConfigFile const file("key=" + std::string(2043, 'x') + "\nnext=1\n");
  std::ifstream in(file.Path());
  std::string name;
  std::string value;

  EXPECT_EQ(VeltGetLine(in, name, value), 1);

  EXPECT_EQ(value, std::string(2043, 'x'));
  EXPECT_TRUE(in.good());
  EXPECT_EQ(VeltGetLine(in, name, value), 1);
  EXPECT_EQ(name, "next");
}

TEST(GetLineTest, ALineOf2048CharactersIsCutAndFailsTheStream) {
  ConfigFile const file("key=" + std::string(2044, 'x') + "\nnext=1\n");
  std::ifstream in(file.Path());
  std::string name;
  std::string value;

  EXPECT_EQ(VeltGetLine(in, name, value), 1);

  EXPECT_EQ(value, std::string(2043, 'x'));
  EXPECT_TRUE(in.fail());
}

TEST(GetLineTest, ALineEndsAtItsFirstNul) {
  ConfigFile const file(std::string("a=1\0 2\n\0b=2\nc=3\n", 16));
  std::ifstream in(file.Path());
  std::string name;
  std::string value;

  EXPECT_EQ(VeltGetLine(in, name, value), 1);
  EXPECT_EQ(name + "/" + value, "a/1");
  EXPECT_EQ(VeltGetLine(in, name, value), 2) << "a NUL first: the line is blank";
  EXPECT_EQ(VeltGetLine(in, name, value), 1);
  EXPECT_EQ(name + "/" + value, "c/3");
}

// --- the text of one item ---

TEST(CfgStringTest, FindsTheValueOfALineWithBlanksEverywhere) {
  EXPECT_EQ(ValueOf("key", "  key =  a = b\r\n"), "a = b");
}

TEST(CfgStringTest, TheFirstLineOfANameCounts) { EXPECT_EQ(ValueOf("n", "n=1\nn=2\n"), "1"); }

TEST(CfgStringTest, TheLastLineNeedsNoNewline) {
  EXPECT_EQ(ValueOf("b", "a=1\nb=2"), "2");
  EXPECT_EQ(ValueOf("b", "b=2"), "2");
}

TEST(CfgStringTest, FilesWithCarriageReturnsReadAlike) {
  EXPECT_EQ(ValueOf("b", "a=1\r\n\r\n# c\r\nb = 2 \r\n"), "2");
  EXPECT_EQ(ValueOf("b", "b=2\r"), "2");
}

TEST(CfgStringTest, CommentsHoldNoItem) {
  EXPECT_EQ(ValueOf("key", "#key=1\n"), "<none>");
  EXPECT_EQ(ValueOf("#key", " \t#key=1\n"), "<none>");
  EXPECT_EQ(ValueOf("# key", "# key=1\n"), "<none>");
}

TEST(CfgStringTest, AHashAfterTheFirstCharacterIsText) {
  EXPECT_EQ(ValueOf("key", "key=1 # one\n"), "1 # one");
  EXPECT_EQ(ValueOf("k#ey", "k#ey=1\n"), "1");
  EXPECT_EQ(ValueOf("", "=#\n"), "#");
}

TEST(CfgStringTest, EmptyNamesAndValuesAreFound) {
  EXPECT_EQ(ValueOf("key", "key=\n"), "");
  EXPECT_EQ(ValueOf("key", "key= \t \n"), "");
  EXPECT_EQ(ValueOf("", "=text\n"), "text");
  EXPECT_EQ(ValueOf("", "=\n"), "");
}

TEST(CfgStringTest, NamesAreComparedByteForByte) {
  std::string const content = "key=lower\nKEY=upper\nke=short\n\xC3\xA9=accent\n";

  EXPECT_EQ(ValueOf("KEY", content), "upper");
  EXPECT_EQ(ValueOf("Key", content), "<none>");
  EXPECT_EQ(ValueOf("ke", content), "short");
  EXPECT_EQ(ValueOf("key ", content), "<none>") << "the name that is asked for is not trimmed";
  EXPECT_EQ(ValueOf("\xC3\xA9", content), "accent");
}

TEST(CfgStringTest, SectionsQuotesEscapesAndReferencesMeanNothing) {
  std::string const content = "[main]\na=\"x y\"\nb=x\\\nc='y'\nd=${HOME}\n";

  EXPECT_EQ(ValueOf("a", content), "\"x y\"");
  EXPECT_EQ(ValueOf("b", content), "x\\");
  EXPECT_EQ(ValueOf("c", content), "'y'");
  EXPECT_EQ(ValueOf("d", content), "${HOME}");
}

TEST(CfgStringTest, AnAbsentNameGivesFalseAndLengthZero) {
  EXPECT_EQ(ValueOf("absent", "a=1\nb=2\n"), "<none>");
  EXPECT_EQ(ValueOf("a", ""), "<none>") << "an empty file";
  EXPECT_EQ(ValueOf("a", "\n"), "<none>");
  EXPECT_EQ(ValueOf("a", " \t\r\n  \n\t"), "<none>") << "a file of blanks";
  EXPECT_EQ(ValueOf("", " \n\n"), "<none>");
}

TEST(CfgStringTest, NullArgumentsGiveFalseAndLengthZero) {
  ConfigFile const file("a=1\n");
  char buffer[8] = ".......";

  int no_name = 8;
  EXPECT_FALSE(VeltGetCfgString(nullptr, buffer, no_name, file.Path()));
  int no_buffer = 8;
  EXPECT_FALSE(VeltGetCfgString("a", nullptr, no_buffer, file.Path()));
  int no_file = 8;
  EXPECT_FALSE(VeltGetCfgString("a", buffer, no_file, nullptr));

  EXPECT_EQ(no_name, 0);
  EXPECT_EQ(no_buffer, 0);
  EXPECT_EQ(no_file, 0);
  EXPECT_STREQ(buffer, ".......");
}

TEST(CfgStringTest, AMissingFileGivesFalseAndLengthZero) {
  ScratchDir const directory;

  Found const missing = LookUp("a", (directory / "missing.cfg").c_str());
  Found const unnamed = LookUp("a", "");

  EXPECT_FALSE(missing.found);
  EXPECT_EQ(missing.length, 0);
  EXPECT_FALSE(unnamed.found);
  EXPECT_EQ(unnamed.length, 0);
}

TEST(CfgStringTest, ADirectoryGivesFalseAndLengthZero) {
  ScratchDir const directory;

  Found const result = LookUp("a", directory.Path().c_str());

  EXPECT_FALSE(result.found);
  EXPECT_EQ(result.length, 0);
}

TEST(CfgStringTest, AnUnreadableFileGivesFalseAndLengthZero) {
  ScratchDir const directory;
  std::string const path = directory / "secret.cfg";
  WriteFile(path, "a=1\n");
  ASSERT_EQ(chmod(directory.Path().c_str(), 0755), 0);
  ASSERT_EQ(chmod(path.c_str(), 0), 0);

  int const result = AsOrdinaryUser(
      [](std::string const& file) {
        Found const item = LookUp("a", file.c_str());
        Items items{{"kept", "yes"}};
        int number = 5;
        if (item.found || item.length != 0) return 1;
        if (VeltAllCfgItem(items, file, "") || items.size() != 1) return 2;
        return VeltGetCfgInt("a", number, file.c_str()) || number != 5 ? 3 : 0;
      },
      path);

  EXPECT_EQ(result, 0);
}

TEST(CfgStringTest, TheValueAndItsEndMustFitTheCapacity) {
  ConfigFile const file("three=abc\nfour=abcd\n");

  Found const three = LookUp("three", file.Path(), 4);
  Found const four = LookUp("four", file.Path(), 4);

  EXPECT_TRUE(three.found);
  EXPECT_EQ(three.length, 3);
  EXPECT_EQ(three.text, "abc");
  EXPECT_FALSE(four.found);
  EXPECT_EQ(four.length, 0);
}

TEST(CfgStringTest, AShorterValueOfALaterLineDoesNotStandInForOneThatDoesNotFit) {
  ConfigFile const file("key=abcd\nkey=a\n");

  Found const result = LookUp("key", file.Path(), 4);

  EXPECT_FALSE(result.found);
  EXPECT_EQ(result.length, 0);
}

TEST(CfgStringTest, NothingIsWrittenBehindTheCapacity) {
  ConfigFile const file("fits=abc\nlong=abcdefgh\n");
  char buffer[] = "........";
  int length = 4;

  ASSERT_TRUE(VeltGetCfgString("fits", buffer, length, file.Path()));
  EXPECT_EQ(std::string(buffer, 8), std::string("abc\0....", 8));

  length = 4;
  ASSERT_FALSE(VeltGetCfgString("long", buffer, length, file.Path()));
  EXPECT_EQ(std::string(buffer + 4, 4), "....");
}

TEST(CfgStringTest, ACapacityOfOneHoldsTheEmptyValueOnly) {
  ConfigFile const file("empty=\none=a\n");

  Found const empty = LookUp("empty", file.Path(), 1);
  Found const one = LookUp("one", file.Path(), 1);

  EXPECT_TRUE(empty.found);
  EXPECT_EQ(empty.length, 0);
  EXPECT_EQ(empty.text, "");
  EXPECT_FALSE(one.found);
}

TEST(CfgStringTest, CapacitiesOfZeroAndBelowHoldNothing) {
  ConfigFile const file("empty=\none=a\n");

  for (int const capacity : {0, -1, INT_MIN}) {
    for (char const* const name : {"empty", "one"}) {
      Found const result = LookUp(name, file.Path(), capacity);

      EXPECT_FALSE(result.found) << name << ' ' << capacity;
      EXPECT_EQ(result.length, 0) << name << ' ' << capacity;
    }
  }
}

std::atomic<int> signals_handled{0};

TEST(CfgStringTest, ASignalDuringTheReadingDoesNotEndIt) {
  ScratchDir const directory;
  std::string const path = directory / "pipe.cfg";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  struct sigaction count {};
  count.sa_handler = [](int) { ++signals_handled; };  // without SA_RESTART
  ASSERT_EQ(sigaction(SIGUSR1, &count, nullptr), 0);
  signal(SIGPIPE, SIG_IGN);  // of a reader that gave up
  Found result;
  std::atomic<bool> given_up{false};
  std::thread reader([&] {
    result = LookUp("key", path.c_str());
    given_up = true;
  });
  std::ofstream writer(path);  // returns when the reader has the pipe open

  bool all_handled = true;
  for (int i = 1; all_handled && !given_up && i <= 20; ++i) {  // all but the first few find it waiting
    pthread_kill(reader.native_handle(), SIGUSR1);
    all_handled = WaitUntil([&] { return given_up || signals_handled >= i; });
  }
  bool const read_on = !given_up;
  writer << "key=value\n";
  writer.close();
  reader.join();

  EXPECT_TRUE(all_handled);
  EXPECT_TRUE(read_on);
  EXPECT_TRUE(result.found);
  EXPECT_EQ(result.text, "value");
}

TEST(CfgStringTest, AChangedFileIsSeenByTheNextLookUp) {
  ScratchDir const directory;
  std::string const path = directory / "test.cfg";
  WriteFile(path, "key=old\n");
  ASSERT_EQ(LookUp("key", path.c_str()).text, "old");

  WriteFile(path, "key=new\n");

  EXPECT_EQ(LookUp("key", path.c_str()).text, "new");
}

// --- over-long lines, foreign bytes, large files ---

TEST(CfgStringTest, AnOverLongLineIsParsedAndEndsTheSearch) {
  std::string const content = "before=1\nlong=" + std::string(5000, 'x') + "\nafter=2\n";

  EXPECT_EQ(ValueOf("before", content), "1");
  EXPECT_EQ(ValueOf("long", content), std::string(2042, 'x'));
  EXPECT_EQ(ValueOf("after", content), "<none>");
}

TEST(CfgStringTest, AnOverLongCommentEndsTheSearchToo) {
  EXPECT_EQ(ValueOf("after", "#" + std::string(2047, 'x') + "\nafter=2\n"), "<none>");
  EXPECT_EQ(ValueOf("after", "#" + std::string(2046, 'x') + "\nafter=2\n"), "2");
}

TEST(CfgStringTest, AnOverLongLastLineWithoutANewlineIsParsed) {
  EXPECT_EQ(ValueOf("key", "key=" + std::string(2043, 'x')), std::string(2043, 'x'));
  EXPECT_EQ(ValueOf("key", "key=" + std::string(2044, 'x')), std::string(2043, 'x'));
}

TEST(CfgStringTest, ALineOfOneMebibyteIsCut) {
  std::string const content = "key=" + std::string(1'048'576, 'x') + "\nafter=1\n";

  EXPECT_EQ(ValueOf("key", content), std::string(2043, 'x'));
  EXPECT_EQ(ValueOf("after", content), "<none>");
}

TEST(CfgStringTest, ValuesEndAtANul) {
  std::string const content("a=x\0y\n\0b=1\nc=2\n", 15);

  EXPECT_EQ(ValueOf("a", content), "x");
  EXPECT_EQ(ValueOf("b", content), "<none>");
  EXPECT_EQ(ValueOf("c", content), "2");
}

// A file is read in blocks; where they end must not show.
TEST(CfgStringTest, ALineMayLieAcrossTheEndOfABlockAnywhere) {
  constexpr std::size_t kBlock = 8192;
  std::string const line = std::string(2000, 'x') + '\n';
  for (std::size_t shift = 0; shift <= 24; ++shift) {
    std::string content = line + line + line + line;
    content.append(kBlock - 16 + shift - content.size() - 1, 'y');
    content += "\n key = at the edge \r\nnext=1\n";

    EXPECT_EQ(ValueOf("key", content), "at the edge") << shift;
    EXPECT_EQ(ValueOf("next", content), "1") << shift;
    EXPECT_EQ(AllOf(content), (Items{{"key", "at the edge"}, {"next", "1"}})) << shift;
  }
}

TEST(CfgStringTest, TheLongestLineIsTheSameAcrossTheEndOfABlock) {
  std::string const before = std::string(2000, 'x') + '\n' + std::string(2000, 'x') + '\n' +
                             std::string(2000, 'x') + '\n' + std::string(500, 'x') + '\n';
  std::string const whole = before + "key=" + std::string(2043, 'v') + "\nafter=1\n";
  std::string const too_long = before + "key=" + std::string(2044, 'v') + "\nafter=1\n";

  EXPECT_EQ(ValueOf("key", whole), std::string(2043, 'v'));
  EXPECT_EQ(ValueOf("after", whole), "1");
  EXPECT_EQ(ValueOf("key", too_long), std::string(2043, 'v'));
  EXPECT_EQ(ValueOf("after", too_long), "<none>");
}

TEST(CfgStringTest, ForeignBytesDoNotHideTheItemsBetweenThem) {
  std::string content;
  for (int i = 0; i < 256; ++i) content.push_back(static_cast<char>(i));  // one newline among them
  content += "\nkey=value\n";

  EXPECT_EQ(ValueOf("key", content), "value");
}

TEST(CfgStringTest, TheLastOfAMillionLinesIsFound) {
  std::string content;
  for (int i = 0; i < 999'999; ++i) content += "some_key=1\n";
  ConfigFile const file(content + "last_key=end\n");

  Found const result = LookUp("last_key", file.Path());

  EXPECT_EQ(result.text, "end");
}

// Threads that look "key" up until they are stopped, and count what is neither absent nor one of the whole
// values.
class LookUps {
 public:
  LookUps(std::string path, std::vector<std::string> values, bool may_be_absent, int threads)
      : path_(std::move(path)), values_(std::move(values)), may_be_absent_(may_be_absent) {
    threads_.reserve(static_cast<std::size_t>(threads));
    for (int i = 0; i < threads; ++i) threads_.emplace_back([this] { Run(); });
  }
  ~LookUps() { Stop(); }
  LookUps(LookUps const&) = delete;
  LookUps& operator=(LookUps const&) = delete;

  bool WaitUntilAllRun() {
    return WaitUntil([this] { return running_ == static_cast<int>(threads_.size()); });
  }
  void Stop() {
    stop_ = true;
    for (auto& thread : threads_) {
      if (thread.joinable()) thread.join();
    }
  }
  int Torn() const { return torn_; }

 private:
  void Run() {
    LookUpOnce();
    ++running_;
    while (!stop_) LookUpOnce();
  }
  void LookUpOnce() {
    Found const result = LookUp("key", path_.c_str());
    bool const whole = result.found ? std::find(values_.begin(), values_.end(), result.text) != values_.end()
                                    : may_be_absent_ && result.length == 0;
    if (!whole) ++torn_;
  }

  std::string path_;
  std::vector<std::string> values_;
  bool may_be_absent_;
  std::atomic<bool> stop_{false};
  std::atomic<int> running_{0};
  std::atomic<int> torn_{0};
  std::vector<std::thread> threads_;
};

TEST(CfgStringTest, AFileReplacedByRenameGivesAWholeValueAtEveryLookUp) {
  ScratchDir const directory;
  std::string const path = directory / "test.cfg";
  std::string const next = directory / "next.cfg";
  std::string const sources[] = {directory / "one.cfg", directory / "two.cfg"};
  std::string const values[] = {std::string(1500, 'a'), std::string(900, 'b')};
  WriteFile(sources[0], "x=1\nkey=" + values[0] + "\n");
  WriteFile(sources[1], "key=" + values[1] + "\ny=2\n");
  ASSERT_EQ(link(sources[0].c_str(), path.c_str()), 0);
  LookUps look_ups(path, {values[0], values[1]}, false, 4);
  bool const all_run = look_ups.WaitUntilAllRun();

  int failed = 0;
  for (int i = 1; i <= 10'000; ++i) {
    bool const linked = link(sources[i % 2].c_str(), next.c_str()) == 0;
    if (!linked || std::rename(next.c_str(), path.c_str()) != 0) ++failed;
  }
  look_ups.Stop();

  EXPECT_TRUE(all_run);
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(look_ups.Torn(), 0);
}

TEST(CfgStringTest, AFileThatComesAndGoesGivesAWholeValueOrNone) {
  ScratchDir const directory;
  std::string const path = directory / "test.cfg";
  std::string const next = directory / "next.cfg";
  LookUps look_ups(path, {"value"}, true, 2);
  bool const all_run = look_ups.WaitUntilAllRun();

  int failed = 0;
  for (int i = 0; i < 1000; ++i) {
    WriteFile(next, "key=value\n");
    if (std::rename(next.c_str(), path.c_str()) != 0 || std::remove(path.c_str()) != 0) ++failed;
  }
  look_ups.Stop();

  EXPECT_TRUE(all_run);
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(look_ups.Torn(), 0);
}

// --- the number of one item ---

TEST(CfgIntTest, ReadsDecimalNumbers) {
  EXPECT_EQ(NumberOf("0"), 0);
  EXPECT_EQ(NumberOf("42"), 42);
  EXPECT_EQ(NumberOf("-1"), -1);
  EXPECT_EQ(NumberOf("+7"), 7);
  EXPECT_EQ(NumberOf("007"), 7);
  EXPECT_EQ(NumberOf("2147483647"), 2147483647);
  EXPECT_EQ(NumberOf("-2147483648"), INT_MIN);
}

TEST(CfgIntTest, ReadsTheDigitsInFrontOfOtherText) {
  EXPECT_EQ(NumberOf("10MB"), 10);
  EXPECT_EQ(NumberOf("0x10"), 0);
  EXPECT_EQ(NumberOf("1e3"), 1);
  EXPECT_EQ(NumberOf("3.9"), 3);
  EXPECT_EQ(NumberOf("5 # five"), 5);
}

TEST(CfgIntTest, TextWithoutDigitsIsZero) {
  EXPECT_EQ(NumberOf("ten"), 0);
  EXPECT_EQ(NumberOf(""), 0);
  EXPECT_EQ(NumberOf("-"), 0);
  EXPECT_EQ(NumberOf("--1"), 0);
}

TEST(CfgIntTest, NumbersBeyondIntAreCutToTheirLowBits) {
  EXPECT_EQ(NumberOf("2147483648"), INT_MIN);
  EXPECT_EQ(NumberOf("4294967295"), -1);
  EXPECT_EQ(NumberOf("4294967296"), 0);
  EXPECT_EQ(NumberOf("4294967303"), 7);
  EXPECT_EQ(NumberOf("99999999999999999999"), -1) << "strtol stops at the largest long";
  EXPECT_EQ(NumberOf("-99999999999999999999"), 0) << "and at the smallest";
}

TEST(CfgIntTest, TheFirstLineOfANameCounts) {
  ConfigFile const file("n=1\nn=2\n");
  int value = -77;

  EXPECT_TRUE(VeltGetCfgInt("n", value, file.Path()));

  EXPECT_EQ(value, 1);
}

TEST(CfgIntTest, WhatCannotBeReadLeavesTheValueUntouched) {
  ConfigFile const file("n=1\n");
  int value = -77;

  EXPECT_FALSE(VeltGetCfgInt("absent", value, file.Path()));
  EXPECT_FALSE(VeltGetCfgInt("n", value, "/nonexistent/file.cfg"));
  EXPECT_FALSE(VeltGetCfgInt(nullptr, value, file.Path()));
  EXPECT_FALSE(VeltGetCfgInt("n", value, nullptr));

  EXPECT_EQ(value, -77);
}

TEST(CfgIntTest, AValueOf1791CharactersFitsAndOneMoreDoesNot) {
  EXPECT_EQ(NumberOf(std::string(1790, '0') + "5"), 5);
  EXPECT_EQ(NumberOf(std::string(1791, '0') + "5"), -77);
}

// --- all items ---

TEST(AllCfgItemTest, CollectsEveryItem) {
  Items const items = AllOf("a = 1\n\n# c=3\n[s]\n =empty name\nb=\nd=x=y");

  EXPECT_EQ(items, (Items{{"", "empty name"}, {"a", "1"}, {"b", ""}, {"d", "x=y"}}));
}

TEST(AllCfgItemTest, TheLastLineOfANameCounts) { EXPECT_EQ(AllOf("n=1\nn=2\n"), (Items{{"n", "2"}})); }

TEST(AllCfgItemTest, AHundredThousandLinesAreScannedToTheEnd) {
  std::string content;
  for (int i = 0; i < 100'000; ++i) content += "some_key=1\n";

  Items const items = AllOf(content + "last_key=end\n", "_key");

  EXPECT_EQ(items, (Items{{"some", "1"}, {"last", "end"}}));
}

TEST(AllCfgItemTest, TheMarkerSelectsAndIsCutFromTheName) {
  Items const items = AllOf("x_output=1\ny_level=2\nz_output_more=3\nplain=4\n", "_output");

  EXPECT_EQ(items, (Items{{"x", "1"}, {"z", "3"}}));
}

TEST(AllCfgItemTest, TheFirstOccurrenceOfTheMarkerCuts) {
  EXPECT_EQ(AllOf("a_level_level=1\n", "_level"), (Items{{"a", "1"}}));
}

TEST(AllCfgItemTest, ANameThatBeginsWithTheMarkerBecomesEmpty) {
  EXPECT_EQ(AllOf("_level=1\n_level_x=2\n", "_level"), (Items{{"", "2"}}));
}

TEST(AllCfgItemTest, TheMarkerInTheValueDoesNotCount) { EXPECT_EQ(AllOf("a=b_level\n", "_level"), Items{}); }

TEST(AllCfgItemTest, TheMarkerIsCaseSensitive) { EXPECT_EQ(AllOf("a_LEVEL=1\n", "_level"), Items{}); }

TEST(AllCfgItemTest, BlanksBeforeTheMarkerStayInTheName) {
  EXPECT_EQ(AllOf("a _level=1\n", "_level"), (Items{{"a ", "1"}}));
}

TEST(AllCfgItemTest, TheMapIsAddedToAndItsEntriesOverwritten) {
  ConfigFile const file("b=new\nc=3\n");
  Items items{{"a", "kept"}, {"b", "old"}};

  EXPECT_TRUE(VeltAllCfgItem(items, file.Path(), ""));

  EXPECT_EQ(items, (Items{{"a", "kept"}, {"b", "new"}, {"c", "3"}}));
}

TEST(AllCfgItemTest, AnEmptyFileNameIsSuccess) {
  Items items{{"a", "kept"}};

  EXPECT_TRUE(VeltAllCfgItem(items, "", "_level"));

  EXPECT_EQ(items, (Items{{"a", "kept"}}));
}

TEST(AllCfgItemTest, AMissingFileIsAFailureThatLeavesTheMap) {
  ScratchDir const directory;
  Items items{{"a", "kept"}};

  EXPECT_FALSE(VeltAllCfgItem(items, directory / "missing.cfg", ""));

  EXPECT_EQ(items, (Items{{"a", "kept"}}));
}

TEST(AllCfgItemTest, EmptyAndBlankFilesAreSuccess) {
  EXPECT_EQ(AllOf(""), Items{});
  EXPECT_EQ(AllOf("\n"), Items{});
  EXPECT_EQ(AllOf(" \t\r\n\r\n  "), Items{});
}

TEST(AllCfgItemTest, ADirectoryOpensButHoldsNothing) {
  ScratchDir const directory;
  Items items{{"a", "kept"}};

  EXPECT_TRUE(VeltAllCfgItem(items, directory.Path(), ""));

  EXPECT_EQ(items, (Items{{"a", "kept"}}));
}

TEST(AllCfgItemTest, AnOverLongLineIsStoredAndEndsTheScanWithSuccess) {
  Items const items = AllOf("a=1\nlong=" + std::string(3000, 'x') + "\nb=2\n");

  EXPECT_EQ(items, (Items{{"a", "1"}, {"long", std::string(2042, 'x')}}));
}

TEST(AllCfgItemTest, TheLastLineNeedsNoNewline) {
  EXPECT_EQ(AllOf("a=1\nb=2"), (Items{{"a", "1"}, {"b", "2"}}));
}

TEST(AllCfgItemTest, CarriageReturnsAndNulsAreNoPartOfAnItem) {
  EXPECT_EQ(AllOf(std::string("a=1\r\nb=2\0x\r\n", 12)), (Items{{"a", "1"}, {"b", "2"}}));
}

}  // namespace
}  // namespace velt::test
