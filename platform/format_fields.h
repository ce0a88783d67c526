// Finds formats that would hold their caller for seconds.
#ifndef VELT_PLATFORM_FORMAT_FIELDS_H
#define VELT_PLATFORM_FORMAT_FIELDS_H

#include <cstdarg>

namespace velt {

// Whether a conversion of `format` has a width, or a precision other than a text's, of 1,000,000 or more:
// written out, or by '*' and one of `args`. The C library pads such a field for seconds, only to have the
// result cut to the buffer. A text's precision is only a limit, and is no field.
//
// Conversions that a host has registered with the C library end the search: what they take is not known. A
// format that has '*' and refers to more than 128 arguments counts as one that asks for such a field.
bool AsksForGiantField(char const* format, std::va_list args);

}  // namespace velt

#endif
