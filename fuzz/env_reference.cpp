// ${NAME} references against a model that reads the text once from left to right. An input is the text.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

#include "velt/config.h"

#include "fuzz/support/check.h"

namespace velt::fuzz {
namespace {

// The whole environment: values that look like references or parts of them, and odd names.
std::array<std::pair<std::string_view, std::string_view>, 10> const kVariables = {{
    {"HOME", "/h"},
    {"A", "1"},
    {"APP_ROOT", "/opt/x/"},
    {"EMPTY", ""},
    {"AGAIN", "${A}"},
    {"OPEN", "${"},
    {"CLOSE", "}"},
    {"A${B", "nested"},
    {"SPACE ", "a b"},
    {"LONG", "0123456789012345678901234567890123456789012345678901234567890123456789"},
}};

void SetEnvironment() {
  clearenv();
  for (auto const& [name, value] : kVariables)
    setenv(std::string(name).c_str(), std::string(value).c_str(), 1);
}

// Empty for a variable that is not set. A name ends at its first NUL, as for getenv.
std::string_view ValueOf(std::string_view name) {
  name = name.substr(0, name.find('\0'));
  for (auto const& [known, value] : kVariables) {
    if (known == name) return value;
  }
  return {};
}

std::string Expanded(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    bool const opens = text.size() > 1 && text[0] == '$' && text[1] == '{';
    std::size_t const end = opens ? text.find('}') : std::string_view::npos;
    if (end == std::string_view::npos) {
      result += text[0];
      text.remove_prefix(1);
      continue;
    }
    std::string_view const value = ValueOf(text.substr(2, end - 2));
    result += value.empty() ? text.substr(0, end + 1) : value;
    text.remove_prefix(end + 1);
  }
  return result;
}

}  // namespace
}  // namespace velt::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static bool const ready = (velt::fuzz::SetEnvironment(), true);
  (void)ready;
  std::string const text(reinterpret_cast<char const*>(data), size);
  velt::fuzz::CheckEqual(VELTreplaceEnvValue(text), velt::fuzz::Expanded(text), "VELTreplaceEnvValue");
  return 0;
}
