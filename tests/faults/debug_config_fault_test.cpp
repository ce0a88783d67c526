// The debug configuration, read while memory runs out.
#include <gtest/gtest.h>

#include <bitset>
#include <new>

#include "velt/manager.h"

#include "tests/support/failing_allocations.h"
#include "tests/support/files.h"

namespace velt::test {
namespace {

constexpr int kMostAllocations = 500;

// Calls GetCfgItem with the n-th allocation failing. Returns whether that many were made.
bool ReadWithout(int nth, std::string const& file, VeltDebugMgr::ModuleSets& modules) {
  int numbers[5] = {};
  VeltDebugMgr& manager = *VeltDebugMgr::Instance();
  FailingAllocation const failing(nth);
  try {
    manager.GetCfgItem(file, numbers[0], numbers[1], numbers[2], numbers[3], numbers[4], modules);
  } catch (std::bad_alloc const&) {
    return true;
  }
  return failing.Failed();
}

TEST(DebugConfigFaultTest, TheCallersModulesStayWhereverMemoryRunsOut) {
  ScratchDir const dir;
  std::string const file = dir / "debug.cfg";
  WriteFile(file, "a_module_with_a_long_name_level = 01\nnet_output = 1\n");
  VeltDebugMgr::ModuleSets::mapped_type const mine(0x5, 0x6);

  int nth = 1;
  for (bool failed = true; failed && nth < kMostAllocations; ++nth) {
    VeltDebugMgr::ModuleSets modules{{"mine", mine}};
    failed = ReadWithout(nth, file, modules);

    EXPECT_EQ(modules.count("mine"), 1U) << nth;
    EXPECT_EQ(modules["mine"], mine) << nth;
  }

  EXPECT_GT(nth, 10) << "hardly any allocation failed";
  EXPECT_LT(nth, kMostAllocations);
  VeltDebugMgr::Destroy();
}

}  // namespace
}  // namespace velt::test
