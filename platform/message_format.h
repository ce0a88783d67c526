// Expands the printf-style message of a trace call into a bounded buffer.
#ifndef VELT_PLATFORM_MESSAGE_FORMAT_H
#define VELT_PLATFORM_MESSAGE_FORMAT_H

#include <cstdarg>
#include <cstddef>

#include "velt/export.h"

namespace velt {

// Writes at most `capacity` - 1 characters and a NUL. Unlike vsnprintf_s it tells a cut text from a failed
// one: returns the number of characters kept, 0 for an empty text, and -1, with errno set, when the format is
// null or cannot be expanded or asks for a field of 1,000,000 characters or more; the buffer then holds what
// the expansion left, possibly nothing. `capacity` is at least 1.
int FormatMessage(char* buffer, std::size_t capacity, char const* format, std::va_list args)
    VELT_PRINTF_FORMAT(3, 0);

}  // namespace velt

#endif
