// What a thread remembers of the modules' sets.
#include "debug/manager/sets_cache.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace velt::test {
namespace {

KnownSets Sets(unsigned levels, unsigned outputs) { return {true, levels, outputs}; }

TEST(SetsCacheTest, NothingIsKnownAtFirst) {
  EXPECT_EQ(FindSets("net"), nullptr);
  EXPECT_EQ(FindSets(""), nullptr);
}

TEST(SetsCacheTest, WhatWasStoredIsFound) {
  StoreSets("net", SetsGeneration(), Sets(5, 2));

  KnownSets const* const found = FindSets("net");

  ASSERT_NE(found, nullptr);
  EXPECT_TRUE(found->known);
  EXPECT_EQ(found->levels.to_ulong(), 5U);
  EXPECT_EQ(found->outputs.to_ulong(), 2U);
}

TEST(SetsCacheTest, AModuleThatIsNotRegisteredIsRememberedToo) {
  StoreSets("nobody", SetsGeneration(), {false, 0, 0});

  ASSERT_NE(FindSets("nobody"), nullptr);
  EXPECT_FALSE(FindSets("nobody")->known);
}

TEST(SetsCacheTest, AChangeMakesEverythingForgotten) {
  StoreSets("net", SetsGeneration(), Sets(5, 2));
  StoreSets("db", SetsGeneration(), Sets(5, 2));

  ForgetSets();

  EXPECT_EQ(FindSets("net"), nullptr);
  EXPECT_EQ(FindSets("db"), nullptr);
}

TEST(SetsCacheTest, WhatWasFoundBeforeAChangeIsNotBelievedAfterIt) {
  std::uint64_t const before = SetsGeneration();
  ForgetSets();

  StoreSets("net", before, Sets(5, 2));

  EXPECT_EQ(FindSets("net"), nullptr);
}

TEST(SetsCacheTest, AnotherThreadRemembersForItself) {
  StoreSets("net", SetsGeneration(), Sets(5, 2));

  std::thread([] { EXPECT_EQ(FindSets("net"), nullptr); }).join();
}

TEST(SetsCacheTest, AChangeOfAnotherThreadIsSeen) {
  StoreSets("net", SetsGeneration(), Sets(5, 2));

  std::thread([] { ForgetSets(); }).join();

  EXPECT_EQ(FindSets("net"), nullptr);
}

TEST(SetsCacheTest, NamesThatDifferInOneCharacterAnywhereAreTwoModules) {
  std::string const name = "a_module_with_a_name_of_some_length";
  StoreSets(name, SetsGeneration(), Sets(5, 2));

  for (std::size_t at = 0; at < name.size(); ++at) {
    std::string other = name;
    other[at] = '#';
    EXPECT_EQ(FindSets(other), nullptr) << other;
  }
  EXPECT_EQ(FindSets(name + "x"), nullptr);
  EXPECT_EQ(FindSets(name.substr(1)), nullptr);
}

TEST(SetsCacheTest, NamesOf39CharactersAreRememberedAndLongerOnesAreNot) {
  std::string const longest(39, 'n');
  std::string const longer(40, 'n');
  StoreSets(longest, SetsGeneration(), Sets(5, 2));
  StoreSets(longer, SetsGeneration(), Sets(5, 2));

  EXPECT_NE(FindSets(longest), nullptr);
  EXPECT_EQ(FindSets(longer), nullptr);
}

// The levels that are remembered for the module of that number; its number when there are none.
unsigned long LevelsOf(unsigned number) {
  KnownSets const* const found = FindSets("module" + std::to_string(number));
  return found == nullptr ? number : found->levels.to_ulong();
}

TEST(SetsCacheTest, ManyModulesNeverGetEachOthersSets) {
  for (unsigned i = 0; i < 2000; ++i) {
    unsigned const number = i % 1000;
    EXPECT_EQ(LevelsOf(number), number);

    StoreSets("module" + std::to_string(number), SetsGeneration(), Sets(number, 2));

    ASSERT_NE(FindSets("module" + std::to_string(number)), nullptr);
    EXPECT_EQ(LevelsOf(number), number);
  }
}

}  // namespace
}  // namespace velt::test
