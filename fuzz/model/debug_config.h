// The module table and the limits that a debug configuration makes, from its text.
#ifndef VELT_FUZZ_MODEL_DEBUG_CONFIG_H
#define VELT_FUZZ_MODEL_DEBUG_CONFIG_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fuzz/model/config_file.h"

namespace velt::fuzz {

// A set as a number: bit 0 is its 1.
using ModelSet = std::uint32_t;
using ModelModules = std::map<std::string, std::pair<ModelSet, ModelSet>>;

inline constexpr ModelSet kLevelsByDefault = 0b0011;
inline constexpr ModelSet kOutputsByDefault = 0b0010;

// Nothing for a text with a character other than 0 and 1 among its last 32.
inline std::optional<ModelSet> ModelSetOf(std::string_view text) {
  std::string_view const counted = text.size() > 32 ? text.substr(text.size() - 32) : text;
  ModelSet set = 0;
  for (std::size_t bit = 0; bit < counted.size(); ++bit) {
    if (!OneOf(counted[bit], "01")) return std::nullopt;
    if (counted[bit] == '1') set |= ModelSet{1} << bit;
  }
  return set;
}

// What the items of a file add to the sets of "debug".
inline ModelModules ModelModulesOf(std::string_view file, ModelSet levels, ModelSet outputs) {
  ModelModules modules = {{"debug", {levels, outputs}}};
  std::vector<ModelLine> const lines = ModelLines(file);
  std::map<std::string, std::string> level_items;
  std::map<std::string, std::string> output_items;
  ModelAddItems(lines, "_level", level_items);
  ModelAddItems(lines, "_output", output_items);
  for (auto const& [name, text] : level_items) {
    modules[name] = {ModelSetOf(text).value_or(kLevelsByDefault), kOutputsByDefault};
  }
  for (auto const& [name, text] : output_items) {
    if (modules.count(name) == 0) modules[name].first = kLevelsByDefault;
    modules[name].second =
        ModelSetOf(text).value_or(kLevelsByDefault);  // for outputs, too, the default of levels
  }
  return modules;
}

struct ModelConfig {
  int ring = 100;
  int most_channels = 50;
  ModelModules modules;
};

// What the manager reads from a host's own file when the installation has none.
inline ModelConfig ModelConfigOf(std::string_view file) {
  auto const bounded = [file](char const* name, unsigned most, int otherwise) {
    std::optional<std::string> const text = ModelFind(file, name);
    if (!text.has_value() || text->size() > 1791) return otherwise;
    int const number = ModelNumber(*text);
    return static_cast<unsigned>(number) <= most ? number : otherwise;
  };
  auto const set = [file](char const* name, ModelSet otherwise) {
    std::optional<std::string> const text = ModelFind(file, name);
    return text.has_value() ? ModelSetOf(*text).value_or(otherwise) : otherwise;
  };
  ModelConfig config;
  config.ring = bounded("nFiltLogBufSize", 1000, 100);
  config.most_channels = bounded("nMaxFileNum", 100, 50);
  ModelModules const modules =
      ModelModulesOf(file, set("debug_level", kLevelsByDefault), set("debug_output", kOutputsByDefault));
  auto const kept = [](ModelSet bits) { return bits > 4369 ? bits & 0b1111 : bits; };
  for (auto const& [name, sets] : modules) {
    if (!name.empty()) config.modules[name] = {kept(sets.first), kept(sets.second)};
  }
  return config;
}

}  // namespace velt::fuzz

#endif
