// The tools' table of limits against the library's own bounds, which it keeps to itself.
#include <string>

#include <gtest/gtest.h>

#include "velt/manager.h"

#include "tests/support/manager_host.h"
#include "tools/limit_ranges.h"

namespace velt::test {

// Private members of the manager: an explicit instantiation may name what other code may not.
namespace reach {

template <int Index>
struct Number {};
template <int Index, int VeltDebugMgr::*Member>
struct Private {
  friend int VeltDebugMgr::*Get(Number<Index> /*which*/) { return Member; }
};
int VeltDebugMgr::*Get(Number<0> which);
int VeltDebugMgr::*Get(Number<1> which);
int VeltDebugMgr::*Get(Number<2> which);
int VeltDebugMgr::*Get(Number<3> which);
int VeltDebugMgr::*Get(Number<4> which);
template struct Private<0, &VeltDebugMgr::m_nFiltLogBufSize>;
template struct Private<1, &VeltDebugMgr::m_nMaxFileNum>;
template struct Private<2, &VeltDebugMgr::m_nEachFileMaxSize>;
template struct Private<3, &VeltDebugMgr::m_nEachProcessMaxZipNum>;
template struct Private<4, &VeltDebugMgr::m_nZipFileIncludeFileNum>;

}  // namespace reach

namespace {

using tools::kLimitRanges;
using tools::Limit;

int HeldByManager(Limit limit) {
  int VeltDebugMgr::*const members[] = {Get(reach::Number<0>{}), Get(reach::Number<1>{}),
                                        Get(reach::Number<2>{}), Get(reach::Number<3>{}),
                                        Get(reach::Number<4>{})};
  return VeltDebugMgr::Instance()->*members[limit];
}

// What the manager works with when the file has `number`, in the unit of the file.
int AfterInit(Limit limit, long number, std::string const& name = "host_") {
  ManagerHost const host(std::string(*kLimitRanges[limit].key) + " = " + std::to_string(number) + "\n");
  if (!host.Init(name, true)) return -1;
  return HeldByManager(limit);
}

class LimitRangesTest : public testing::TestWithParam<Limit> {};

TEST_P(LimitRangesTest, TheLibraryKeepsBothEndsAndReplacesWhatIsBeyondThem) {
  tools::LimitRange const& range = kLimitRanges[GetParam()];
  int const unit = GetParam() == tools::kFileBytes ? 1048576 : 1;  // the file has megabytes there

  EXPECT_EQ(AfterInit(GetParam(), range.low / unit), range.low);
  EXPECT_EQ(AfterInit(GetParam(), range.high / unit), range.high);
  EXPECT_EQ(AfterInit(GetParam(), range.low / unit - 1), range.otherwise);
  EXPECT_EQ(AfterInit(GetParam(), range.high / unit + 1), range.otherwise);
}

TEST_P(LimitRangesTest, TheToolsReplaceTheSameNumbers) {
  tools::LimitRange const& range = kLimitRanges[GetParam()];

  EXPECT_EQ(tools::Bounded(GetParam(), range.low), range.low);
  EXPECT_EQ(tools::Bounded(GetParam(), range.high), range.high);
  EXPECT_EQ(tools::Bounded(GetParam(), range.low - 1), range.otherwise);
  EXPECT_EQ(tools::Bounded(GetParam(), range.high + 1), range.otherwise);
}

INSTANTIATE_TEST_SUITE_P(Each, LimitRangesTest,
                         testing::Values(tools::kRingRecords, tools::kChannels, tools::kFileBytes,
                                         tools::kArchives, tools::kFilesPerArchive));

TEST(LimitRangesFactorTest, TheHostThatKeepsFiveTimesTheArchivesIsTheSameForBoth) {
  EXPECT_EQ(AfterInit(tools::kArchives, 7, "VELTMrb_p2_"), 7 * tools::ArchiveFactor("VELTMrb_p2_"));
  EXPECT_EQ(AfterInit(tools::kArchives, 7, "VELTMrb_p3_"), 7 * tools::ArchiveFactor("VELTMrb_p3_"));
  EXPECT_EQ(tools::ArchiveFactor("VELTMrb_p2_"), 5);
}

}  // namespace
}  // namespace velt::test
