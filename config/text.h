// The characters that are trimmed from names, values and environment variables, and the trimming of views.
#ifndef VELT_CONFIG_TEXT_H
#define VELT_CONFIG_TEXT_H

#include <string_view>

namespace velt {

inline constexpr char const* kBlankCharacters = " \t\r\n";

constexpr bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

constexpr std::string_view TrimLeadingBlanks(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  return text;
}

// The same as TrimString with kBlankCharacters, without a copy.
constexpr std::string_view TrimBlanks(std::string_view text) {
  text = TrimLeadingBlanks(text);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

}  // namespace velt

#endif
