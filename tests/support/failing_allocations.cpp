#include "tests/support/failing_allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

thread_local int calls_to_failure = 0;  // 0: none fails
thread_local bool failed = false;
std::atomic<long> live_aligned{0};
thread_local void const* watched = nullptr;
thread_local int watched_deletions = 0;

bool Fails() {
  if (calls_to_failure == 0 || --calls_to_failure != 0) return false;
  failed = true;
  return true;
}

void* Allocate(std::size_t size) noexcept { return Fails() ? nullptr : std::malloc(size == 0 ? 1 : size); }

void* AllocateAligned(std::size_t size, std::align_val_t alignment) noexcept {
  void* memory = nullptr;
  if (Fails() || posix_memalign(&memory, static_cast<std::size_t>(alignment), size) != 0) return nullptr;
  ++live_aligned;
  return memory;
}

void FreeAligned(void* memory) noexcept {
  if (memory != nullptr) --live_aligned;
  std::free(memory);
}

void* OrThrow(void* memory) {
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

namespace velt::test {

FailingAllocation::FailingAllocation(int nth) {
  failed = false;
  calls_to_failure = nth;
}

FailingAllocation::~FailingAllocation() { calls_to_failure = 0; }

bool FailingAllocation::Failed() const { return failed; }

WatchedArray::WatchedArray(void const* array) {
  watched = array;
  watched_deletions = 0;
}

WatchedArray::~WatchedArray() { watched = nullptr; }

int WatchedArray::Deletions() const { return watched_deletions; }

long LiveAlignedAllocations() { return live_aligned.load(); }

}  // namespace velt::test

void* operator new(std::size_t size) { return OrThrow(Allocate(size)); }
void* operator new[](std::size_t size) { return OrThrow(Allocate(size)); }
void* operator new(std::size_t size, std::nothrow_t const& /*tag*/) noexcept { return Allocate(size); }
void* operator new[](std::size_t size, std::nothrow_t const& /*tag*/) noexcept { return Allocate(size); }
void* operator new(std::size_t size, std::align_val_t alignment) {
  return OrThrow(AllocateAligned(size, alignment));
}
void* operator new(std::size_t size, std::align_val_t alignment, std::nothrow_t const& /*tag*/) noexcept {
  return AllocateAligned(size, alignment);
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept {
  if (memory != nullptr && memory == watched) {
    ++watched_deletions;
  } else {
    std::free(memory);
  }
}
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
void operator delete(void* memory, std::nothrow_t const& /*tag*/) noexcept { std::free(memory); }
void operator delete[](void* memory, std::nothrow_t const& /*tag*/) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept { FreeAligned(memory); }
void operator delete(void* memory, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
  FreeAligned(memory);
}
