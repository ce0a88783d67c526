// Bounded copies into the fields of a message frame.
#include <cstdarg>

#include "velt/process.h"

#include "platform/bounded.h"

char* VeltFrameGetNStr(char* dst, unsigned long dstMax, char const* src, unsigned long count) {
  (void)velt::strncpy_s(dst, dstMax, src, count);  // a caller that must know looks at the field
  return dst;
}

void* VeltFrameSetBody(void* dst, void const* src, unsigned long size) {
  (void)velt::memcpy_s(dst, size, src, size);
  return dst;
}

void* VeltFrameResetBody(void* dst, int value, unsigned long size) {
  (void)velt::memset_s(dst, size, value, size);
  return dst;
}

int VeltFrameGetStr(char* dst, unsigned long dstMax, char const* format, ...) {
  std::va_list args;
  va_start(args, format);
  // A capacity of 0 makes the count wrap; the formatter refuses it like every count not below the capacity.
  int const length = velt::vsnprintf_s(dst, dstMax, dstMax - 1, format, args);
  va_end(args);
  return length;
}
