// A service wait without memory: the caller gets an error, nothing leaks, and the next call makes the object.
#include <gtest/gtest.h>

#include <new>

#include "velt/process.h"

#include "tests/support/failing_allocations.h"

namespace velt::test {
namespace {

struct Attempt {
  BaseUtilInternal* made;  // null when an allocation failed
  bool failed;
};

Attempt AskWithout(int nth_allocation) {
  FailingAllocation const failing(nth_allocation);
  try {
    return {BaseUtilInternal::Instance(), failing.Failed()};
  } catch (std::bad_alloc const&) {
    return {nullptr, failing.Failed()};
  }
}

TEST(ServiceWaitFaultTest, WhicheverAllocationFailsTheNextCallMakesTheInstance) {
  for (int const nth : {1, 2, 3, 4}) {  // the object, its state, its lock and its condition
    Attempt const attempt = AskWithout(nth);
    BaseUtilInternal* const after = BaseUtilInternal::Instance();

    EXPECT_TRUE(attempt.failed) << nth;
    EXPECT_EQ(attempt.made, nullptr) << nth;
    EXPECT_NE(after, nullptr) << nth;
    BaseUtilInternal::Destroy();
  }
}

TEST(ServiceWaitFaultTest, TheInstanceNeedsFourAllocations) {
  Attempt const attempt = AskWithout(5);

  EXPECT_FALSE(attempt.failed);
  EXPECT_NE(attempt.made, nullptr);
  BaseUtilInternal::Destroy();
}

}  // namespace
}  // namespace velt::test
