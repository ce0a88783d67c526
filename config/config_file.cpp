// Lines "name = value" and the look-ups that scan a file of them.
#include <array>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "velt/config.h"

#include "config/line_reader.h"
#include "config/text.h"

namespace {

using velt::LineReader;
using velt::TrimBlanks;

constexpr int kItem = 1;
constexpr int kNoItem = 2;
constexpr int kLineCount = static_cast<int>(velt::kLongestLine) + 1;  // getline's count: with a NUL
constexpr int kNumberCapacity = 1792;

struct Item {
  std::string_view name;
  std::string_view value;
};

bool Split(std::string_view line, Item& item) {
  std::size_t const equals = line.find('=');
  if (equals == std::string_view::npos) return false;
  item = {TrimBlanks(line.substr(0, equals)), TrimBlanks(line.substr(equals + 1))};
  return true;
}

// `line` ends at its first NUL. Returns false when it holds no item.
bool Parse(std::string_view line, Item& item) {
  line = TrimBlanks(line.substr(0, line.find('\0')));
  return !line.empty() && line.front() != '#' && Split(line, item);
}

// Finds the first item named `name`. Most lines do not begin with it and are not parsed.
bool Find(LineReader& in, std::string_view name, Item& item) {
  for (std::string_view line; in.Next(line);) {
    line = velt::TrimLeadingBlanks(line);
    bool const may_be_it = line.size() > name.size() && line.compare(0, name.size(), name) == 0;
    if (may_be_it && Parse(line, item) && item.name == name) return true;
  }
  return false;
}

}  // namespace

int VeltGetNameValue(std::string const& line, std::string& name, std::string& value) {
  Item item;
  if (!Split(line, item)) return -1;
  // Make both copies before assigning either: `name` or `value` may be `line` itself.
  std::string new_name(item.name);
  std::string new_value(item.value);
  name = std::move(new_name);
  value = std::move(new_value);
  return 1;
}

int VeltGetLine(std::ifstream& in, std::string& name, std::string& value) {
  std::array<char, kLineCount + 1> buffer;
  buffer[0] = '\0';  // a stream that is already bad leaves the buffer as it is
  in.getline(buffer.data(), kLineCount, '\n');
  Item item;
  if (!Parse(buffer.data(), item)) return kNoItem;
  name = item.name;
  value = item.value;
  return kItem;
}

bool VeltGetCfgString(char const* name, char* buf, int& len, char const* file) {
  int const capacity = len;
  len = 0;
  if (name == nullptr || buf == nullptr || file == nullptr) return false;

  LineReader in(file);
  Item item;
  if (!Find(in, name, item)) return false;
  auto const length = static_cast<int>(item.value.size());
  // A value that does not fit ends the search: a later line of the same name must not replace it.
  if (capacity <= length) return false;
  std::memcpy(buf, item.value.data(), item.value.size());
  buf[length] = '\0';
  len = length;
  return true;
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
  LineReader in(file.c_str());
  if (!in.IsOpen()) return false;

  Item item;
  std::string key;          // reused for every line; the map copies it when the key is new
  auto hint = items.end();  // behind the last item placed: the right place if the file is sorted
  for (std::string_view line; in.Next(line);) {
    if (!Parse(line, item)) continue;
    if (!marker.empty()) {
      std::size_t const at = item.name.find(marker);
      if (at == std::string_view::npos) continue;
      item.name = item.name.substr(0, at);
    }
    key = item.name;
    auto const placed = items.insert_or_assign(hint, key, item.value);
    // std::next of the last item would climb the whole tree to reach end().
    hint = placed == std::prev(items.end()) ? items.end() : std::next(placed);
  }
  return true;
}
