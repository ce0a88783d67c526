// The C library's own vsnprintf, whatever _FORTIFY_SOURCE says.
#ifndef VELT_PLATFORM_PLAIN_VSNPRINTF_H
#define VELT_PLATFORM_PLAIN_VSNPRINTF_H

#include <cstdarg>
#include <cstddef>

#include "velt/export.h"

namespace velt {

// As std::vsnprintf. With _FORTIFY_SOURCE the C library's header replaces that name by a checked function,
// which ends the process at a %n in a format that lies in writable memory. Formats come from hosts, which may
// keep them in such memory. The build cannot undefine the macro for certain: -Wp,-D_FORTIFY_SOURCE=2 on the
// command line takes effect after every -U.
extern "C" int velt_plain_vsnprintf(char* text, std::size_t capacity, char const* format,
                                    std::va_list args) noexcept __asm__("vsnprintf") VELT_PRINTF_FORMAT(3, 0);

}  // namespace velt

#endif
