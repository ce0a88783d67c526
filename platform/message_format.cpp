#include "platform/message_format.h"

#include <cerrno>
#include <cstdio>

namespace velt {

int FormatMessage(char* buffer, std::size_t capacity, char const* format, std::va_list args) {
  buffer[0] = '\0';
  if (format == nullptr) {
    errno = EINVAL;
    return -1;
  }
  int const length = std::vsnprintf(buffer, capacity, format, args);
  buffer[capacity - 1] = '\0';  // an expansion that fails half-way need not have ended what it wrote
  if (length < 0) return -1;
  return static_cast<std::size_t>(length) < capacity ? length : static_cast<int>(capacity - 1);
}

}  // namespace velt
