// Expands the printf-style message of a trace call into a bounded buffer.
#ifndef VELT_PLATFORM_MESSAGE_FORMAT_H
#define VELT_PLATFORM_MESSAGE_FORMAT_H

#include <cstdarg>
#include <cstddef>

#include "velt/export.h"

namespace velt {

struct Message {
  int kept;            // characters in the buffer; -1, with errno set, when the expansion failed
  std::size_t length;  // up to the first NUL, which a %c may have put there
};

// Writes at most `capacity` - 1 characters and a NUL. Unlike vsnprintf_s it tells a cut text from a failed
// one, which is that of a format that is null, cannot be expanded, or asks for a field of 1,000,000
// characters or more, written out or by '*' (errno EOVERFLOW; a text's precision is no field); the buffer
// then holds what the expansion left, possibly nothing. `capacity` is at least 1.
Message ExpandMessage(char* buffer, std::size_t capacity, char const* format, std::va_list args)
    VELT_PRINTF_FORMAT(3, 0);

// The same for callers that want only the number of characters kept.
int FormatMessage(char* buffer, std::size_t capacity, char const* format, std::va_list args)
    VELT_PRINTF_FORMAT(3, 0);

}  // namespace velt

#endif
