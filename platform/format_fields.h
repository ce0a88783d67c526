// Finds formats whose expansion would take seconds.
#ifndef VELT_PLATFORM_FORMAT_FIELDS_H
#define VELT_PLATFORM_FORMAT_FIELDS_H

#include <cstdarg>

namespace velt {

// Whether a conversion of `format` has a width, or a precision, of 1,000,000 or more, as digits or as '*' and
// one of `args`. The C library pads such a field for seconds, and the result is cut to the buffer anyway. The
// precision of a text (%s) is only a limit and does not count.
//
// Conversions that a host has registered with the C library end the search: which arguments they take is not
// known. A format that has '*' and refers to more than 128 arguments counts as asking for such a field.
bool AsksForGiantField(char const* format, std::va_list args);

}  // namespace velt

#endif
