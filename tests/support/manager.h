// The manager under a short name, and the levels that tests trace with.
#ifndef VELT_TESTS_SUPPORT_MANAGER_H
#define VELT_TESTS_SUPPORT_MANAGER_H

#include "velt/manager.h"

namespace velt::test {

inline constexpr VeltLogLevel kLevel0{0};
inline constexpr VeltLogLevel kLevel1{1};
inline constexpr VeltLogLevel kLevel2{2};
inline constexpr VeltLogLevel kLevel3{3};
inline constexpr VeltLogLevel kFiltered{9};  // in the set of no module of these tests

inline VeltDebugMgr* Manager() { return VeltDebugMgr::Instance(); }

}  // namespace velt::test

#endif
