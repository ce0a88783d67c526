// VeltGetCfgString: what a line holds, capacities, files that cannot be read or change meanwhile.
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "velt/config.h"

#include "tests/config/config_file.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

// Runs `body` without the superuser's right to read everything.
int AsOrdinaryUser(int (*body)(std::string const&), std::string const& argument) {
  Outcome const child = RunInChild([body, &argument] {
    constexpr unsigned kNobody = 65534;
    if (geteuid() == 0 && (setgid(kNobody) != 0 || setuid(kNobody) != 0)) return 99;
    return body(argument);
  });
  return child.exit_code;
}

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
  signal(SIGPIPE, SIG_IGN);  // the reader may have given up
  Found result;
  std::atomic<bool> given_up{false};
  std::thread reader([&] {
    result = LookUp("key", path.c_str());
    given_up = true;
  });
  std::ofstream writer(path);  // returns when the reader has the pipe open

  bool all_handled = true;
  for (int i = 1; all_handled && !given_up && i <= 20; ++i) {  // the first few may come before it waits
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

// Threads that look up "key" until they are stopped. They count each result that is not one of the whole
// `values`; that the item is absent counts unless `may_be_absent`.
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

}  // namespace
}  // namespace velt::test
