// The sets that a thread remembers: without memory, and freed at the thread's end.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "debug/manager/sets_cache.h"
#include "tests/support/failing_allocations.h"

namespace velt::test {
namespace {

bool Remembers(std::string const& module) {
  KnownSets sets;
  return FindSets(module, sets);
}

TEST(SetsCacheFaultTest, WithoutMemoryNothingIsRememberedAndTheNextSetsAre) {
  {
    FailingAllocation const failing(1);
    StoreSets("net", SetsGeneration(), {true, 5, 2});
    ASSERT_TRUE(failing.Failed());
  }
  EXPECT_FALSE(Remembers("net"));

  StoreSets("net", SetsGeneration(), {true, 5, 2});

  EXPECT_TRUE(Remembers("net"));
}

TEST(SetsCacheFaultTest, AThreadTakesMemoryWhenItRemembersAndNotBefore) {
  EXPECT_FALSE(Remembers("net"));
  EXPECT_EQ(LiveAlignedAllocations(), 0);

  StoreSets("net", SetsGeneration(), {true, 5, 2});
  StoreSets("db", SetsGeneration(), {true, 5, 2});

  EXPECT_EQ(LiveAlignedAllocations(), 1);
}

TEST(SetsCacheFaultTest, WhatAThreadRememberedGoesWithIt) {
  for (int i = 0; i < 10; ++i) {
    std::thread([] { StoreSets("net", SetsGeneration(), {true, 5, 2}); }).join();
  }

  EXPECT_EQ(LiveAlignedAllocations(), 0);
}

}  // namespace
}  // namespace velt::test
