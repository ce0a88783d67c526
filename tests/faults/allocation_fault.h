// What the scenarios of short memory share: the n-th allocation that fails, and how the calls end.
#ifndef VELT_TESTS_FAULTS_ALLOCATION_FAULT_H
#define VELT_TESTS_FAULTS_ALLOCATION_FAULT_H

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <new>
#include <ostream>
#include <string>

#include "velt/channel.h"

#include "tests/faults/scale.h"
#include "tests/faults/shim/shim.h"
#include "tests/support/files.h"
#include "tests/support/manager_host.h"

namespace velt::faults {

inline constexpr VeltLogLevel kLevel3{3};

// Whose allocations count. A test of the caller counts the caller's only: otherwise an output thread might
// meet the failure.
enum class Of { kCaller, kProcess };

// Whether the n-th fails alone, or every one after it as well.
enum class Times { kOnce, kFromThere };

// While it lives, the n-th allocation from now on fails.
class FailingAllocation {
 public:
  FailingAllocation(unsigned nth, Of whose, Times times) {
    shim::Rule rule;
    // A sanitizer replaces malloc itself; there operator new is made to fail.
    rule.call = kSanitized ? shim::Call::kNew : shim::Call::kMalloc;
    rule.first = nth;
    rule.count = times == Times::kOnce ? 1 : 0;
    rule.error = ENOMEM;
    rule.own_thread = whose == Of::kCaller;
    rule_ = shim::AddRule(rule);
  }
  ~FailingAllocation() { shim::ClearRules(); }
  FailingAllocation(FailingAllocation const&) = delete;
  FailingAllocation& operator=(FailingAllocation const&) = delete;

  bool Happened() const { return shim::AppliedCalls(rule_) != 0; }

 private:
  int rule_;
};

enum class End { kTrue, kFalse, kThrown };

struct Tally {
  long long points = 0;     // calls in which an allocation failed
  long long untouched = 0;  // calls that needed fewer
  long long thrown = 0;
  long long answered_true = 0;
  long long answered_false = 0;

  void Add(End end, bool happened) {
    ++(happened ? points : untouched);
    thrown += end == End::kThrown ? 1 : 0;
    answered_true += end == End::kTrue ? 1 : 0;
    answered_false += end == End::kFalse ? 1 : 0;
  }
  void Print() const {
    Figure({{"failed_allocations", points},
            {"untouched", untouched},
            {"bad_alloc", thrown},
            {"true", answered_true},
            {"false", answered_false}});
  }
};

// How `operation` ends when its n-th allocation fails.
template <typename Operation>
End FailAt(unsigned nth, Of whose, Tally& tally, Operation const& operation, Times times = Times::kOnce) {
  FailingAllocation const failing(nth, whose, times);
  End end = End::kThrown;
  try {
    end = operation() ? End::kTrue : End::kFalse;
  } catch (std::bad_alloc const&) {
    end = End::kThrown;
  }
  tally.Add(end, failing.Happened());
  return end;
}

class Value : public AsnType {
 public:
  AsnType* Clone() const override { return new Value(*this); }
  void Print(std::ostream& out, int, int) const override { out << text_; }

 private:
  std::string text_ = std::string(100, 'v');
};

class AllocationFaultTest : public ::testing::Test {
 protected:
  // The records of all files of a family. A channel that failed and the one after it may have made files of
  // the same name: one is then the archive and the other the log.
  std::size_t RecordsIn(std::string const& prefix) const {
    std::size_t count = 0;
    for (auto const& name : test::ExactFamily(host_.LogDir(), prefix)) {
      std::string const path = host_.LogDir() + "/" + name;
      count += test::Bodies(name.back() == 'z' ? test::ReadGzip(path) : test::ReadFile(path)).size();
    }
    return count;
  }
  // Calls without a record: they returned false, or threw.
  std::size_t Refused() const { return static_cast<std::size_t>(tally_.thrown + tally_.answered_false); }
  void StartManager() {
    ASSERT_TRUE(host_.Init());
    ASSERT_TRUE(host_.WaitForFile());
  }

  test::ManagerHost const host_{
      "nMaxFileNum = 100\nnFiltLogBufSize = 5\nnet_level = 1111\nnet_output = 01\ndebug_level = 1111\n"
      "debug_output = 01\n"};
  std::string const long_text_ = std::string(400, 't');
  std::string const long_module_ = std::string(60, 'm');
  Tally tally_;
};

}  // namespace velt::faults

#endif
