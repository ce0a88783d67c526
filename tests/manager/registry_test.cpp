// The registry of modules and engines.
#include <atomic>
#include <bitset>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/support/manager.h"
#include "tests/support/manager_host.h"

namespace velt::test {
namespace {

using Sets = std::pair<Bits, Bits>;
using ModuleSets = VeltDebugMgr::ModuleSets;

// The sets of a module that is registered; a pair that no test uses when it is not.
Sets SetsOf(std::string const& module) {
  Sets sets{BitsOf({30}), BitsOf({30})};
  Manager()->GetSubModuleInfo(module, sets.first, sets.second);
  return sets;
}

// Whether both ways to read a module give sets that are all ones or all zeros.
bool SeesWholeSets(std::string const& module) {
  Bits levels;
  Bits outputs;
  ModuleSets modules;
  bool const known =
      Manager()->GetSubModuleInfo(module, levels, outputs) && Manager()->GetAllModuleInfo(modules);
  return known && (levels.none() || levels.all()) && (outputs.none() || outputs.all());
}

Sets const kDebugSets{BitsOf({0, 1, 2}), BitsOf({1})};

class RegistryTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(host_.Init("host_", true)); }

  ManagerHost host_{"debug_level = 111\n"};
};

// A manager that was initialised without any configuration: there is no module "debug".
class RegistryWithoutDebugTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(Manager()->Init("host_", "", host_.LogDir(), "", true, true)); }

  ManagerHost host_;
};

// --- before Init ---

TEST(RegistryBeforeInitTest, ModulesCanNeitherBeRegisteredNorReadNorSet) {
  ManagerHost const host;
  Bits levels = BitsOf({7});
  Bits outputs = BitsOf({8});
  ModuleSets modules{{"mine", kDebugSets}};

  EXPECT_FALSE(Manager()->RegSubModuleInfo("net", BitsOf({0}), BitsOf({1}), false));
  EXPECT_FALSE(Manager()->RegSubModuleInfo("net", BitsOf({0}), BitsOf({1}), true));
  EXPECT_FALSE(Manager()->GetSubModuleInfo("net", levels, outputs));
  EXPECT_FALSE(Manager()->SetAllModuleInfo(BitsOf({0}), BitsOf({1}), false));
  EXPECT_FALSE(Manager()->SetAllModuleInfo(BitsOf({0}), BitsOf({1}), true));
  EXPECT_FALSE(Manager()->GetAllModuleInfo(modules));
  EXPECT_FALSE(Manager()->SetLogLevel("net", VeltLogLevel{1}, true));
  EXPECT_FALSE(Manager()->SetLogLevel("", VeltLogLevel{1}, true));
  EXPECT_FALSE(Manager()->SetLogLevel("debug", VeltLogLevel{32}, true))
      << "without a module no set can throw";
  EXPECT_FALSE(Manager()->SetLogOutput("", VeltOutputDirection{1}, true));

  EXPECT_EQ(levels, BitsOf({7}));
  EXPECT_EQ(outputs, BitsOf({8}));
  EXPECT_EQ(modules, (ModuleSets{{"mine", kDebugSets}}));
}

// --- registration ---

TEST_F(RegistryTest, ANewModuleGetsItsOwnSets) {
  bool const done = Manager()->RegSubModuleInfo("net", BitsOf({4, 31}), BitsOf({0}), false);

  EXPECT_TRUE(done);
  EXPECT_EQ(SetsOf("net"), (Sets{BitsOf({4, 31}), BitsOf({0})}));
}

TEST_F(RegistryTest, ANewModuleThatInheritsGetsTheSetsOfDebug) {
  bool const done = Manager()->RegSubModuleInfo("net", BitsOf({4}), BitsOf({0}), true);

  EXPECT_TRUE(done);
  EXPECT_EQ(SetsOf("net"), kDebugSets);
}

TEST_F(RegistryTest, InheritanceIsACopyMadeOnce) {
  ASSERT_TRUE(Manager()->RegSubModuleInfo("net", BitsOf({}), BitsOf({}), true));

  ASSERT_TRUE(Manager()->SetLogLevel("debug", VeltLogLevel{9}, true));

  EXPECT_EQ(SetsOf("net"), kDebugSets);
}

TEST_F(RegistryTest, ARegisteredModuleTakesTheNewSetsWhetherOrNotItShallInherit) {
  ASSERT_TRUE(Manager()->RegSubModuleInfo("net", BitsOf({4}), BitsOf({0}), false));

  EXPECT_TRUE(Manager()->RegSubModuleInfo("net", BitsOf({5}), BitsOf({1}), true));
  EXPECT_EQ(SetsOf("net"), (Sets{BitsOf({5}), BitsOf({1})}));
  EXPECT_TRUE(Manager()->RegSubModuleInfo("net", BitsOf({6}), BitsOf({0, 1}), false));
  EXPECT_EQ(SetsOf("net"), (Sets{BitsOf({6}), BitsOf({0, 1})}));
  EXPECT_TRUE(Manager()->RegSubModuleInfo("debug", BitsOf({7}), BitsOf({}), true));
  EXPECT_EQ(SetsOf("debug"), (Sets{BitsOf({7}), BitsOf({})}));
}

TEST_F(RegistryTest, AModuleWithoutANameIsRefused) {
  EXPECT_FALSE(Manager()->RegSubModuleInfo("", BitsOf({4}), BitsOf({0}), false));
  EXPECT_FALSE(Manager()->RegSubModuleInfo("", BitsOf({4}), BitsOf({0}), true));
  EXPECT_EQ(SetsOf("debug"), kDebugSets) << "the empty name does not mean debug here";
}

TEST_F(RegistryTest, OddNamesAreNamesToo) {
  for (auto const& name :
       {std::string(" "), std::string("%s"), std::string(10'000, 'm'), std::string("a\nb")}) {
    EXPECT_TRUE(Manager()->RegSubModuleInfo(name, BitsOf({4}), BitsOf({0}), false));
    EXPECT_EQ(SetsOf(name), (Sets{BitsOf({4}), BitsOf({0})}));
  }
}

TEST_F(RegistryWithoutDebugTest, WhatShallInheritIsRefusedWithoutDebug) {
  Bits levels;
  Bits outputs;

  EXPECT_FALSE(Manager()->RegSubModuleInfo("net", BitsOf({4}), BitsOf({0}), true));
  EXPECT_FALSE(Manager()->GetSubModuleInfo("net", levels, outputs));
  EXPECT_FALSE(Manager()->RegSubModuleInfo("debug", BitsOf({4}), BitsOf({0}), true));
  EXPECT_TRUE(Manager()->RegSubModuleInfo("net", BitsOf({4}), BitsOf({0}), false));
}

// --- reading ---

TEST_F(RegistryTest, AnUnknownModuleLeavesBothSetsUntouched) {
  Bits levels = BitsOf({7});
  Bits outputs = BitsOf({8});

  EXPECT_FALSE(Manager()->GetSubModuleInfo("net", levels, outputs));
  EXPECT_FALSE(Manager()->GetSubModuleInfo("", levels, outputs));
  EXPECT_FALSE(Manager()->GetSubModuleInfo("DEBUG", levels, outputs));

  EXPECT_EQ(levels, BitsOf({7}));
  EXPECT_EQ(outputs, BitsOf({8}));
}

TEST_F(RegistryTest, AllModulesAreAddedToTheCallersTable) {
  ASSERT_TRUE(Manager()->RegSubModuleInfo("net", BitsOf({4}), BitsOf({0}), false));
  ModuleSets modules{{"mine", Sets{BitsOf({9}), BitsOf({9})}}, {"net", Sets{BitsOf({8}), BitsOf({8})}}};

  bool const done = Manager()->GetAllModuleInfo(modules);

  EXPECT_TRUE(done);
  EXPECT_EQ(modules, (ModuleSets{{"debug", kDebugSets},
                                 {"mine", Sets{BitsOf({9}), BitsOf({9})}},
                                 {"net", Sets{BitsOf({4}), BitsOf({0})}}}));
}

// --- setting all ---

TEST_F(RegistryTest, EveryModuleTakesTheGivenSets) {
  ASSERT_TRUE(Manager()->RegSubModuleInfo("net", BitsOf({4}), BitsOf({0}), false));

  bool const done = Manager()->SetAllModuleInfo(BitsOf({20}), BitsOf({21}), false);

  EXPECT_TRUE(done);
  EXPECT_EQ(SetsOf("net"), (Sets{BitsOf({20}), BitsOf({21})}));
  EXPECT_EQ(SetsOf("debug"), (Sets{BitsOf({20}), BitsOf({21})}));
}

TEST_F(RegistryTest, EveryModuleTakesTheSetsOfDebug) {
  ASSERT_TRUE(Manager()->RegSubModuleInfo("net", BitsOf({4}), BitsOf({0}), false));
  ASSERT_TRUE(Manager()->RegSubModuleInfo("web", BitsOf({5}), BitsOf({0}), false));

  bool const done = Manager()->SetAllModuleInfo(BitsOf({20}), BitsOf({21}), true);

  EXPECT_TRUE(done);
  EXPECT_EQ(SetsOf("net"), kDebugSets);
  EXPECT_EQ(SetsOf("web"), kDebugSets);
  EXPECT_EQ(SetsOf("debug"), kDebugSets);
}

TEST_F(RegistryWithoutDebugTest, TheSetsOfDebugCannotBeGivenWhenItIsAbsent) {
  ASSERT_TRUE(Manager()->RegSubModuleInfo("net", BitsOf({4}), BitsOf({0}), false));

  EXPECT_FALSE(Manager()->SetAllModuleInfo(BitsOf({20}), BitsOf({21}), true));
  EXPECT_EQ(SetsOf("net"), (Sets{BitsOf({4}), BitsOf({0})}));
  EXPECT_TRUE(Manager()->SetAllModuleInfo(BitsOf({20}), BitsOf({21}), false));
  EXPECT_EQ(SetsOf("net"), (Sets{BitsOf({20}), BitsOf({21})}));
}

TEST_F(RegistryWithoutDebugTest, SettingAllOfNoModulesIsDone) {
  EXPECT_TRUE(Manager()->SetAllModuleInfo(BitsOf({20}), BitsOf({21}), false));
}

// --- one bit ---

TEST_F(RegistryTest, TheEmptyModuleStandsForDebugWhenABitIsSet) {
  EXPECT_TRUE(Manager()->SetLogLevel("", VeltLogLevel{4}, true));
  EXPECT_TRUE(Manager()->SetLogOutput("", VeltOutputDirection{0}, true));

  EXPECT_EQ(SetsOf("debug"), (Sets{BitsOf({0, 1, 2, 4}), BitsOf({0, 1})}));
}

TEST_F(RegistryTest, ABitOfAnUnknownModuleIsRefused) {
  EXPECT_FALSE(Manager()->SetLogLevel("net", VeltLogLevel{4}, true));
  EXPECT_FALSE(Manager()->SetLogOutput("net", VeltOutputDirection{0}, true));
  EXPECT_FALSE(Manager()->SetLogLevel("net", VeltLogLevel{32}, true)) << "nothing to throw";
}

TEST_F(RegistryTest, IndicesOutsideTheSetAreRefusedAndThirtyTwoThrows) {
  for (int const index : {33, 99, 2147483647, -1, -2147483647 - 1}) {
    SCOPED_TRACE(index);
    EXPECT_FALSE(Manager()->SetLogLevel("debug", VeltLogLevel{index}, true));
    EXPECT_FALSE(Manager()->SetLogLevel("", VeltLogLevel{index}, false));
    EXPECT_FALSE(Manager()->SetLogOutput("debug", VeltOutputDirection{index}, true));
  }
  EXPECT_THROW(Manager()->SetLogLevel("debug", VeltLogLevel{32}, true), std::out_of_range);
  EXPECT_THROW(Manager()->SetLogLevel("", VeltLogLevel{32}, false), std::out_of_range);
  EXPECT_THROW(Manager()->SetLogOutput("debug", VeltOutputDirection{32}, true), std::out_of_range);
  EXPECT_EQ(SetsOf("debug"), kDebugSets);
}

TEST_F(RegistryTest, EveryLockIsFreeAfterTheRangeError) {
  EXPECT_THROW(Manager()->SetLogLevel("debug", VeltLogLevel{32}, true), std::out_of_range);
  EXPECT_THROW(Manager()->SetLogOutput("debug", VeltOutputDirection{32}, true), std::out_of_range);
  bool done = false;

  std::thread([&] {
    done = Manager()->SetLogLevel("debug", VeltLogLevel{31}, true) &&
           Manager()->SetLogOutput("debug", VeltOutputDirection{31}, true);
  }).join();

  EXPECT_TRUE(done);
}

// --- threads ---

TEST_F(RegistryTest, ReadersSeeWholeSetsWhileWritersReplaceThem) {
  ASSERT_TRUE(Manager()->RegSubModuleInfo("net", BitsOf({}), BitsOf({}), false));
  std::atomic<bool> stop{false};
  std::atomic<int> torn{0};
  std::vector<std::thread> threads;
  threads.reserve(3);
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      while (!stop) torn += SeesWholeSets("net") ? 0 : 1;
    });
  }

  for (int round = 0; round < 300; ++round) {
    Bits const value(round % 2 == 0 ? 0xFFFFFFFFU : 0U);
    EXPECT_TRUE(Manager()->RegSubModuleInfo("net", value, value, false));
    EXPECT_TRUE(Manager()->RegSubModuleInfo("m" + std::to_string(round), value, value, true));
  }
  stop = true;
  for (auto& thread : threads) thread.join();

  EXPECT_EQ(torn, 0);
}

TEST_F(RegistryTest, BusyReadersDoNotKeepALevelChangeOut) {
  std::atomic<bool> stop{false};
  std::vector<std::thread> readers;
  readers.reserve(8);
  for (int i = 0; i < 8; ++i) {
    readers.emplace_back([&] {
      Bits levels;
      Bits outputs;
      while (!stop) Manager()->GetSubModuleInfo("debug", levels, outputs);
    });
  }
  auto const begin = std::chrono::steady_clock::now();

  for (int round = 0; round < 20; ++round) {
    EXPECT_TRUE(Manager()->SetLogLevel("debug", VeltLogLevel{20}, round % 2 == 0));
  }
  auto const took = std::chrono::steady_clock::now() - begin;
  stop = true;
  for (auto& reader : readers) reader.join();

  EXPECT_LT(took, std::chrono::seconds(30)) << "readers kept the writer out";
}

// --- modules in number ---

TEST_F(RegistryTest, TenThousandModulesCanBeRegisteredAndFound) {
  for (int i = 0; i < 10'000; ++i) {
    ASSERT_TRUE(Manager()->RegSubModuleInfo("m" + std::to_string(i), BitsOf({4}), BitsOf({0}), false));
  }
  ModuleSets modules;

  EXPECT_TRUE(Manager()->GetAllModuleInfo(modules));
  EXPECT_EQ(modules.size(), 10'001U);
  EXPECT_EQ(SetsOf("m9999"), (Sets{BitsOf({4}), BitsOf({0})}));
}

}  // namespace
}  // namespace velt::test
