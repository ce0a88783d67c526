// What hosts put into traces: formats that fail, texts that look like lines of the log, names, sizes, levels.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "velt/manager.h"
#include "velt/process.h"

#include "tests/faults/counted.h"
#include "tests/faults/scale.h"
#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/manager_host.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

using faults::ExpectCounts;
using faults::Figure;
using faults::QuietCounts;
using faults::Scaled;

constexpr VeltLogLevel kLevel3{3};
constexpr char const* kEverything = "debug_level = 11111111111111111111111111111111\ndebug_output = 01\n";

VeltDebugMgr& Manager() { return *VeltDebugMgr::Instance(); }

// --- formats ---

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // formats that a compiler would refuse
#pragma GCC diagnostic ignored "-Wformat-security"

// Every function that takes a format, under a number.
constexpr int kFormatFunctions = 5;
template <typename... Args>
void Format(int function, VeltDebugInfo& channel, char const* format, Args... args) {
  switch (function) {
    case 0:
      return Manager().Printf(kLevel3, format, args...);
    case 1:
      return Manager().Printf(kLevel3, VeltInterString("m"), format, args...);
    case 2:
      return Manager().Printf(format, args...);
    case 3:
      return channel.FmtTrace(format, args...);
    default:
      return VeltOutputFrmtString(format, args...);
  }
}

#pragma GCC diagnostic pop

TEST(FormatFaultTest, BadFormatsTraceNothingAndGoodOnesBetweenThemAreAllThere) {
  int const rounds = Scaled(200, 10'000);
  ManagerHost const host(std::string(kEverything) + "MRB_level = 1111\nMRB_output = 01\n");
  ASSERT_TRUE(host.Init());
  ChannelSetup own(host.Dir() / "own");
  auto channel = MakeChannel(own);
  VeltTraceCounts own_counts{};
  VeltTraceCounts main_counts{};
  std::string seen;
  {
    CaptureStdout out;  // FmtTrace prints as well
    wchar_t const outside[] = {static_cast<wchar_t>(0x10FFFE), 0};
    InThreads(kFormatFunctions, [&](int function) {
      for (int i = 0; i < rounds; ++i) {
        Format(function, *channel, "good %d", i);
        Format(function, *channel, "%ls", outside);
        Format(function, *channel, "%2147483647d", 1);
        Format(function, *channel, "%.2147483648d", 1);
        Format(function, *channel, "%");
        Format(function, *channel, "");
        Format(function, *channel, nullptr);
      }
    });
    own_counts = QuietCounts(*channel);
    main_counts = QuietCounts()["host_"];
    channel.reset();
    VeltDebugMgr::Destroy();
    seen = out.Text();
  }

  auto const main_records = host.Records();
  auto const own_records = Bodies(ReadFamily(own.directory, "t_"));
  auto const count = static_cast<std::size_t>(rounds);
  auto const good = [](std::vector<std::string> const& records, std::string const& head) {
    std::size_t next = 0;
    for (auto const& record : records) next += record == head + "good " + std::to_string(next) ? 1 : 0;
    return next;  // in their order
  };
  EXPECT_EQ(good(own_records, "   I: "), count);
  EXPECT_EQ(good(main_records, " m I: "), count);
  EXPECT_EQ(good(main_records, " MRB W: "), count);
  EXPECT_EQ(std::count(main_records.begin(), main_records.end(), "  I: good 0"), 2)
      << "two forms without module";
  EXPECT_EQ(own_records.size(), count);
  // For each of the six failures the MRB functions trace an empty message, or the part that was expanded.
  EXPECT_EQ(main_records.size(), count * (1 + 1 + 1 + 7));
  EXPECT_EQ(CountOf(seen, "Printf failed. errno:"), count * 6);
  ExpectCounts(own_counts, own_records.size(), count * 6, own_records.size());
  ExpectCounts(main_counts, main_records.size(), count * 6 * 3, main_records.size());
  Figure({{"formats", rounds * 7LL * kFormatFunctions},
          {"records_verified", static_cast<long long>(main_records.size() + own_records.size())}});
}

TEST(FormatFaultTest, OddFormatsGiveTheTextOfTheCLibrary) {
  ManagerHost const host(kEverything);
  ASSERT_TRUE(host.Init());
  char const* const volatile no_text = nullptr;  // volatile: else the compiler warns
  char const* const wants_more = "more %d %d";   // than there are

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
  Manager().Printf(kLevel3, "null %s", no_text);
  Manager().Printf(kLevel3, "%2$s before %1$s", "one", "two");
  Manager().Printf(kLevel3, "%%");
  Manager().Printf(kLevel3, "%5000d|", 1);
  Manager().Printf(kLevel3, wants_more, 1);
  Manager().Printf(kLevel3, "%k %d", 1);
#pragma GCC diagnostic pop

  ExpectCounts(QuietCounts()["host_"], 6, 0, 6);
  auto const records = host.StopAndRead();
  ASSERT_EQ(records.size(), 6U);
  EXPECT_EQ(records[0], "  I: null (null)");
  EXPECT_EQ(records[1], "  I: two before one");
  EXPECT_EQ(records[2], "  I: %");
  EXPECT_EQ(records[3], "  I: " + std::string(2'046, ' ')) << "cut before its digit";
  EXPECT_THAT(records[4], ::testing::StartsWith("  I: more 1 ")) << "the numbers are undefined";
  EXPECT_EQ(records[5], "  I: %k 1");
}

// --- texts ---

// One record that must be in the file byte for byte behind its stamp.
struct Sent {
  std::string bytes;  // ".T<thread> <module> <tag><text>\n"
  std::size_t thread;
  std::size_t sequence;
};

// Texts that look like other parts of a log. Each holds a number of its own.
std::string HostileText(int kind, std::string const& id) {
  using namespace std::string_literals;
  switch (kind % 12) {
    case 0:
      return "line one " + id + "\nline two " + id;
    case 1:
      return id + "\n";
    case 2:
      return id + "\r\n";
    case 3:
      return "\r\x1b[2J\x1b[1;31m" + id + "\x07\x08";
    case 4:
      return "\x80\xFF\xC3\x28\xED\xA0\x80" + id;
    case 5:
      return id + "\n11-15 08:52:13.123456.T4711 m I: forged";
    case 6:
      return id +
             "\nFile close at UTC 2026-11-15 08:52:13\n\xEF\xBB\xBF"
             "File create at time 2026-11-15 08:52:13.";
    case 7:
      return "\n\n" + id + "\n\n";
    case 8:
      return "%s%n%d " + id;
    case 9:
      return "thread handle output string exit\n" + id;
    case 10:
      // NOLINTNEXTLINE(misc-misleading-bidirectional): what a text may hold
      return "\x01\x02\x7f" + id + "\xE2\x80\xAE";
    default:
      return "Current date&time:2026-11-15 08:52:13.123456\n" + id;
  }
}

// Checks that the file holds every record once, those of a thread in order, and nothing else than stamps
// between the first and the last. Returns what is wrong; empty when nothing is.
std::string Tiled(std::string const& file, std::vector<Sent> const& sent) {
  constexpr std::size_t kStampLength = 21;  // "11-15 08:52:13.123456"
  std::map<std::size_t, Sent const*> at;
  for (auto const& record : sent) {
    std::size_t const place = file.find(record.bytes);
    if (place == std::string::npos) return "missing: " + record.bytes;
    if (file.find(record.bytes, place + 1) != std::string::npos) return "twice: " + record.bytes;
    at[place] = &record;
  }
  if (at.size() != sent.size()) return "one within another";
  std::map<std::size_t, std::size_t> next;  // sequence by thread
  std::size_t expected = at.begin()->first;
  for (auto const& [place, record] : at) {
    if (next[record->thread]++ != record->sequence) return "out of order: " + record->bytes;
    if (place != expected) return "something else before: " + record->bytes;
    expected = place + record->bytes.size() + kStampLength;
  }
  std::string const rest = file.substr(expected - kStampLength);
  return rest.rfind("thread handle output string exit\n", 0) == 0
             ? ""
             : "behind the records: " + rest.substr(0, 80);
}

TEST(TextFaultTest, TextsThatLookLikeLinesOfTheLogStayWholeAndInOrder) {
  constexpr std::size_t kThreads = 8;
  int const records = Scaled(60, 240);
  ScratchDir const dir;
  ChannelSetup const setup(dir / "logs");
  auto channel = MakeChannel(setup);
  std::vector<std::vector<Sent>> sent(kThreads);
  std::atomic<int> refused{0};

  InThreads(kThreads, [&](int thread) {
    auto const t = static_cast<std::size_t>(thread);
    for (int i = 0; i < records; ++i) {
      std::string const text =
          HostileText(i + thread, "<" + std::to_string(thread) + "." + std::to_string(i) + ">");
      if (!channel->Trace("m", kLevel3, text.c_str(), nullptr, false, true)) ++refused;
      std::string const end = text.back() == '\n' ? "" : "\n";
      sent[t].push_back(
          {".T" + std::to_string(gettid()) + " m I: " + text + end, t, static_cast<std::size_t>(i)});
    }
  });
  VeltTraceCounts const counts = QuietCounts(*channel);
  channel.reset();

  std::vector<Sent> all;
  for (auto const& of_thread : sent) all.insert(all.end(), of_thread.begin(), of_thread.end());
  EXPECT_EQ(refused, 0);
  EXPECT_EQ(Tiled(ReadFamily(setup.directory, "t_"), all), "");
  ExpectCounts(counts, all.size(), 0, all.size());
  Figure({{"hostile_texts", static_cast<long long>(all.size())}});
}

TEST(TextFaultTest, EveryFunctionCutsAtItsOwnLength) {
  std::size_t const sizes[] = {0, 1, 2'045, 2'046, 2'047, 2'048, 2'049, 16'777'216};
  ManagerHost const host(std::string(kEverything) + "MRB_level = 1111\nMRB_output = 01\nfmt_level = 1111\n");
  ASSERT_TRUE(host.Init());
  ChannelSetup const own(host.Dir() / "own");
  auto channel = MakeChannel(own);
  std::vector<std::string> expected;
  std::vector<std::string> expected_own;
  VeltTraceCounts main_counts{};
  VeltTraceCounts own_counts{};
  {
    CaptureStdout const quiet;  // FmtTrace prints, too, also that an empty message was none
    for (std::size_t const size : sizes) {
      std::string const text(size, 'x');
      EXPECT_TRUE(Manager().Trace("trace", kLevel3, text.c_str(), nullptr, false, true));
      Manager().Printf(kLevel3, "%s", text.c_str());
      Manager().Printf(kLevel3, VeltInterString("fmt"), "%s", text.c_str());
      VeltOutputFrmtString("%s", text.c_str());
      VeltOutputString_i(text.c_str());
      channel->FmtTrace("%s", text.c_str());

      auto const cut = [size](std::size_t longest) { return std::string(std::min(size, longest), 'x'); };
      expected.push_back(" trace I: " + cut(2'048));
      if (size > 0) expected.push_back("  I: " + cut(2'046));
      if (size > 0) expected.push_back(" fmt I: " + cut(2'046));
      expected.push_back(" MRB W: " + cut(2'047));
      expected.push_back(" MRB W: " + cut(2'048));
      if (size > 0) expected_own.push_back("   I: " + cut(2'046));
    }
    main_counts = QuietCounts()["host_"];
    own_counts = QuietCounts(*channel);
    channel.reset();
    VeltDebugMgr::Destroy();
  }

  EXPECT_EQ(host.Records(), expected);
  EXPECT_EQ(Bodies(ReadFamily(own.directory, "t_")), expected_own);
  ExpectCounts(main_counts, expected.size(), 2, expected.size());  // Printf refuses an empty message
  ExpectCounts(own_counts, expected_own.size(), 1, expected_own.size());
}

// --- modules and levels ---

TEST(ModuleFaultTest, OddModuleNamesAreWrittenAsTheyAre) {
  ManagerHost const host(kEverything);
  ASSERT_TRUE(host.Init());
  std::string const names[] = {"", " ", std::string(10'000, 'n'), "a=b", "..", "%s%n", "\x1b[31m\xFF"};
  std::vector<std::string> expected;
  Bits levels;
  Bits outputs;

  for (auto const& name : names) {
    bool const registered = Manager().RegSubModuleInfo(name, BitsOf({5}), BitsOf({1}), false);
    EXPECT_EQ(registered, !name.empty()) << name.substr(0, 20);
    EXPECT_EQ(Manager().GetSubModuleInfo(name, levels, outputs), !name.empty());
    // The one without a name has the sets of "debug".
    EXPECT_TRUE(Manager().SetLogLevel(name, VeltLogLevel{5}, true));
    EXPECT_TRUE(Manager().Trace(name, VeltLogLevel{5}, "text", nullptr, false, false));
    expected.push_back(" " + name + " text");
  }
  ExpectCounts(QuietCounts()["host_"], expected.size(), 0, expected.size());

  EXPECT_EQ(host.StopAndRead(), expected);
}

TEST(ModuleFaultTest, TenThousandModulesKeepTheirOwnSets) {
  constexpr std::size_t kModules = 10'000;
  ManagerHost const host;
  ASSERT_TRUE(host.Init());
  auto const name = [](std::size_t i) { return "module" + std::to_string(i) + std::string(i % 60, '_'); };
  for (std::size_t i = 0; i < kModules; ++i) {
    ASSERT_TRUE(Manager().RegSubModuleInfo(name(i), BitsOf({i % 32}), BitsOf({1}), false));
  }

  CaptureStdout quiet;  // ring records are printed as well
  // Each of four threads traces a quarter of the modules, at the module's level and at the level above it.
  std::atomic<int> refused{0};
  InThreads(4, [&](int thread) {
    for (auto i = static_cast<std::size_t>(thread); i < kModules; i += 4) {
      auto const level = static_cast<int>(i % 32);
      auto const other = static_cast<int>((i + 1) % 32);
      if (!Manager().Trace(name(i), VeltLogLevel{level}, "own", nullptr, false, false)) ++refused;
      if (!Manager().Trace(name(i), VeltLogLevel{other == 0 ? 1 : other}, "other", nullptr, false, false))
        ++refused;
    }
  });
  VeltDebugMgr::ModuleSets modules;
  ASSERT_TRUE(Manager().GetAllModuleInfo(modules));
  VeltTraceCounts const counts = QuietCounts()["host_"];
  auto const records = host.StopAndRead();
  quiet.Text();

  EXPECT_EQ(refused, 0);
  EXPECT_EQ(modules.size(), kModules + 1) << "and debug";
  ExpectCounts(counts, records.size(), 0, records.size());
  EXPECT_EQ(counts.accepted + counts.displaced + counts.inRing, 2 * kModules);
  std::set<std::string> seen;
  std::size_t wrong = 0;
  for (auto const& record : records) {
    std::string const text = record.substr(record.rfind(' ') + 1);
    seen.insert(record.substr(1, record.find(' ', 1) - 1));
    // Records of the ring, written before records of level 0, may be others.
    if (text != "own" && text != "other") ++wrong;
  }
  for (std::size_t i = 0; i < kModules; ++i) wrong += seen.count(name(i)) == 1 ? 0 : 1;
  EXPECT_EQ(wrong, 0U);
  Figure({{"modules", static_cast<long long>(kModules)}, {"wrong", static_cast<long long>(wrong)}});
}

TEST(LevelFaultTest, LevelsOutsideTheSetAreRefusedThrownOrTraced) {
  ManagerHost const host("net_level = 1111\nnet_output = 01\n");
  ASSERT_TRUE(host.Init());
  ASSERT_TRUE(Manager().RegSubModuleInfo("net", ~Bits(), BitsOf({1}), false));
  auto const trace = [](int level, bool both) {
    return Manager().Trace("net", VeltLogLevel{level}, "text", nullptr, both, both);
  };
  VeltTraceCounts counts{};
  {
    CaptureStdout const quiet;
    EXPECT_TRUE(trace(4, false));
    EXPECT_TRUE(trace(31, false));
    for (int const level : {-1, 32, std::numeric_limits<int>::min()}) {
      EXPECT_THROW(trace(level, false), std::out_of_range) << level;
      EXPECT_TRUE(trace(level, true)) << level;
    }
    for (int const level : {33, 99, std::numeric_limits<int>::max()}) {
      EXPECT_FALSE(trace(level, false)) << level;
      EXPECT_FALSE(trace(level, true)) << level;
      EXPECT_FALSE(Manager().SetLogLevel("net", VeltLogLevel{level}, true)) << level;
    }
    EXPECT_FALSE(Manager().SetLogLevel("net", VeltLogLevel{-1}, true));
    EXPECT_THROW(Manager().SetLogLevel("net", VeltLogLevel{32}, true), std::out_of_range);
    EXPECT_TRUE(Manager().SetLogLevel("net", VeltLogLevel{31}, false)) << "no lock stayed held";
    EXPECT_TRUE(trace(3, false));
    counts = QuietCounts()["host_"];
    VeltDebugMgr::Destroy();
  }

  auto const records = host.Records();
  EXPECT_EQ(records, (std::vector<std::string>{" net text", " net text", " net text", " net text",
                                               " net text", " net I: text"}));
  ExpectCounts(counts, records.size(), 3 + 2 * 3, records.size());  // three threw, three were refused twice
}

}  // namespace
}  // namespace velt::test
