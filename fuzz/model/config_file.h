// The items of a configuration file, found character by character in a text in memory.
#ifndef VELT_FUZZ_MODEL_CONFIG_FILE_H
#define VELT_FUZZ_MODEL_CONFIG_FILE_H

#include <climits>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velt::fuzz {

inline constexpr std::size_t kLongestLine = 2047;

struct ModelLine {
  bool is_item = false;
  std::string name;
  std::string value;
  bool ends_scan = false;  // the end of the file, or a line that was too long
};

inline bool OneOf(char character, std::string_view set) {
  for (char const other : set) {
    if (other == character) return true;
  }
  return false;
}

inline std::string_view ModelTrim(std::string_view text, std::string_view set) {
  while (!text.empty() && OneOf(text.front(), set)) text.remove_prefix(1);
  while (!text.empty() && OneOf(text.back(), set)) text.remove_suffix(1);
  return text;
}

inline std::string_view ModelTrim(std::string_view text) { return ModelTrim(text, " \t\r\n"); }

inline ModelLine ModelOfLine(std::string_view raw) {
  ModelLine line;
  std::string_view const text = ModelTrim(raw.substr(0, raw.find('\0')));
  if (text.empty() || text[0] == '#') return line;
  for (std::size_t at = 0; at < text.size() && !line.is_item; ++at) {
    if (text[at] != '=') continue;
    line.is_item = true;
    line.name = ModelTrim(text.substr(0, at));
    line.value = ModelTrim(text.substr(at + 1));
  }
  return line;
}

// Every line that a scan of the file reads, also the empty one behind a last newline.
inline std::vector<ModelLine> ModelLines(std::string_view file) {
  std::vector<ModelLine> lines;
  bool done = false;
  while (!done) {
    std::size_t length = 0;
    while (length < file.size() && file[length] != '\n') ++length;
    done = length > kLongestLine || length == file.size();
    lines.push_back(ModelOfLine(file.substr(0, length < kLongestLine ? length : kLongestLine)));
    lines.back().ends_scan = done;
    file.remove_prefix(done ? file.size() : length + 1);
  }
  return lines;
}

// The first value of a name.
inline std::optional<std::string> ModelFind(std::string_view file, std::string_view name) {
  for (ModelLine const& line : ModelLines(file)) {
    if (line.is_item && line.name == name) return line.value;
  }
  return std::nullopt;
}

// The last value of each name; with a marker, of each name before it.
inline void ModelAddItems(std::vector<ModelLine> const& lines, std::string_view marker,
                          std::map<std::string, std::string>& items) {
  for (ModelLine const& line : lines) {
    if (!line.is_item) continue;
    std::size_t const at = marker.empty() ? line.name.size() : line.name.find(marker);
    if (at != std::string::npos) items[line.name.substr(0, at)] = line.value;
  }
}

// The number that a text begins with, limited to 64 bits and then cut to the low 32.
inline int ModelNumber(std::string_view text) {
  while (!text.empty() && OneOf(text.front(), " \t\n\v\f\r")) text.remove_prefix(1);
  bool const negative = !text.empty() && text.front() == '-';
  if (!text.empty() && OneOf(text.front(), "+-")) text.remove_prefix(1);
  unsigned long const most = negative ? 1UL + LONG_MAX : LONG_MAX;
  unsigned long number = 0;
  for (; !text.empty() && text.front() >= '0' && text.front() <= '9'; text.remove_prefix(1)) {
    auto const digit = static_cast<unsigned long>(text.front() - '0');
    number = number > (most - digit) / 10 ? most : number * 10 + digit;
    if (number == most) break;
  }
  return static_cast<int>(static_cast<unsigned>(negative ? 0 - number : number));
}

}  // namespace velt::fuzz

#endif
