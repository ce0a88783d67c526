// Damaged files and files of other kinds as configuration: what is found, what it costs, and files that
// change during a look-up.
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "velt/config.h"

#include "tests/faults/scale.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace {

std::atomic<std::size_t> live_bytes{0};
std::atomic<std::size_t> most_live_bytes{0};

}  // namespace

// clang's sanitizers have these functions in the program already: nothing is counted there.
#ifdef __clang__
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VELT_ALLOCATIONS_ARE_TAKEN 1
#endif
#endif

#ifndef VELT_ALLOCATIONS_ARE_TAKEN
// In this whole program every allocation of C++ is counted while it lives.
void* operator new(std::size_t size) {
  void* const memory = std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  std::size_t const live = live_bytes += malloc_usable_size(memory);
  std::size_t most = most_live_bytes;
  while (live > most && !most_live_bytes.compare_exchange_weak(most, live)) {
  }
  return memory;
}
void* operator new(std::size_t size, std::nothrow_t const& /*tag*/) noexcept try {
  return operator new(size);
} catch (std::bad_alloc const&) {
  return nullptr;
}
void operator delete(void* memory) noexcept {
  if (memory != nullptr) live_bytes -= malloc_usable_size(memory);
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept { operator delete(memory); }
#endif

namespace velt::test {
namespace {

using faults::Figure;
using faults::Scaled;

using Items = std::vector<std::pair<std::string, std::string>>;

std::string Trimmed(std::string const& text) {
  std::size_t const first = text.find_first_not_of(" \t\r\n");
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// The items of a file in order, parsed independently of the library.
Items Model(std::string const& content) {
  constexpr std::size_t kLongestLine = 2047;
  Items items;
  std::size_t at = 0;
  while (at < content.size()) {
    std::size_t const end = std::min(content.find('\n', at), content.size());
    bool const too_long = end - at > kLongestLine;
    std::string line = content.substr(at, too_long ? kLongestLine : end - at);
    at = too_long ? content.size() : end + 1;
    line = Trimmed(line.substr(0, line.find('\0')));
    std::size_t const sign = line.find('=');
    if (line.empty() || line.front() == '#' || sign == std::string::npos) continue;
    items.emplace_back(Trimmed(line.substr(0, sign)), Trimmed(line.substr(sign + 1)));
  }
  return items;
}

std::map<std::string, std::string> LastOfEach(Items const& items) {
  std::map<std::string, std::string> last;
  for (auto const& [name, value] : items) last[name] = value;
  return last;
}

class ConfigFaultTest : public ::testing::Test {
 protected:
  std::map<std::string, std::string> AllItems() const {
    std::map<std::string, std::string> items;
    EXPECT_TRUE(VeltAllCfgItem(items, file, ""));
    return items;
  }
  // The value of one name; "(none)" when it is not found.
  std::string Value(std::string const& name, int capacity = 4096) const {
    std::string buffer(static_cast<std::size_t>(capacity), '\0');
    int length = capacity;
    if (!VeltGetCfgString(name.c_str(), buffer.data(), length, file.c_str())) return "(none)";
    return buffer.substr(0, static_cast<std::size_t>(length));
  }

  ScratchDir const dir;
  std::string const file = dir / "file.cfg";
};

TEST_F(ConfigFaultTest, OddFilesHaveTheParseOfTheirGrammar) {
  using namespace std::string_literals;
  struct Case {
    std::string content;
    std::map<std::string, std::string> items;
  };
  std::string const kilo(1'048'576, 'v');
  std::vector<Case> const cases = {
      {"", {}},
      {" \t \r\n  \n\t\n   ", {}},
      {"a = 1\nb = 2", {{"a", "1"}, {"b", "2"}}},
      {"a = 1\r\nb = 2\r\n", {{"a", "1"}, {"b", "2"}}},
      {"a = 1\0 and more\nb\0 = 2\n\0c = 3\nd = 4\n"s, {{"a", "1"}, {"d", "4"}}},
      {"before = 1\nlong = " + kilo + "\nafter = 1\n", {{"before", "1"}, {"long", std::string(2040, 'v')}}},
      {kilo, {}},
      {kilo + "\nafter = 1\n", {}},
      {"\xEF\xBB\xBF"
       "a = 1\n",
       {{"\xEF\xBB\xBF"
         "a",
         "1"}}},
      {" = = \n", {{"", "="}}},
      {"a = 1\ra = 2\r\n", {{"a", "1\ra = 2"}}},
  };
  for (auto const& odd : cases) {
    WriteFile(file, odd.content);

    EXPECT_EQ(AllItems(), odd.items) << odd.content.substr(0, 40);
    for (auto const& [name, value] : odd.items) EXPECT_EQ(Value(name), value) << name;
    EXPECT_EQ(Value("after"), "(none)");
  }
  Figure({{"odd_files", static_cast<long long>(cases.size())}});
}

TEST_F(ConfigFaultTest, RandomBytesAreParsedAsTheGrammarSays) {
  int const files = Scaled(500, 20'000);
  std::mt19937 random(20'240'229);
  std::string const alphabet = std::string("ab==##  \t\r\n\n\n\"'$\\[];") + '\0' + "\x80\xff";
  long long found = 0;
  long long wrong = 0;
  for (int i = 0; i < files; ++i) {
    std::string content(random() % 400, ' ');
    for (char& c : content) {
      c = i % 4 == 0 ? static_cast<char>(random() & 0xFF) : alphabet[random() % alphabet.size()];
    }
    if (i % 50 == 0) content.insert(content.size() / 2, std::string(2040 + random() % 16, 'x'));
    WriteFile(file, content);
    Items const expected = Model(content);

    if (AllItems() != LastOfEach(expected)) ++wrong;
    std::map<std::string, std::string> seen;  // the first of each name
    for (auto const& [name, value] : expected) {
      if (name.find('\0') == std::string::npos && seen.emplace(name, value).second) {
        wrong += Value(name) == value ? 0 : 1;
      }
    }
    found += static_cast<long long>(expected.size());
  }

  EXPECT_EQ(wrong, 0);
  EXPECT_GT(found, files / 2) << "too few of the files hold items";
  Figure({{"random_files", files}, {"items", found}, {"wrong", wrong}});
}

// Processor time of this thread for one search of the last name of a file, the best of several.
double SearchSeconds(std::string const& path) {
  double best = 1e9;
  for (int i = 0; i < 5; ++i) {
    timespec begin{};
    timespec end{};
    int value = 0;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &begin);
    EXPECT_TRUE(VeltGetCfgInt("last", value, path.c_str()));
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &end);
    EXPECT_EQ(value, 42);
    double const took = static_cast<double>(end.tv_sec - begin.tv_sec) +
                        static_cast<double>(end.tv_nsec - begin.tv_nsec) / 1e9;
    best = std::min(best, took);
  }
  return best;
}

TEST_F(ConfigFaultTest, AMillionLinesCostTimeInProportionAndNoMemory) {
  int const lines = Scaled(faults::kSanitized ? 50'000 : 200'000, 1'000'000);
  auto const write = [](std::string const& path, int count) {
    std::string content;
    for (int i = 0; i < count; ++i) content += "name" + std::to_string(i) + " = value\n";
    WriteFile(path, content + "last = 42\n");
  };
  write(file, lines);
  write(dir / "tenth.cfg", lines / 10);

  most_live_bytes = live_bytes.load();
  std::size_t const before = live_bytes;
  double const whole = SearchSeconds(file);
  std::size_t const memory = most_live_bytes - before;
  double const tenth = SearchSeconds(dir / "tenth.cfg");

  EXPECT_LT(memory, 65'536U);
  EXPECT_LT(whole, tenth * 40) << "ten times the lines; a quadratic search takes a hundred times as long";
  EXPECT_EQ(AllItems().size(), static_cast<std::size_t>(lines) + 1);
  Figure({{"lines", lines},
          {"search_us", static_cast<long long>(whole * 1e6)},
          {"tenth_us", static_cast<long long>(tenth * 1e6)},
          {"memory_bytes", static_cast<long long>(memory)}});
}

TEST_F(ConfigFaultTest, AOneMebibyteLineCostsNoMoreMemoryThanAShortOne) {
  WriteFile(file, "long = " + std::string(1'048'576, 'v') + "\n");

  most_live_bytes = live_bytes.load();
  std::size_t const before = live_bytes;
  int value = 7;
  bool const found = VeltGetCfgInt("absent", value, file.c_str());
  std::size_t const memory = most_live_bytes - before;

  EXPECT_FALSE(found);
  EXPECT_EQ(value, 7);
  EXPECT_LT(memory, 65'536U);
}

TEST_F(ConfigFaultTest, WhatIsNoReadableFileIsAnOrdinaryNegativeAnswer) {
  WriteFile(file, "a = 1\n");
  mkdir((dir / "directory").c_str(), 0755);
  ASSERT_EQ(symlink("loop", (dir / "loop").c_str()), 0);
  chmod(dir.Path().c_str(), 0755);
  chmod(file.c_str(), 0);
  auto const refused = [](std::string const& path) {
    char buffer[8] = "";
    int length = sizeof buffer;
    int number = 7;
    std::map<std::string, std::string> items{{"kept", "1"}};
    bool const string_found = VeltGetCfgString("a", buffer, length, path.c_str());
    bool const number_found = VeltGetCfgInt("a", number, path.c_str());
    VeltAllCfgItem(items, path, "");
    return !string_found && length == 0 && !number_found && number == 7 && items.size() == 1;
  };

  auto const unreadable = RunInChild([&] {  // an ordinary user's
    if (geteuid() == 0 && setuid(65534) != 0) return 2;
    return refused(file) ? 0 : 1;
  });

  EXPECT_EQ(unreadable.exit_code, 0);
  EXPECT_TRUE(refused(dir / "directory"));
  EXPECT_TRUE(refused(dir / "absent"));
  EXPECT_TRUE(refused(dir / "loop"));
  EXPECT_TRUE(refused(file + "/below"));
}

// --- files that change under a look-up ---

// What look-ups of "value" saw while a file changed.
struct Seen {
  std::atomic<long long> whole{0};
  std::atomic<long long> none{0};
  std::atomic<long long> torn{0};
};

class ChangingFileTest : public ConfigFaultTest {
 protected:
  void WriteVersion(std::string const& path, char letter) const {
    WriteFile(path, "other = x\nvalue = " + std::string(kLength, letter) + "\nnext = y\n");
  }
  void Look(Seen& seen) const {
    std::string const value = Value("value");
    bool const whole = value == std::string(kLength, 'A') || value == std::string(kLength, 'B');
    ++(whole ? seen.whole : value == "(none)" ? seen.none : seen.torn);
  }
  // Four threads look the value up while `change` is called `count` times.
  template <typename Change>
  void LookWhile(int count, Change const& change, Seen& seen) const {
    std::atomic<bool> stop{false};
    std::vector<std::thread> readers;
    for (int t = 0; t < 4; ++t) {
      readers.emplace_back([&] {
        while (!stop) Look(seen);
      });
    }
    for (int i = 0; i < count; ++i) change(i);
    stop = true;
    for (auto& reader : readers) reader.join();
  }

  static constexpr std::size_t kLength = 1500;
};

TEST_F(ChangingFileTest, AFileReplacedByRenameAlwaysGivesAWholeValue) {
  int const renames = Scaled(500, 10'000);
  WriteVersion(file, 'A');
  Seen seen;

  LookWhile(
      renames,
      [this](int i) {
        WriteVersion(dir / "next.cfg", i % 2 == 0 ? 'B' : 'A');
        ASSERT_EQ(std::rename((dir / "next.cfg").c_str(), file.c_str()), 0);
      },
      seen);

  EXPECT_EQ(seen.torn, 0);
  EXPECT_EQ(seen.none, 0) << "at every moment the name had a whole file";
  EXPECT_GT(seen.whole, 0);
  Figure({{"renames", renames}, {"lookups_whole", seen.whole}, {"none", seen.none}, {"torn", seen.torn}});
}

TEST_F(ChangingFileTest, AFileThatIsRemovedOrTruncatedGivesAWholeValueOrNone) {
  int const changes = Scaled(500, 10'000);
  WriteVersion(file, 'A');
  Seen seen;

  LookWhile(
      changes,
      [this](int i) {
        i % 2 == 0 ? unlink(file.c_str()) : truncate(file.c_str(), 0);
        WriteVersion(dir / "next.cfg", i % 3 == 0 ? 'B' : 'A');
        ASSERT_EQ(std::rename((dir / "next.cfg").c_str(), file.c_str()), 0);
      },
      seen);

  EXPECT_EQ(seen.torn, 0);
  EXPECT_GT(seen.whole, 0);
  Figure({{"changes", changes}, {"lookups_whole", seen.whole}, {"none", seen.none}, {"torn", seen.torn}});
}

// --- values ---

TEST_F(ConfigFaultTest, NumbersAreWhatTheCLibraryReadsCutToAnInt) {
  std::pair<char const*, int> const cases[] = {{"-1", -1},
                                               {"0", 0},
                                               {"2147483647", INT_MAX},
                                               {"2147483648", INT_MIN},
                                               {"4294967301", 5},
                                               {"99999999999999999999", -1},
                                               {"-99999999999999999999", 0},
                                               {"0x10", 0},
                                               {"010", 10},
                                               {"10MB", 10},
                                               {"+7", 7},
                                               {"1e3", 1},
                                               {"ten", 0},
                                               {"", 0}};
  for (auto const& [text, number] : cases) {
    WriteFile(file, std::string("n = ") + text + "\n");
    int value = 12345;

    EXPECT_TRUE(VeltGetCfgInt("n", value, file.c_str())) << text;

    EXPECT_EQ(value, number) << text;
  }
}

TEST_F(ConfigFaultTest, AValueNeedsRoomForItselfAndOneMore) {
  WriteFile(file, "three = abc\nempty =\n");
  struct Case {
    char const* name;
    int capacity;
    bool found;
  };
  Case const cases[] = {{"three", 0, false},       {"three", 1, false}, {"three", -1, false},
                        {"three", INT_MIN, false}, {"three", 3, false}, {"three", 4, true},
                        {"three", 5, true},        {"empty", 0, false}, {"empty", -1, false},
                        {"empty", 1, true}};
  for (auto const& room : cases) {
    char buffer[16];
    std::fill(std::begin(buffer), std::end(buffer), '#');
    int length = room.capacity;
    std::string const value = std::string(room.name) == "three" ? "abc" : "";

    bool const found = VeltGetCfgString(room.name, buffer, length, file.c_str());

    EXPECT_EQ(found, room.found) << room.name << ' ' << room.capacity;
    EXPECT_EQ(length, room.found ? static_cast<int>(value.size()) : 0);
    EXPECT_TRUE(!found || value == buffer) << buffer;
    auto const untouched = static_cast<std::size_t>(room.capacity < 0 ? 0 : room.capacity);
    for (std::size_t i = untouched; i < sizeof buffer; ++i) EXPECT_EQ(buffer[i], '#') << i;
  }
}

}  // namespace
}  // namespace velt::test
