// Bounded copies into the fields of a message frame.
#include <cstdarg>

#include "velt/process.h"

#include "platform/bounded.h"

char* VeltFrameGetNStr(char* dst, unsigned long dstMax, char const* src, unsigned long count) {
  (void)velt::strncpy_s(dst, dstMax, src,
                        count);  // after an error the field is empty, which tells the caller
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
  // With a capacity of 0 the count wraps around; the formatter refuses a count that is not below the
  // capacity.
  int const length = velt::vsnprintf_s(dst, dstMax, dstMax - 1, format, args);
  va_end(args);
  return length;
}
