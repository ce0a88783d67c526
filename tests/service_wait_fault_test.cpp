// A service's wait that finds no memory: the caller is told, nothing stays behind, and the next call makes
// it.
#include <gtest/gtest.h>

#include <new>

#include "velt/process.h"

#include "tests/support/failing_allocations.h"

namespace velt::test {
namespace {

TEST(ServiceWaitFaultTest, WhicheverAllocationFailsTheNextCallMakesTheInstance) {
  int threw = 0;
  bool needed = true;
  for (int nth = 1; needed; ++nth) {
    ASSERT_LT(nth, 20);
    BaseUtilInternal* made = nullptr;
    {
      FailingAllocation const failing(nth);
      try {
        made = BaseUtilInternal::Instance();
      } catch (std::bad_alloc const&) {
        ++threw;
      }
      needed = failing.Failed();
    }
    BaseUtilInternal* const after = BaseUtilInternal::Instance();

    EXPECT_NE(after, nullptr) << nth;
    EXPECT_EQ(needed, made == nullptr) << nth;
    if (made != nullptr) EXPECT_EQ(after, made) << nth;
    BaseUtilInternal::Destroy();
  }

  EXPECT_EQ(threw, 3) << "the object, its lock and its condition";
}

}  // namespace
}  // namespace velt::test
