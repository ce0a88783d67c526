// Copies and formats that never write past the capacity they are told. Internal: they are not exported, so
// that they cannot collide with functions of the same names in a host.
#ifndef VELT_PLATFORM_BOUNDED_H
#define VELT_PLATFORM_BOUNDED_H

#include <cstdarg>
#include <cstddef>

#include "velt/export.h"

namespace velt {

// C11 Annex K without a constraint handler: 0 on success, else the error. A capacity above half the address
// space counts as a negative number and is an error that writes nothing.
//
// The memory functions, on a count above the capacity, a null source or overlapping ranges (memcpy_s), zero
// the whole destination; memset_s fills it with the value.
int memcpy_s(void* dst, std::size_t capacity, void const* src, std::size_t count);
int memmove_s(void* dst, std::size_t capacity, void const* src, std::size_t count);
int memset_s(void* dst, std::size_t capacity, int value, std::size_t count);

// Copies at most `count` characters of `src` and a NUL, or nothing: on an error the destination becomes empty
// where there is room for that. A count of 0 gives the empty text.
int strncpy_s(char* dst, std::size_t capacity, char const* src, std::size_t count);

// Return the length of the text. Return -1 and write nothing for a null destination or format, a capacity of
// 0 or a count not below the capacity. Return -1 and leave the first `count` characters and a NUL when the
// text is longer; -1 and some text of at most `count` characters when the format cannot be expanded.
int snprintf_s(char* dst, std::size_t capacity, std::size_t count, char const* format, ...)
    VELT_PRINTF_FORMAT(4, 5);
int vsnprintf_s(char* dst, std::size_t capacity, std::size_t count, char const* format, std::va_list args)
    VELT_PRINTF_FORMAT(4, 0);

}  // namespace velt

#endif
