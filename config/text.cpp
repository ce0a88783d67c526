// Trimming, of strings and of character buffers.
#include <cstring>
#include <string>

#include "velt/config.h"

#include "platform/bounded.h"

std::string TrimString(std::string const& text, char const* chars) {
  if (chars == nullptr || *chars == '\0') return text;
  std::size_t const first = text.find_first_not_of(chars);
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(chars) - first + 1);
}

void VeltStrTrim(char* text) {
  if (text == nullptr || *text == '\0') return;
  constexpr char const* kBlanks = " \t";
  std::size_t const length = std::strlen(text);
  std::size_t const first = std::strspn(text, kBlanks);
  if (first == length) {
    *text = '\0';
    return;
  }
  std::size_t end = length;
  while (text[end - 1] == ' ' || text[end - 1] == '\t') --end;
  if (first == 0 && end == length) return;  // no write: a text without blanks may be read-only
  std::size_t const count = end - first;
  velt::memmove_s(text, count, text + first, count);
  text[count] = '\0';
}
