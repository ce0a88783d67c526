// velt/log.h when an argument, a format, the engine or the memory fails: the record is lost, and no call
// throws. And what needs no memory at all.
#include "velt/log.h"

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include <gtest/gtest.h>

#include "tests/manager/log_header.h"
#include "tests/support/failing_allocations.h"
#include "tests/support/manager.h"
#include "tests/support/manager_host.h"

namespace velt::test {
struct Throwing {};
struct ThrowingInt {};
}  // namespace velt::test

template <>
struct fmt::formatter<velt::test::Throwing> : fmt::formatter<int> {
  template <typename Context>
  auto format(velt::test::Throwing const& /*value*/, Context& context) const -> decltype(context.out()) {
    throw std::runtime_error("an argument");
  }
};

template <>
struct fmt::formatter<velt::test::ThrowingInt> : fmt::formatter<int> {
  template <typename Context>
  auto format(velt::test::ThrowingInt const& /*value*/, Context& context) const -> decltype(context.out()) {
    throw 42;
  }
};

namespace velt::test {
namespace {

TEST_F(LogHeaderTest, ANullTextCostsTheRecord) {
  char const* const null = nullptr;

  EXPECT_FALSE(net_.Info("{}", null));
  EXPECT_EQ(texts_, Strings{});
}

TEST_F(LogHeaderTest, AnArgumentThatThrowsCostsTheRecordAndNothingElse) {
  EXPECT_FALSE(net_.Info("{}", Throwing{}));
  EXPECT_FALSE(net_.Info("{}", ThrowingInt{})) << "not even a standard exception";
  VELT_INFO(net_, "{}", Throwing{});
  EXPECT_EQ(texts_, Strings{});

  EXPECT_TRUE(net_.Info("after"));
  EXPECT_EQ(Last(), "net 3 after");
}

TEST_F(LogHeaderTest, AFormatMadeAtRunTimeThatIsWrongCostsTheRecord) {
  EXPECT_FALSE(net_.Info(fmt::runtime("{} {}"), 1));
  EXPECT_FALSE(net_.Info(fmt::runtime("{:d}"), "text"));
  EXPECT_FALSE(net_.Info(fmt::runtime("{")));

  EXPECT_EQ(texts_, Strings{});
}

TEST_F(LogHeaderTest, AnEngineThatThrowsCostsTheRecord) {
  EXPECT_FALSE(Module("bad").Info("x"));
  VELT_ERROR(Module("bad"), "x");
}

TEST(LogCallTest, ALevelThatNoSetHasIsRefusedAndDoesNotThrow) {
  ManagerHost const host("net_level = 1111\n");
  ASSERT_TRUE(host.Init());
  Module const net("net");

  for (int const level : {-1, 32, 33}) EXPECT_FALSE(net.Log(VeltLogLevel{level}, "x")) << level;

  EXPECT_EQ(host.StopAndRead(), Strings{});
}

std::uint64_t Refused() {
  std::map<std::string, VeltTraceCounts> counts;
  EXPECT_TRUE(Manager()->GetCounts(counts));
  return counts["host_"].refused;
}

TEST(LogCallTest, ARecordThatThrowsIsCountedAsRefusedOnce) {
  ManagerHost const host("net_level = 1111\n");
  ASSERT_TRUE(host.Init());
  Module const net("net");
  Module const gateway("net", "gw");
  ASSERT_EQ(Refused(), 0U);

  EXPECT_FALSE(net.Info("{}", Throwing{}));
  EXPECT_EQ(Refused(), 1U);
  EXPECT_FALSE(net.Info(fmt::runtime("{} {}"), 1));
  EXPECT_EQ(Refused(), 2U);
  VELT_INFO(net, "{}", ThrowingInt{});
  EXPECT_EQ(Refused(), 3U);
  EXPECT_FALSE(gateway.Info("{}", Throwing{}));
  EXPECT_EQ(Refused(), 4U);
  EXPECT_FALSE(net.Log(VeltLogLevel{32}, "x"));
  EXPECT_EQ(Refused(), 5U);
  EXPECT_FALSE(net.Log(VeltLogLevel{-1}, "x"));
  EXPECT_EQ(Refused(), 6U);
  EXPECT_TRUE(net.Info("after"));
  EXPECT_EQ(Refused(), 6U);
}

TEST_F(LogHeaderTest, AnEngineIsNotCalledForARecordWhoseArgumentThrows) {
  int calls = 0;
  struct Counting : VeltDebugEngine {
    explicit Counting(int& count) : count_(count) {}
    bool Trace(std::string const&, VeltLogLevel, char const*, AsnType const*, bool, bool) override {
      return ++count_ > 0;
    }
    bool AppTrace(std::string const&, VeltLogLevel, char const*, AsnType const*, bool, bool,
                  std::string const&) override {
      return ++count_ > 0;
    }
    int& count_;
  };
  VeltDebugEngine* const before = Manager()->GetDebugEngine();
  ASSERT_TRUE(Manager()->UnRegDebugEngine(before));
  ASSERT_TRUE(Manager()->RegDebugEngine(new Counting(calls)));

  EXPECT_FALSE(net_.Info("{}", Throwing{}));
  EXPECT_EQ(calls, 0);
  EXPECT_TRUE(net_.Info("x"));
  EXPECT_EQ(calls, 1);
}

TEST(LogCallTest, NothingIsTracedBeforeInitAndAfterDestroy) {
  ManagerHost const host("net_level = 1111\n");
  Module const net("net");

  EXPECT_FALSE(net.Info("before"));
  EXPECT_FALSE(net.Info("{}", Throwing{}));
  VELT_INFO(net, "before");
  ASSERT_TRUE(host.Init());
  VeltDebugMgr::Destroy();
  EXPECT_FALSE(net.Info("after"));
}

TEST(LogCallTest, NoCallThrows) {
  Module const net("net");
  static_assert(noexcept(net.Log(kInfo, std::declval<fmt::format_string<>>())));
  static_assert(noexcept(net.Log(kInfo, std::declval<fmt::format_string<Throwing>>(), Throwing{})));
  static_assert(noexcept(net.Alert(std::declval<fmt::format_string<>>())));
  static_assert(noexcept(net.Error(std::declval<fmt::format_string<>>())));
  static_assert(noexcept(net.Warning(std::declval<fmt::format_string<>>())));
  static_assert(noexcept(net.Info(std::declval<fmt::format_string<>>())));
}

// --- memory ---

TEST_F(LogHeaderTest, ACopyIsTheSameModuleWithoutAnAllocation) {
  Module const long_name(std::string(100, 'n'), std::string(100, 's'));
  bool failed = true;
  {
    FailingAllocation const first(1);
    Module copy = long_name;
    Module assigned = net_;
    assigned = copy;
    Module const moved = std::move(copy);  // NOLINT(performance-move-const-arg): what a host may write
    failed = first.Failed();
    (void)moved;
  }
  EXPECT_FALSE(failed);

  Module source("net");
  Module const taken = std::move(source);  // NOLINT(performance-move-const-arg): what a host may write
  EXPECT_TRUE(taken.Info("taken"));
  EXPECT_TRUE(source.Info("and left"));  // NOLINT(bugprone-use-after-move): that it may be used is the point
  EXPECT_EQ(texts_, (Strings{"net 3 taken", "net 3 and left"}));
}

TEST_F(LogHeaderTest, ATextOfUpTo2048CharactersAllocatesNothing) {
  Module const quiet("quiet");
  std::string const text(2048, 'x');
  bool failed = true;
  {
    FailingAllocation const first(1);
    EXPECT_TRUE(quiet.Info("{}", text));
    EXPECT_TRUE(quiet.Error("{} {:>20} {}", 1, "two", 3.5));
    VELT_INFO(quiet, "{}", std::string_view(text).substr(0, 2000));
    failed = first.Failed();
  }
  EXPECT_FALSE(failed);
}

TEST_F(LogHeaderTest, ATextForWhichThereIsNoMemoryCostsTheRecord) {
  std::string const text(5000, 'x');
  bool traced = true;
  bool failed = false;
  {
    FailingAllocation const first(1);
    traced = net_.Info("{}", text);
    failed = first.Failed();
  }
  EXPECT_TRUE(failed);
  EXPECT_FALSE(traced);
  EXPECT_EQ(texts_, Strings{});
}

}  // namespace
}  // namespace velt::test
