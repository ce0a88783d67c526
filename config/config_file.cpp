// Lines "name = value" and the look-ups that scan a file of them.
#include <array>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <utility>

#include "velt/config.h"

#include "config/text.h"
#include "platform/bounded.h"

namespace {

constexpr int kItem = 1;
constexpr int kNoItem = 2;
constexpr int kLineCount = 2048;  // getline's count: 2047 characters and a NUL
constexpr int kNumberCapacity = 1792;

}  // namespace

int VeltGetNameValue(std::string const& line, std::string& name, std::string& value) {
  std::size_t const equals = line.find('=');
  if (equals == std::string::npos) return -1;
  // Both before either is assigned: a caller may pass the line itself as one of them.
  std::string new_name = TrimString(line.substr(0, equals), velt::kBlankCharacters);
  std::string new_value = TrimString(line.substr(equals + 1), velt::kBlankCharacters);
  name = std::move(new_name);
  value = std::move(new_value);
  return 1;
}

int VeltGetLine(std::ifstream& in, std::string& name, std::string& value) {
  std::array<char, kLineCount + 1> buffer;
  buffer[0] = '\0';  // a stream that is already bad writes nothing
  in.getline(buffer.data(), kLineCount, '\n');
  std::string const line = TrimString(buffer.data(), velt::kBlankCharacters);
  if (line.empty() || line.front() == '#') return kNoItem;
  return VeltGetNameValue(line, name, value) == 1 ? kItem : kNoItem;
}

bool VeltGetCfgString(char const* name, char* buf, int& len, char const* file) {
  int const capacity = len;
  len = 0;
  if (name == nullptr || buf == nullptr || file == nullptr) return false;

  std::ifstream in(file);
  std::string item;
  std::string value;
  while (in.is_open() && in.good()) {
    if (VeltGetLine(in, item, value) != kItem || item != name) continue;
    auto const length = static_cast<int>(value.size());
    // A value that does not fit ends the search: a later line of the same name must not stand in for it.
    if (capacity <= length) return false;
    if (velt::strncpy_s(buf, static_cast<std::size_t>(capacity), value.c_str(), value.size()) != 0) continue;
    len = length;
    return true;
  }
  return false;
}

bool VeltGetCfgInt(char const* name, int& value, char const* file) {
  std::array<char, kNumberCapacity> text{};
  int length = kNumberCapacity;
  if (!VeltGetCfgString(name, text.data(), length, file)) return false;
  value = static_cast<int>(std::strtol(text.data(), nullptr, 10));
  return true;
}

bool VeltAllCfgItem(std::map<std::string, std::string>& items, std::string const& file,
                    std::string const& marker) {
  if (file.empty()) return true;
  std::ifstream in(file);
  if (!in.is_open() || !in.good()) return false;

  std::string name;
  std::string value;
  while (in.good()) {
    if (VeltGetLine(in, name, value) != kItem) continue;
    if (!marker.empty()) {
      std::size_t const at = name.find(marker);
      if (at == std::string::npos) continue;
      name.erase(at);
    }
    items[name] = value;
  }
  return true;
}
