// Allocations that fail on demand, in every form of operator new: those for over-aligned types too. Linked
// into the tests that ask for it; it replaces the operators for the whole program.
#ifndef VELT_TESTS_SUPPORT_FAILING_ALLOCATIONS_H
#define VELT_TESTS_SUPPORT_FAILING_ALLOCATIONS_H

namespace velt::test {

// Makes one allocation of this thread fail while it lives: the `nth` from now on, counted from 1.
class FailingAllocation {
 public:
  explicit FailingAllocation(int nth);
  ~FailingAllocation();
  FailingAllocation(FailingAllocation const&) = delete;
  FailingAllocation& operator=(FailingAllocation const&) = delete;

  bool Failed() const;  // whether that allocation was made
};

// Memory that operator new[] did not allocate. While this lives, operator delete[] notes a call with it and
// frees nothing.
class WatchedArray {
 public:
  explicit WatchedArray(void const* array);
  ~WatchedArray();
  WatchedArray(WatchedArray const&) = delete;
  WatchedArray& operator=(WatchedArray const&) = delete;

  int Deletions() const;
};

// Over-aligned allocations of all threads that are not freed yet: record nodes, in a test that makes no
// others.
long LiveAlignedAllocations();

}  // namespace velt::test

#endif
