// One module's pair of sets: its setters, their limits and their lock.
#include <atomic>
#include <bitset>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/support/manager_host.h"

namespace velt::test {
namespace {

static_assert(std::has_virtual_destructor_v<VeltDebugSubModInfo>, "the manager deletes through the base");
static_assert(!std::is_copy_constructible_v<VeltDebugSubModInfo>, "a copy would have a lock of its own");

using Setter = bool (VeltDebugSubModInfo::*)(unsigned int, bool);

constexpr Setter kSetters[] = {&VeltDebugSubModInfo::SetLevel, &VeltDebugSubModInfo::SetOutput};

// What the range error says; empty when nothing was thrown.
std::string RangeErrorOf(Setter setter, unsigned int index, bool on) {
  VeltDebugSubModInfo info(BitsOf({0, 1}), BitsOf({1}));
  try {
    (info.*setter)(index, on);
  } catch (std::out_of_range const& error) {
    return error.what();
  }
  return {};
}

// The object does not show its sets: they are read through a manager that owns the module.
class SubModInfoInManagerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(host_.Init("host_", true));
    ASSERT_TRUE(VeltDebugMgr::Instance()->RegSubModuleInfo("net", BitsOf({0, 1}), BitsOf({1}), false));
  }

  static Bits Levels() {
    Bits levels;
    Bits outputs;
    EXPECT_TRUE(VeltDebugMgr::Instance()->GetSubModuleInfo("net", levels, outputs));
    return levels;
  }

  static Bits Outputs() {
    Bits levels;
    Bits outputs;
    EXPECT_TRUE(VeltDebugMgr::Instance()->GetSubModuleInfo("net", levels, outputs));
    return outputs;
  }

 private:
  ManagerHost host_;
};

TEST(SubModInfoTest, EveryIndexFrom0To31CanBeSetAndCleared) {
  for (Setter const setter : kSetters) {
    VeltDebugSubModInfo info(BitsOf({}), BitsOf({}));
    for (unsigned int index = 0; index < 32; ++index) {
      EXPECT_TRUE((info.*setter)(index, true)) << index;
      EXPECT_TRUE((info.*setter)(index, false)) << index;
      EXPECT_TRUE((info.*setter)(index, false)) << index << ", already clear";
    }
  }
}

TEST(SubModInfoTest, AnIndexAbove32IsAQuietFalse) {
  for (Setter const setter : kSetters) {
    VeltDebugSubModInfo info(BitsOf({0, 1}), BitsOf({1}));
    EXPECT_FALSE((info.*setter)(33, true));
    EXPECT_FALSE((info.*setter)(33, false));
    EXPECT_FALSE((info.*setter)(std::numeric_limits<unsigned int>::max(), true));
  }
}

TEST(SubModInfoTest, Index32ThrowsTheRangeErrorOfTheBitSet) {
  for (Setter const setter : kSetters) {
    for (bool const on : {true, false}) {
      std::string const message = RangeErrorOf(setter, 32, on);

      EXPECT_NE(message.find("bitset::set"), std::string::npos) << message;
      EXPECT_NE(message.find("32"), std::string::npos) << message;
    }
  }
}

TEST(SubModInfoTest, TheLockIsFreeAgainAfterARefusalAndAfterTheRangeError) {
  for (Setter const setter : kSetters) {
    VeltDebugSubModInfo info(BitsOf({}), BitsOf({}));
    EXPECT_FALSE((info.*setter)(33, true));
    EXPECT_THROW((info.*setter)(32, true), std::out_of_range);

    bool same_thread = (info.*setter)(5, true);
    bool other_thread = false;
    std::thread([&] { other_thread = (info.*setter)(6, true); }).join();

    EXPECT_TRUE(same_thread);
    EXPECT_TRUE(other_thread);
  }
}

TEST(SubModInfoTest, WholeSetsAreReplaced) {
  VeltDebugSubModInfo info(BitsOf({}), BitsOf({}));

  EXPECT_TRUE(info.SetLevelSet(BitsOf({4, 31})));
  EXPECT_TRUE(info.SetOutputSet(BitsOf({0, 1, 31})));
}

TEST(SubModInfoTest, SettersOfManyThreadsExcludeEachOther) {
  VeltDebugSubModInfo info(BitsOf({}), BitsOf({}));
  std::atomic<int> failed{0};

  InThreads(4, [&](int thread) {
    for (unsigned int round = 0; round < 500; ++round) {
      unsigned int const index = static_cast<unsigned int>(thread) * 8 + round % 8;
      bool const done = info.SetLevel(index, true) && info.SetOutput(round % 32, false) &&
                        info.SetLevelSet(BitsOf({1})) && info.SetOutputSet(BitsOf({2}));
      if (!done) ++failed;
    }
  });

  EXPECT_EQ(failed, 0);
}

TEST(SubModInfoTest, ADerivedObjectIsDeletedThroughTheBase) {
  struct Derived : VeltDebugSubModInfo {
    explicit Derived(bool& gone) : VeltDebugSubModInfo(BitsOf({}), BitsOf({})), gone_(gone) {}
    ~Derived() override { gone_ = true; }
    bool& gone_;
  };
  bool gone = false;
  VeltDebugSubModInfo* const info = new Derived(gone);

  delete info;

  EXPECT_TRUE(gone);
}

TEST_F(SubModInfoInManagerTest, TheConstructorTakesLevelsFirstAndOutputsSecond) {
  EXPECT_EQ(Levels(), BitsOf({0, 1}));
  EXPECT_EQ(Outputs(), BitsOf({1}));
}

TEST_F(SubModInfoInManagerTest, OneLevelIsSetOrClearedAndNoOtherBitMoves) {
  auto* const manager = VeltDebugMgr::Instance();

  EXPECT_TRUE(manager->SetLogLevel("net", VeltLogLevel{5}, true));
  EXPECT_EQ(Levels(), BitsOf({0, 1, 5}));
  EXPECT_TRUE(manager->SetLogLevel("net", VeltLogLevel{0}, false));
  EXPECT_EQ(Levels(), BitsOf({1, 5}));
  EXPECT_TRUE(manager->SetLogLevel("net", VeltLogLevel{31}, true));
  EXPECT_EQ(Levels(), BitsOf({1, 5, 31}));
  EXPECT_TRUE(manager->SetLogLevel("net", VeltLogLevel{31}, true));
  EXPECT_EQ(Levels(), BitsOf({1, 5, 31}));
  EXPECT_EQ(Outputs(), BitsOf({1})) << "the other set";
}

TEST_F(SubModInfoInManagerTest, OneOutputIsSetOrClearedAndNoOtherBitMoves) {
  auto* const manager = VeltDebugMgr::Instance();

  EXPECT_TRUE(manager->SetLogOutput("net", VeltOutputDirection{0}, true));
  EXPECT_EQ(Outputs(), BitsOf({0, 1}));
  EXPECT_TRUE(manager->SetLogOutput("net", VeltOutputDirection{1}, false));
  EXPECT_EQ(Outputs(), BitsOf({0}));
  EXPECT_TRUE(manager->SetLogOutput("net", VeltOutputDirection{2}, true))
      << "kept, although no function reads it";
  EXPECT_TRUE(manager->SetLogOutput("net", VeltOutputDirection{31}, true));
  EXPECT_EQ(Outputs(), BitsOf({0, 2, 31}));
  EXPECT_EQ(Levels(), BitsOf({0, 1})) << "the other set";
}

TEST_F(SubModInfoInManagerTest, ARefusedIndexAndTheRangeErrorLeaveTheSetsAlone) {
  auto* const manager = VeltDebugMgr::Instance();

  EXPECT_FALSE(manager->SetLogLevel("net", VeltLogLevel{-1}, true));
  EXPECT_FALSE(manager->SetLogOutput("net", VeltOutputDirection{-1}, false));
  EXPECT_THROW(manager->SetLogLevel("net", VeltLogLevel{32}, true), std::out_of_range);
  EXPECT_THROW(manager->SetLogOutput("net", VeltOutputDirection{32}, false), std::out_of_range);

  EXPECT_EQ(Levels(), BitsOf({0, 1}));
  EXPECT_EQ(Outputs(), BitsOf({1}));
}

}  // namespace
}  // namespace velt::test
