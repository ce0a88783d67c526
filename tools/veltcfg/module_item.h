// Items that give a module its levels or its outputs.
#ifndef VELT_TOOLS_VELTCFG_MODULE_ITEM_H
#define VELT_TOOLS_VELTCFG_MODULE_ITEM_H

#include <bitset>
#include <optional>
#include <string>
#include <vector>

#include "tools/veltcfg/config_lines.h"

namespace velt::tools::cfg {

enum class SetKind { kLevels, kOutputs };

struct ModuleItem {
  std::string module;
  SetKind kind = SetKind::kLevels;
  Item item;
};

// What an item registers: nothing, one set, or two sets if its name contains both markers.
std::vector<ModuleItem> ModuleItemsOf(Item const& item);

// The item of `file` that gives `module` this set: the last one.
std::optional<Item> CountingItem(ConfigFile const& file, std::string const& module, SetKind kind);

// "_level" or "_output", behind the name of the module.
char const* MarkerOf(SetKind kind);

// "levels" or "outputs".
char const* NameOf(SetKind kind);

// The set in the form of the configuration, "1100" for bits 0 and 1; empty for the empty set.
std::string TextOf(std::bitset<32> const& bits);

// The name of a bit: a level's tag in the log, such as "A", or an output, such as "log file"; empty when the
// bit has none.
char const* TagOf(SetKind kind, std::size_t bit);

// "0 (A), 1 (E)", or "none".
std::string WrittenOut(SetKind kind, std::bitset<32> const& bits);

}  // namespace velt::tools::cfg

#endif
