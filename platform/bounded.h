// Copies and formats that never write past the given capacity. Not exported, so they cannot collide with
// functions of the same names in a host.
#ifndef VELT_PLATFORM_BOUNDED_H
#define VELT_PLATFORM_BOUNDED_H

#include <cstdarg>
#include <cstddef>

#include "velt/export.h"

namespace velt {

// The memory functions behave as in C11 Annex K, without a constraint handler.
//
// They return 0 on success, else EINVAL or ERANGE. A null destination and a capacity above half the address
// space are errors that write nothing. After any other error (a count above the capacity, a null source,
// ranges that overlap in memcpy_s) the whole destination is zero; memset_s fills it with `value` instead.
int memcpy_s(void* dst, std::size_t capacity, void const* src, std::size_t count);
int memmove_s(void* dst, std::size_t capacity, void const* src, std::size_t count);
int memset_s(void* dst, std::size_t capacity, int value, std::size_t count);

// Copies at most `count` characters of `src` and a NUL. Returns 0; else the error, with the destination empty
// if it has room for a NUL: a text is never cut to the capacity. A count of 0 gives the empty text.
int strncpy_s(char* dst, std::size_t capacity, char const* src, std::size_t count);

// Format at most `count` characters and a NUL; the bytes behind the NUL stay. Return the length of the text,
// or -1:
// - for a null destination or format, a capacity of 0 or above half the address space, or a count not below
//   the capacity: nothing is written;
// - for a longer text: its first `count` characters and a NUL are left;
// - for a format that cannot be expanded: some text of at most `count` characters is left.
int snprintf_s(char* dst, std::size_t capacity, std::size_t count, char const* format, ...)
    VELT_PRINTF_FORMAT(4, 5);
int vsnprintf_s(char* dst, std::size_t capacity, std::size_t count, char const* format, std::va_list args)
    VELT_PRINTF_FORMAT(4, 0);

}  // namespace velt

#endif
