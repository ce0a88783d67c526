// ${NAME} references to environment variables.
#include <cstdlib>
#include <string>

#include "velt/config.h"

std::string VELTreplaceEnvValue(std::string const& text) {
  std::string result;
  std::size_t at = 0;
  while (at < text.size()) {
    std::size_t const open = text.find("${", at);
    std::size_t const close = open == std::string::npos ? open : text.find('}', open + 2);
    if (close == std::string::npos) break;
    result.append(text, at, open - at);
    std::string const name = text.substr(open + 2, close - open - 2);
    char const* const value = std::getenv(name.c_str());
    if (value != nullptr && *value != '\0') {
      result += value;
    } else {
      result.append(text, open, close + 1 - open);
    }
    at = close + 1;
  }
  if (at < text.size()) result.append(text, at);
  return result;
}
