// What a thread remembers of the modules' sets.
#include "debug/manager/sets_cache.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <optional>
#include <string>
#include <thread>

#include "tests/support/process.h"

namespace velt::test {
namespace {

// The sets that this thread remembers of `module`, if any.
std::optional<KnownSets> Find(std::string const& module) {
  KnownSets sets;
  return FindSets(module, sets) ? std::optional<KnownSets>(sets) : std::nullopt;
}

KnownSets Sets(unsigned levels, unsigned outputs) { return {true, levels, outputs}; }

TEST(SetsCacheTest, NothingIsKnownAtFirst) {
  EXPECT_FALSE(Find("net"));
  EXPECT_FALSE(Find(""));
}

TEST(SetsCacheTest, WhatWasStoredIsFound) {
  StoreSets("net", SetsGeneration(), Sets(5, 2));

  std::optional<KnownSets> const found = Find("net");

  ASSERT_TRUE(found);
  EXPECT_TRUE(found->known);
  EXPECT_EQ(found->levels.to_ulong(), 5U);
  EXPECT_EQ(found->outputs.to_ulong(), 2U);
}

TEST(SetsCacheTest, AModuleThatIsNotRegisteredIsRememberedToo) {
  StoreSets("nobody", SetsGeneration(), {false, 0, 0});

  ASSERT_TRUE(Find("nobody"));
  EXPECT_FALSE(Find("nobody")->known);
}

TEST(SetsCacheTest, AChangeMakesEverythingForgotten) {
  StoreSets("net", SetsGeneration(), Sets(5, 2));
  StoreSets("db", SetsGeneration(), Sets(5, 2));

  ForgetSets();

  EXPECT_FALSE(Find("net"));
  EXPECT_FALSE(Find("db"));
}

TEST(SetsCacheTest, WhatWasFoundBeforeAChangeIsNotBelievedAfterIt) {
  std::uint64_t const before = SetsGeneration();
  ForgetSets();

  StoreSets("net", before, Sets(5, 2));

  EXPECT_FALSE(Find("net"));
}

TEST(SetsCacheTest, AnotherThreadRemembersForItself) {
  StoreSets("net", SetsGeneration(), Sets(5, 2));

  std::thread([] { EXPECT_FALSE(Find("net")); }).join();
}

TEST(SetsCacheTest, AChangeOfAnotherThreadIsSeen) {
  StoreSets("net", SetsGeneration(), Sets(5, 2));

  std::thread([] { ForgetSets(); }).join();

  EXPECT_FALSE(Find("net"));
}

bool remembered_at_the_end = true;

void StoreAtTheEnd(void* /*value*/) {
  StoreSets("net", SetsGeneration(), Sets(5, 2));
  remembered_at_the_end = Find("net").has_value();
}

TEST(SetsCacheTest, AThreadThatAsksInItsLastDestructorRemembersNothing) {
  // The library's key is made before the next one, and cleaned up before it.
  StoreSets("net", SetsGeneration(), Sets(5, 2));
  pthread_key_t key = 0;
  ASSERT_EQ(pthread_key_create(&key, &StoreAtTheEnd), 0);

  std::thread([key] {
    StoreSets("net", SetsGeneration(), Sets(5, 2));
    pthread_setspecific(key, &remembered_at_the_end);
  }).join();

  EXPECT_FALSE(remembered_at_the_end);
  pthread_key_delete(key);
}

TEST(SetsCacheTest, AForkedChildGoesOnWithWhatItsThreadRemembered) {
  StoreSets("net", SetsGeneration(), Sets(5, 2));

  Outcome const child = RunInChild([] {
    if (!Find("net")) return 1;
    StoreSets("db", SetsGeneration(), Sets(5, 2));
    return Find("db") ? 0 : 2;
  });

  EXPECT_EQ(child.exit_code, 0);
}

TEST(SetsCacheTest, NamesThatDifferInOneCharacterAnywhereAreTwoModules) {
  std::string const name = "a_module_with_a_name_of_some_length";
  StoreSets(name, SetsGeneration(), Sets(5, 2));

  for (std::size_t at = 0; at < name.size(); ++at) {
    std::string other = name;
    other[at] = '#';
    EXPECT_FALSE(Find(other)) << other;
  }
  EXPECT_FALSE(Find(name + "x"));
  EXPECT_FALSE(Find(name.substr(1)));
}

TEST(SetsCacheTest, NamesOf46CharactersAreRememberedAndLongerOnesAreNot) {
  std::string const longest(46, 'n');
  std::string const longer(47, 'n');
  StoreSets(longest, SetsGeneration(), Sets(5, 2));
  StoreSets(longer, SetsGeneration(), Sets(5, 2));

  EXPECT_TRUE(Find(longest));
  EXPECT_FALSE(Find(longer));
}

// The levels that are remembered for the module of that number; its number when there are none.
unsigned long LevelsOf(unsigned number) {
  std::optional<KnownSets> const found = Find("module" + std::to_string(number));
  return !found ? number : found->levels.to_ulong();
}

TEST(SetsCacheTest, ManyModulesNeverGetEachOthersSets) {
  for (unsigned i = 0; i < 2000; ++i) {
    unsigned const number = i % 1000;
    EXPECT_EQ(LevelsOf(number), number);

    StoreSets("module" + std::to_string(number), SetsGeneration(), Sets(number, 2));

    ASSERT_TRUE(Find("module" + std::to_string(number)));
    EXPECT_EQ(LevelsOf(number), number);
  }
}

}  // namespace
}  // namespace velt::test
