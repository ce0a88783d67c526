#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/process.h"
#include "velt/manager.h"
#include "velt/process.h"

namespace velt::test {
namespace {

static_assert(sizeof(g_VeltAppExitFlag) == 1);

struct Banner {
  std::string module;
  int level = -1;
  std::string text;
  bool flag = false;  // what the flag was while the banner was traced
};

// Receives the banners instead of a channel.
class BannerEngine : public VeltDebugEngine {
 public:
  explicit BannerEngine(std::vector<Banner>& banners) : banners_(banners) {}

  bool Trace(std::string const& module, VeltLogLevel level, char const* text, AsnType const*, bool,
             bool) override {
    banners_.push_back({module, level, text, VeltAppIsExit()});
    return true;
  }
  bool AppTrace(std::string const&, VeltLogLevel, char const*, AsnType const*, bool, bool,
                std::string const&) override {
    return false;
  }

 private:
  std::vector<Banner>& banners_;
};

class RefusingEngine : public BannerEngine {
 public:
  using BannerEngine::BannerEngine;
  bool Trace(std::string const&, VeltLogLevel, char const*, AsnType const*, bool, bool) override {
    return false;
  }
};

template <typename Exception>
class ThrowingEngine : public BannerEngine {
 public:
  ThrowingEngine(std::vector<Banner>& banners, Exception exception)
      : BannerEngine(banners), exception_(std::move(exception)) {}
  bool Trace(std::string const&, VeltLogLevel, char const*, AsnType const*, bool, bool) override {
    throw Exception(exception_);
  }

 private:
  Exception exception_;
};

// A manager without channels.
class AppExitTest : public testing::Test {
 protected:
  AppExitTest() {
    unsetenv("APP_ROOT");
    VeltDebugMgr::Instance()->Init("exit_test", "", "", "", false, true);
  }
  ~AppExitTest() override { VeltDebugMgr::Destroy(); }

  static void SetExitWhateverHappens(bool exit) {
    try {
      SetVeltAppExit(exit);
    } catch (...) {  // NOLINT(bugprone-empty-catch): only the flag is of interest
    }
  }

  std::vector<Banner> banners_;
};

TEST(AppExitFlagTest, IsOffAtFirst) {
  EXPECT_FALSE(VeltAppIsExit());
  EXPECT_FALSE(g_VeltAppExitFlag);
}

TEST(AppExitFlagTest, CanBeSetBeforeThereIsAManager) {
  SetVeltAppExit(true);

  EXPECT_TRUE(VeltAppIsExit());
  EXPECT_TRUE(g_VeltAppExitFlag);
}

TEST(AppExitFlagTest, CanBeTakenBack) {
  SetVeltAppExit(true);

  SetVeltAppExit(false);

  EXPECT_FALSE(VeltAppIsExit());
}

TEST(AppExitFlagTest, FollowsTheExportedFlag) {
  g_VeltAppExitFlag = true;
  EXPECT_TRUE(VeltAppIsExit());

  g_VeltAppExitFlag = false;
  EXPECT_FALSE(VeltAppIsExit());
}

TEST(AppExitFlagTest, IsSeenByThreadsThatPollIt) {
  std::atomic<int> ended{0};
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&ended] { ended += WaitUntil(&VeltAppIsExit) ? 1 : 0; });
  }

  SetVeltAppExit(true);

  for (auto& thread : threads) thread.join();
  EXPECT_EQ(ended, 4);
}

TEST(AppExitFlagTest, IsInheritedByAForkedChild) {
  SetVeltAppExit(true);

  Outcome const child = RunInChild([] { return VeltAppIsExit() ? 0 : 1; });

  EXPECT_EQ(child.exit_code, 0);
}

TEST_F(AppExitTest, TheBannerBearsTheValue) {
  VeltDebugMgr::Instance()->RegDebugEngine(new BannerEngine(banners_));

  SetVeltAppExit(true);
  SetVeltAppExit(false);

  ASSERT_EQ(banners_.size(), 2U);
  EXPECT_EQ(banners_[0].text, "===================SetVeltAppExit (1)==================");
  EXPECT_EQ(banners_[1].text, "===================SetVeltAppExit (0)==================");
  EXPECT_EQ(banners_[0].module, "MRB");
  EXPECT_EQ(banners_[0].level, 2);
}

TEST_F(AppExitTest, TheBannerComesBeforeTheFlagChanges) {
  VeltDebugMgr::Instance()->RegDebugEngine(new BannerEngine(banners_));

  SetVeltAppExit(true);
  SetVeltAppExit(false);

  ASSERT_EQ(banners_.size(), 2U);
  EXPECT_FALSE(banners_[0].flag);
  EXPECT_TRUE(banners_[1].flag);
}

TEST_F(AppExitTest, TheBannerComesEvenWhenTheValueStays) {
  VeltDebugMgr::Instance()->RegDebugEngine(new BannerEngine(banners_));

  SetVeltAppExit(false);
  SetVeltAppExit(false);

  EXPECT_EQ(banners_.size(), 2U);
}

TEST_F(AppExitTest, TheFlagIsSetWhenTheBannerIsRefused) {
  VeltDebugMgr::Instance()->RegDebugEngine(new RefusingEngine(banners_));

  SetVeltAppExit(true);

  EXPECT_TRUE(VeltAppIsExit());
}

TEST_F(AppExitTest, TheFlagIsSetWhenTheBannerThrows) {
  VeltDebugMgr::Instance()->RegDebugEngine(
      new ThrowingEngine<std::runtime_error>(banners_, std::runtime_error("no room")));

  SetExitWhateverHappens(true);
  EXPECT_TRUE(VeltAppIsExit());

  SetExitWhateverHappens(false);
  EXPECT_FALSE(VeltAppIsExit());
}

TEST_F(AppExitTest, TheFlagIsSetWhenTheBannerThrowsSomethingUnusual) {
  VeltDebugMgr::Instance()->RegDebugEngine(new ThrowingEngine<int>(banners_, 42));

  SetExitWhateverHappens(true);

  EXPECT_TRUE(VeltAppIsExit());
}

}  // namespace
}  // namespace velt::test
