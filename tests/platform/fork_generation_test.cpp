#include "platform/fork_generation.h"

#include <thread>

#include <gtest/gtest.h>

#include "tests/support/process.h"

namespace velt::test {
namespace {

TEST(ForkGenerationTest, StaysTheSameInOneProcess) {
  std::uint32_t const before = ForkGeneration();
  std::uint32_t elsewhere = before + 1;

  std::thread([&elsewhere] { elsewhere = ForkGeneration(); }).join();

  EXPECT_EQ(ForkGeneration(), before);
  EXPECT_EQ(elsewhere, before);
}

TEST(ForkGenerationTest, IsOneHigherInAChildAndUnchangedInTheParent) {
  std::uint32_t const parent = ForkGeneration();

  Outcome const child = RunInChild([parent] { return ForkGeneration() == parent + 1 ? 0 : 1; });

  EXPECT_EQ(child.exit_code, 0);
  EXPECT_EQ(ForkGeneration(), parent);
}

TEST(ForkGenerationTest, SiblingsHaveTheSameNumber) {
  std::uint32_t const parent = ForkGeneration();
  auto const is_one_higher = [parent] { return ForkGeneration() == parent + 1 ? 0 : 1; };

  Outcome const first = RunInChild(is_one_higher);
  Outcome const second = RunInChild(is_one_higher);

  EXPECT_EQ(first.exit_code, 0);
  EXPECT_EQ(second.exit_code, 0);
}

TEST(ForkGenerationTest, IsTwoHigherInAGrandchild) {
  std::uint32_t const parent = ForkGeneration();

  Outcome const child = RunInChild([parent] {
    Outcome const grandchild = RunInChild([parent] { return ForkGeneration() == parent + 2 ? 0 : 1; });
    if (grandchild.exit_code != 0) return 1;
    return ForkGeneration() == parent + 1 ? 0 : 2;
  });

  EXPECT_EQ(child.exit_code, 0);
}

}  // namespace
}  // namespace velt::test
