// Wrappers of allocation functions. With a sanitizer, which replaces malloc itself, only of operator new.
#include <cerrno>
#include <cstdlib>
#include <new>

#include "tests/faults/sanitizers.h"
#include "tests/faults/shim/next.h"
#include "tests/faults/shim/shim.h"

using velt::shim::Call;

namespace {

bool Fails(Call call) {
  if (!velt::shim::Watched(call)) return false;
  velt::shim::Verdict const verdict = velt::shim::Ask(call, nullptr);
  if (verdict.fail) errno = ENOMEM;
  return verdict.fail;
}

}  // namespace

#if !VELT_ADDRESS_SANITIZER && !VELT_THREAD_SANITIZER
// Other names of the C library's functions: looking the usual ones up at run time would allocate.
// NOLINTBEGIN(bugprone-reserved-identifier): names that the C library gives
extern "C" void* __libc_malloc(size_t size);
extern "C" void* __libc_calloc(size_t count, size_t size);
extern "C" void* __libc_realloc(void* memory, size_t size);
// NOLINTEND(bugprone-reserved-identifier)

VELT_SHIM_EXPORT void* malloc(size_t size) noexcept {
  return Fails(Call::kMalloc) ? nullptr : __libc_malloc(size);
}

VELT_SHIM_EXPORT void* calloc(size_t count, size_t size) noexcept {
  return Fails(Call::kMalloc) ? nullptr : __libc_calloc(count, size);
}

VELT_SHIM_EXPORT void* realloc(void* memory, size_t size) noexcept {
  return Fails(Call::kMalloc) ? nullptr : __libc_realloc(memory, size);
}
#endif

void* operator new(std::size_t size) {
  void* const memory = Fails(Call::kNew) ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void* operator new(std::size_t size, std::nothrow_t const& /*unused*/) noexcept {
  return Fails(Call::kNew) ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void* operator new[](std::size_t size) { return operator new(size); }
void* operator new[](std::size_t size, std::nothrow_t const& unused) noexcept {
  return operator new(size, unused);
}

void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
