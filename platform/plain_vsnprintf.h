// The C library's own vsnprintf, whatever _FORTIFY_SOURCE says.
#ifndef VELT_PLATFORM_PLAIN_VSNPRINTF_H
#define VELT_PLATFORM_PLAIN_VSNPRINTF_H

#include <cstdarg>
#include <cstddef>

#include "velt/export.h"

namespace velt {

// As std::vsnprintf. With _FORTIFY_SOURCE the header of the C library replaces that name by a checked
// function, which ends the process at a %n in a format that can be written to. Formats come from hosts, which
// may keep them anywhere; and a macro of the command line may be set behind every -U of ours
// (-Wp,-D_FORTIFY_SOURCE=2).
extern "C" int velt_plain_vsnprintf(char* text, std::size_t capacity, char const* format,
                                    std::va_list args) noexcept __asm__("vsnprintf") VELT_PRINTF_FORMAT(3, 0);

}  // namespace velt

#endif
