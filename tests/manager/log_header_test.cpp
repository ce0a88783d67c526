// velt/log.h used as a host uses it: it traces what the manager's own calls trace.
#include "velt/log.h"

#include <bitset>
#include <cstddef>
#include <limits>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "tests/manager/log_header.h"
#include "tests/support/manager.h"
#include "tests/support/manager_host.h"

namespace velt::test {
namespace {

// --- sets ---

TEST(LogSetTest, UpToHoldsTheLevelsFromZeroToTheGivenOne) {
  EXPECT_EQ(UpTo(kAlert), std::bitset<32>(1));
  EXPECT_EQ(UpTo(kError), std::bitset<32>(3));
  EXPECT_EQ(UpTo(kWarning), std::bitset<32>(7));
  EXPECT_EQ(UpTo(kInfo), std::bitset<32>(15));
  EXPECT_EQ(UpTo(VeltLogLevel{30}), std::bitset<32>(0x7FFF'FFFF));
  EXPECT_TRUE(UpTo(VeltLogLevel{31}).all());
  EXPECT_TRUE(UpTo(VeltLogLevel{32}).all());
  EXPECT_TRUE(UpTo(VeltLogLevel{std::numeric_limits<int>::max()}).all());
  EXPECT_TRUE(UpTo(VeltLogLevel{-1}).none());
  EXPECT_TRUE(UpTo(VeltLogLevel{std::numeric_limits<int>::min()}).none());
}

TEST(LogSetTest, TheLevelsHaveTheNumbersOfTheirTags) {
  EXPECT_EQ(static_cast<int>(kAlert), 0);
  EXPECT_EQ(static_cast<int>(kError), 1);
  EXPECT_EQ(static_cast<int>(kWarning), 2);
  EXPECT_EQ(static_cast<int>(kInfo), 3);
}

TEST(LogSetTest, RegisterGivesTheModuleItsSets) {
  ManagerHost const host;
  Module const net("net");
  EXPECT_FALSE(net.Register(UpTo(kError), kToFile)) << "before Init";
  ASSERT_TRUE(host.Init());

  EXPECT_TRUE(net.Register(UpTo(kError), kToStandardOutput | kToFile));
  EXPECT_FALSE(Module("").Register(UpTo(kError), kToFile));

  Bits levels;
  Bits outputs;
  ASSERT_TRUE(Manager()->GetSubModuleInfo("net", levels, outputs));
  EXPECT_EQ(levels, BitsOf({0, 1}));
  EXPECT_EQ(outputs, BitsOf({0, 1}));
}

TEST(LogSetTest, MakingAModuleRegistersNothing) {
  ManagerHost const host;
  ASSERT_TRUE(host.Init());
  Module const net("net");

  Bits levels;
  Bits outputs;
  EXPECT_FALSE(Manager()->GetSubModuleInfo("net", levels, outputs));
}

// --- what is traced ---

TEST(LogCallTest, TheFileGetsWhatTraceWritesForTheSameText) {
  ManagerHost const host("nFiltLogBufSize = 0\n");
  ASSERT_TRUE(host.Init());
  Module const net("net");
  ASSERT_TRUE(net.Register(UpTo(VeltLogLevel{9}), kToFile));
  Strings const texts = {"plain",
                         "",
                         "ends in a newline\n",
                         "two\nlines",
                         "100 % {} \\n",
                         std::string(2047, 'a'),
                         std::string(2048, 'b'),
                         std::string(2049, 'c')};

  for (std::string const& text : texts) {
    for (int const level : {0, 1, 2, 3, 4, 9}) {
      EXPECT_TRUE(Manager()->Trace("net", VeltLogLevel{level}, text.c_str(), nullptr, false, false));
      EXPECT_TRUE(net.Log(VeltLogLevel{level}, "{}", text));
    }
  }
  Strings lines;
  std::string const written = (VeltDebugMgr::Destroy(), host.Text());
  for (std::string const& line : Lines(written)) {
    std::size_t const body = BodyStart(line);
    if (body != std::string::npos) lines.push_back(line.substr(body));
    if (body == std::string::npos && line == "lines") lines.back() += "|" + line;
  }

  ASSERT_EQ(lines.size(), texts.size() * 6 * 2);
  for (std::size_t i = 0; i < lines.size(); i += 2) EXPECT_EQ(lines[i], lines[i + 1]) << i;
  EXPECT_EQ(lines[0], " net A: plain");
  EXPECT_EQ(lines[13], " net A: ");
  EXPECT_EQ(lines[36 + 1], " net A: two|lines");
  EXPECT_EQ(lines[84 + 1], " net A: " + std::string(2048, 'c')) << "cut where Trace cuts";
}

TEST(LogCallTest, ASubNameTracesToAFamilyOfItsOwn) {
  ManagerHost const host("net_level = 1111\n");
  ASSERT_TRUE(host.Init());

  EXPECT_TRUE(Module("net", "gw").Info("to {}", "the side"));
  EXPECT_TRUE(Module("net", "").Info("to {}", "the main family"));

  VeltDebugMgr::Destroy();
  EXPECT_EQ(host.Records("host_gw_"), Strings{" net I: to the side"});
  EXPECT_EQ(host.Records(), Strings{" net I: to the main family"});
}

TEST_F(LogHeaderTest, EachCallTracesAtItsLevelWithNeitherFlag) {
  EXPECT_TRUE(net_.Alert("a {}", 1));
  EXPECT_TRUE(net_.Error("e {}", "two"));
  EXPECT_TRUE(net_.Warning("w {:.1f}", 3.0));
  EXPECT_TRUE(net_.Info("i {:#x}", 4));
  EXPECT_TRUE(net_.Log(VeltLogLevel{9}, "nine"));
  EXPECT_TRUE(Module("net", "gw").Error("side {}", 5));

  EXPECT_EQ(texts_, (Strings{"net 0 a 1", "net 1 e two", "net 2 w 3.0", "net 3 i 0x4", "net 9 nine",
                             "gw/net 1 side 5"}));
}

TEST_F(LogHeaderTest, TheResultIsTheManagers) {
  EXPECT_FALSE(Module("refused").Info("x"));
  EXPECT_EQ(Last(), "refused 3 x");
}

TEST_F(LogHeaderTest, AnEngineGetsTheWholeText) {
  EXPECT_TRUE(net_.Info("{}", std::string(10'000, 'x')));

  EXPECT_EQ(Last(), "net 3 " + std::string(10'000, 'x'));
}

TEST_F(LogHeaderTest, AnArgumentOfAnyFormattableKindIsTaken) {
  std::string text = "text";
  char const* const pointer = "pointer";
  bool const flag = true;

  EXPECT_TRUE(net_.Info("{} {} {} {} {}", text, pointer, flag, std::string("moved"), 'c'));

  EXPECT_EQ(Last(), "net 3 text pointer true moved c");
}

// Plain formats are expanded without {fmt}; the text must be the same.
TEST_F(LogHeaderTest, EveryTextIsThatOfTheFormattingLibrary) {
  auto const same = [this](auto const& format, auto&&... args) {
    std::string const expected = "net 3 " + fmt::format(fmt::runtime(format), args...);
    EXPECT_TRUE(net_.Info(fmt::runtime(format), args...)) << format;
    EXPECT_EQ(Last(), expected) << format;
  };
  char array[] = "array";
  char* const pointer = array;
  char const* const text = "text";
  same("no braces", 1);
  same("{}{}", 1, 2);
  same("{}", std::string("s"));
  same("a{}b{}c{}d", text, pointer, array);
  same("{} {} {}", std::string_view("view"), 'c', "literal");
  same("{} {}", std::numeric_limits<int>::min(), std::numeric_limits<unsigned>::max());
  same("{} {}", std::numeric_limits<long>::min(), std::numeric_limits<unsigned long>::max());
  same("{} {}", std::numeric_limits<long long>::min(), std::numeric_limits<unsigned long long>::max());
  same("{} {}", std::numeric_limits<short>::min(), std::numeric_limits<unsigned short>::max());
  same("{} {}", static_cast<signed char>(-7), static_cast<unsigned char>(200));
  same("{} {} {}", true, 1.5, static_cast<void const*>(nullptr));
  same("{{}} {}", 1);
  same("{} {{}}", 1);
  same("{} }}", 1);
  same("{{{}}}", 1);
  same("{:>5}|{:<5}|{:05}", 1, "b", 3);
  same("{1} {0}", 1, 2);
  same("{0} {0}", 1);
  same("{:{}}", 1, 5);
  same("{}", 1, 2);
  same("", 1);
  for (std::size_t length = 0; length < 20; ++length) {
    std::string const literal = std::string("0123456789abcdefghij").substr(0, length);
    same(literal + "{}" + literal, 1);
    same(literal + "{{" + literal, 1);
    same(literal + "}}" + literal + "{}", 1);
    for (char const* const other : {"z", "|", "~", "\x7F", "\xC3\xA9", "\xFF\xFF"}) {
      same(literal + other + literal + "{}" + other + literal, 1);
    }
  }
  same("{}", std::string(2048, 'x'));
  same("{}", std::string(2049, 'x'));
  same(std::string(2047, 'x') + "{}", 12);
  same(std::string(3000, 'x'), 1);
}

// --- macros ---

TEST_F(LogHeaderTest, AMacroAddsItsFileWithoutDirectoriesAndItsLine) {
  int const line = __LINE__ + 1;
  VELT_ALERT(net_, "a {}", 1);
  VELT_ERROR(net_, "e");
  VELT_WARNING(net_, "w {} {}", 2, "b");
  VELT_INFO(Module("net", "gw"), "i");

  std::string const file = " (log_header_test.cpp:";
  EXPECT_EQ(texts_, (Strings{"net 0 a 1" + file + std::to_string(line) + ")",
                             "net 1 e" + file + std::to_string(line + 1) + ")",
                             "net 2 w 2 b" + file + std::to_string(line + 2) + ")",
                             "gw/net 3 i" + file + std::to_string(line + 3) + ")"}));
}

TEST_F(LogHeaderTest, AFileWithoutDirectoriesKeepsItsName) {
  EXPECT_STREQ(detail::BaseName("file.cpp"), "file.cpp");
  EXPECT_STREQ(detail::BaseName("/a/b/file.cpp"), "file.cpp");
  EXPECT_STREQ(detail::BaseName("a/"), "");
  EXPECT_STREQ(detail::BaseName(""), "");
}

TEST(LogCallTest, ALongTextOfAMacroIsCutBeforeItsPlace) {
  ManagerHost const host("net_level = 1111\n");
  ASSERT_TRUE(host.Init());
  int const line = __LINE__ + 1;
  VELT_INFO(Module("net"), "{}", std::string(5000, 'x'));

  std::string const place = " (log_header_test.cpp:" + std::to_string(line) + ")";
  EXPECT_EQ(host.StopAndRead(), Strings{" net I: " + std::string(2048 - place.size(), 'x') + place});
}

TEST_F(LogHeaderTest, ANulInATextOfAMacroEndsTheTextAndNotItsPlace) {
  int const line = __LINE__ + 1;
  VELT_INFO(net_, "a{}b", '\0');

  EXPECT_EQ(Last(), "net 3 a (log_header_test.cpp:" + std::to_string(line) + ")");
}

TEST(LogMacroTest, ArgumentsAreEvaluatedOnlyWhenTheRecordIsWanted) {
  ManagerHost const host("nFiltLogBufSize = 0\n");
  ASSERT_TRUE(host.Init());
  Module const net("net");
  ASSERT_TRUE(net.Register(UpTo(kError), kToFile));
  int evaluated = 0;

  VELT_ALERT(net, "{}", ++evaluated);
  EXPECT_EQ(evaluated, 1);
  VELT_ERROR(net, "{}", ++evaluated);
  EXPECT_EQ(evaluated, 2);
  VELT_WARNING(net, "{}", ++evaluated);
  VELT_INFO(net, "{}", ++evaluated);
  EXPECT_EQ(evaluated, 2);

  ASSERT_TRUE(Manager()->SetLogLevel("net", kInfo, true));
  VELT_INFO(net, "{}", ++evaluated);
  EXPECT_EQ(evaluated, 3);
}

TEST(LogMacroTest, ARingWantsThemAll) {
  ManagerHost const host("nFiltLogBufSize = 10\n");
  ASSERT_TRUE(host.Init());
  Module const net("net");
  ASSERT_TRUE(net.Register({}, kToFile));
  int evaluated = 0;

  VELT_INFO(net, "{}", ++evaluated);

  EXPECT_EQ(evaluated, 1);
}

TEST_F(LogHeaderTest, AMacroIsOneStatementAndEvaluatesItsModuleOnce) {
  int modules = 0;
  auto const module = [&] {
    ++modules;
    return net_;
  };

  if (modules == 0)
    VELT_INFO(module(), "one");
  else
    VELT_INFO(module(), "two");

  EXPECT_EQ(modules, 1);
  ASSERT_EQ(texts_.size(), 1U);
  EXPECT_EQ(texts_[0].substr(0, 10), "net 3 one ");
}

TEST_F(LogHeaderTest, WantedAsksTheManager) {
  EXPECT_TRUE(net_.Wanted(kInfo));
  VeltDebugMgr::Destroy();
  EXPECT_FALSE(net_.Wanted(kInfo));
}

// --- threads ---

TEST(LogThreadTest, EightThreadsShareOneModule) {
  ManagerHost const host("net_level = 1111\n");
  ASSERT_TRUE(host.Init());
  Module const net("net");

  InThreads(8, [&net](int thread) {
    Module const own = net;  // NOLINT(performance-unnecessary-copy-initialization): copied by eight threads
    for (int i = 0; i < 500; ++i) EXPECT_TRUE(own.Info("thread {} record {}", thread, i));
  });

  Strings const records = host.StopAndRead();
  ASSERT_EQ(records.size(), 4000U);
  for (int thread = 0; thread < 8; ++thread) {
    for (int i = 0; i < 500; i += 499) {
      EXPECT_TRUE(
          Contains(records, " net I: thread " + std::to_string(thread) + " record " + std::to_string(i)));
    }
  }
}

}  // namespace
}  // namespace velt::test
