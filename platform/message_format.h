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

// Writes at most `capacity` - 1 characters and a NUL; `capacity` is at least 1. A longer text is cut, which
// is no failure here (vsnprintf_s returns -1 for it). The expansion fails when the format
// - is null (errno EINVAL),
// - asks for a field of 1,000,000 characters or more, see AsksForGiantField (errno EOVERFLOW), or
// - cannot be expanded by the C library.
//
// After a failure the buffer holds a text, possibly empty.
Message ExpandMessage(char* buffer, std::size_t capacity, char const* format, std::va_list args)
    VELT_PRINTF_FORMAT(3, 0);

// Where ExpandMessageInto has put a message.
struct PlacedMessage {
  Message message;
  bool near;  // whether it is in the first buffer
};

// ExpandMessage for a message that is wanted in a certain place: into `near` when it fits there, so that it
// need not be copied, else into `far`, where it is cut and fails as above. Only plain conversions (%d %i %u
// %ld %li %lu %zu %c %s %%) are expanded into `near`. The other buffer then holds nothing of use. `near` has
// at least 1 byte, `far` more than `near`; without one (null) all goes to `near`.
PlacedMessage ExpandMessageInto(char* near, std::size_t near_capacity, char* far, std::size_t far_capacity,
                                char const* format, std::va_list args) VELT_PRINTF_FORMAT(5, 0);

// ExpandMessage; returns Message::kept.
int FormatMessage(char* buffer, std::size_t capacity, char const* format, std::va_list args)
    VELT_PRINTF_FORMAT(3, 0);

}  // namespace velt

#endif
