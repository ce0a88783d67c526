// The characters that count as blank around names, values and environment variables.
#ifndef VELT_CONFIG_TEXT_H
#define VELT_CONFIG_TEXT_H

namespace velt {

inline constexpr char const* kBlankCharacters = " \t\r\n";

}  // namespace velt

#endif
