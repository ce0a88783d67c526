// Items that give a module its levels or its outputs.
#include "tools/veltcfg/module_item.h"

#include <array>

namespace velt::tools::cfg {

std::vector<ModuleItem> ModuleItemsOf(Item const& item) {
  std::vector<ModuleItem> found;
  for (SetKind const kind : {SetKind::kLevels, SetKind::kOutputs}) {
    std::size_t const marker = item.name.find(MarkerOf(kind));
    if (marker != std::string::npos) found.push_back({item.name.substr(0, marker), kind, item});
  }
  return found;
}

std::optional<Item> CountingItem(ConfigFile const& file, std::string const& module, SetKind kind) {
  std::optional<Item> last;
  for (auto const& item : file.items) {
    std::size_t const marker = item.name.find(MarkerOf(kind));
    if (marker != std::string::npos && item.name.compare(0, marker, module) == 0) last = item;
  }
  return last;
}

char const* MarkerOf(SetKind kind) { return kind == SetKind::kLevels ? "_level" : "_output"; }

char const* NameOf(SetKind kind) { return kind == SetKind::kLevels ? "levels" : "outputs"; }

std::string TextOf(std::bitset<32> const& bits) {
  std::string text = bits.to_string();  // the highest bit first
  text.erase(0, text.find('1') == std::string::npos ? text.size() : text.find('1'));
  return {text.rbegin(), text.rend()};
}

char const* TagOf(SetKind kind, std::size_t bit) {
  constexpr std::array<char const*, 4> kLevelTags{"A", "E", "W", "I"};
  constexpr std::array<char const*, 2> kOutputNames{"standard output", "log file"};
  if (kind == SetKind::kLevels) return bit < kLevelTags.size() ? kLevelTags[bit] : "";
  return bit < kOutputNames.size() ? kOutputNames[bit] : "";
}

std::string WrittenOut(SetKind kind, std::bitset<32> const& bits) {
  std::string text;
  for (std::size_t bit = 0; bit < bits.size(); ++bit) {
    if (!bits[bit]) continue;
    if (!text.empty()) text += ", ";
    text += std::to_string(bit);
    std::string const tag = TagOf(kind, bit);
    if (!tag.empty()) text += " (" + tag + ")";
  }
  return text.empty() ? "none" : text;
}

}  // namespace velt::tools::cfg
