#include "platform/bounded.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "platform/plain_vsnprintf.h"

namespace velt {
namespace {

// A larger size is taken for a negative number that was converted to unsigned.
constexpr std::size_t kLargestSize = SIZE_MAX / 2;

bool Overlap(char const* a, std::size_t a_size, char const* b, std::size_t b_size) {
  auto const a_begin = reinterpret_cast<std::uintptr_t>(a);
  auto const b_begin = reinterpret_cast<std::uintptr_t>(b);
  return a_begin < b_begin + b_size && b_begin < a_begin + a_size;
}

int ZeroAndFail(void* dst, std::size_t capacity, int error) {
  std::memset(dst, 0, capacity);
  return error;
}

int EmptyAndFail(char* dst, int error) {
  *dst = '\0';
  return error;
}

}  // namespace

int memcpy_s(void* dst, std::size_t capacity, void const* src, std::size_t count) {
  if (dst == nullptr || capacity > kLargestSize) return EINVAL;
  if (src == nullptr) return ZeroAndFail(dst, capacity, EINVAL);
  if (count > capacity) return ZeroAndFail(dst, capacity, ERANGE);
  if (Overlap(static_cast<char*>(dst), count, static_cast<char const*>(src), count)) {
    return ZeroAndFail(dst, capacity, EINVAL);
  }
  std::memcpy(dst, src, count);
  return 0;
}

int memmove_s(void* dst, std::size_t capacity, void const* src, std::size_t count) {
  if (dst == nullptr || capacity > kLargestSize) return EINVAL;
  if (src == nullptr) return ZeroAndFail(dst, capacity, EINVAL);
  if (count > capacity) return ZeroAndFail(dst, capacity, ERANGE);
  std::memmove(dst, src, count);
  return 0;
}

int memset_s(void* dst, std::size_t capacity, int value, std::size_t count) {
  if (dst == nullptr || capacity > kLargestSize) return EINVAL;
  bool const fits = count <= capacity;
  std::memset(dst, value, fits ? count : capacity);
  return fits ? 0 : ERANGE;
}

int strncpy_s(char* dst, std::size_t capacity, char const* src, std::size_t count) {
  if (dst == nullptr || capacity == 0 || capacity > kLargestSize) return EINVAL;
  if (src == nullptr) return EmptyAndFail(dst, EINVAL);
  if (count > kLargestSize) return EmptyAndFail(dst, ERANGE);
  std::size_t const length = strnlen(src, count < capacity ? count : capacity);
  if (length >= capacity) return EmptyAndFail(dst, ERANGE);
  if (Overlap(dst, capacity, src, length + (length < count ? 1 : 0))) return EmptyAndFail(dst, EINVAL);
  std::memcpy(dst, src, length);
  dst[length] = '\0';
  return 0;
}

int vsnprintf_s(char* dst, std::size_t capacity, std::size_t count, char const* format, std::va_list args) {
  if (dst == nullptr || format == nullptr || capacity > kLargestSize || count >= capacity) return -1;
  dst[0] = '\0';
  int const length = velt_plain_vsnprintf(dst, count + 1, format, args);
  if (length < 0) {
    dst[count] = '\0';  // an expansion that fails half-way may leave no NUL
    return -1;
  }
  return static_cast<std::size_t>(length) > count ? -1 : length;
}

int snprintf_s(char* dst, std::size_t capacity, std::size_t count, char const* format, ...) {
  std::va_list args;
  va_start(args, format);
  int const result = vsnprintf_s(dst, capacity, count, format, args);
  va_end(args);
  return result;
}

}  // namespace velt
