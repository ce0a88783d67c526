// Checks the texts of level and output sets, and finds items whose names register another module than it
// looks.
#include <strings.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "velt/manager.h"

#include "tools/veltcfg/checks.h"
#include "tools/veltcfg/module_item.h"

namespace velt::tools::cfg {
namespace {

constexpr std::size_t kBits = 32;

bool IsSetText(std::string const& text) {
  std::string const counts = text.size() > kBits ? text.substr(text.size() - kBits) : text;
  return counts.find_first_not_of("01") == std::string::npos;
}

std::string Becomes(std::string const& module, SetKind kind, SetView const& set) {
  return std::string(NameOf(kind)) + " of module " + Quoted(module) + " are " + WrittenOut(kind, set.bits);
}

void CheckSet(std::string const& module, SetKind kind, SetView const& set, Report& report) {
  if (!set.item) return;
  Item const& item = *set.item;
  auto const warn = [&report, &item](char const* which, std::string const& message) {
    AddFinding(report.findings, Severity::kWarning, which, {report.sources.first.path, item.line}, message);
  };
  if (!IsSetText(item.value)) {
    warn("set-invalid",
         item.name + " = " + Quoted(item.value) + " is not a text of 0 and 1: " + Becomes(module, kind, set));
  } else if (item.value.size() > kBits) {
    warn("set-too-long", item.name + " has " + std::to_string(item.value.size()) +
                             " characters, of which the last 32 count: " + Becomes(module, kind, set));
  }
  if (set.bits != set.configured) {
    warn("set-reduced",
         item.name + " = " + Quoted(item.value) + " keeps bits 0 to 3 only: " + Becomes(module, kind, set));
  }
}

void CheckName(Item const& item, Report& report) {
  auto const registered = ModuleItemsOf(item);
  if (registered.empty()) return;
  auto const warn = [&report, &item](char const* which, std::string const& message) {
    AddFinding(report.findings, Severity::kWarning, which, {report.sources.first.path, item.line}, message);
  };
  if (registered.size() > 1) {
    warn("key-ambiguous", Quoted(item.name) + " gives levels to module " + Quoted(registered[0].module) +
                              " and outputs to module " + Quoted(registered[1].module));
    return;
  }
  ModuleItem const& only = registered.front();
  std::string const plain = only.module + MarkerOf(only.kind);
  if (item.name != plain) warn("key-tail", Quoted(item.name) + " is taken as " + Quoted(plain));
  if (only.module.empty()) warn("module-nameless", Quoted(item.name) + " names no module and is skipped");
}

// Of several lines that give a module the same set, only the last has an effect.
void CheckDuplicates(Report& report) {
  std::map<std::pair<std::string, SetKind>, Item> last;
  auto const& items = report.sources.first.items;
  for (auto item = items.rbegin(); item != items.rend(); ++item) {
    for (auto const& entry : ModuleItemsOf(*item)) {
      auto const [counting, is_last] = last.try_emplace({entry.module, entry.kind}, *item);
      if (is_last) continue;
      AddFinding(report.findings, Severity::kWarning, "duplicate", {report.sources.first.path, item->line},
                 Quoted(item->name) + " does not count: line " + std::to_string(counting->second.line) +
                     " sets the " + NameOf(entry.kind) + " of module " + Quoted(entry.module) + " again");
    }
  }
}

struct CaselessLess {
  bool operator()(std::string const& left, std::string const& right) const {
    return strcasecmp(left.c_str(), right.c_str()) < 0;
  }
};

// Module names are case-sensitive: two items that differ in case register two modules with one set each, not
// one module with both.
void CheckCase(Report& report) {
  std::map<std::string, std::pair<std::string, int>, CaselessLess> first;  // a module and the line it is on
  std::set<std::string> noted;
  for (auto const& item : report.sources.first.items) {
    for (auto const& entry : ModuleItemsOf(item)) {
      auto const& [module, line] = first.try_emplace(entry.module, entry.module, item.line).first->second;
      if (module == entry.module || !noted.insert(entry.module).second) continue;
      AddFinding(report.findings, Severity::kNote, "module-case", {report.sources.first.path, item.line},
                 Quoted(item.name) + " is of module " + Quoted(entry.module) + ", another than " +
                     Quoted(module) + " of line " + std::to_string(line));
    }
  }
}

// debug_level and debug_output are also looked up in the second file, but a value found there is not used.
void CheckDebugItem(char const* key, SetKind kind, Report& report) {
  Sources const& sources = report.sources;
  if (!sources.main_is_second || FirstOf(sources.first, key) != nullptr) return;
  Item const* const item = FirstOf(sources.main, key);
  if (item == nullptr) return;
  auto const debug = std::find_if(report.modules.begin(), report.modules.end(),
                                  [](ModuleView const& module) { return module.name == "debug"; });
  if (debug == report.modules.end()) return;
  SetView const& set = kind == SetKind::kLevels ? debug->levels : debug->outputs;
  AddFinding(report.findings, Severity::kWarning, "debug-set-lost", {sources.main.path, item->line},
             Quoted(key) + " stands only in the file that is read second, and does not count: " +
                 Becomes("debug", kind, set));
}

}  // namespace

void CheckModules(Report& report) {
  for (auto const& module : report.modules) {
    CheckSet(module.name, SetKind::kLevels, module.levels, report);
    CheckSet(module.name, SetKind::kOutputs, module.outputs, report);
  }
  for (auto const& item : report.sources.first.items) CheckName(item, report);
  CheckDuplicates(report);
  CheckCase(report);
  CheckDebugItem(DEBUGLEVELITEM, SetKind::kLevels, report);
  CheckDebugItem(DEBUGOUPUTTITEM, SetKind::kOutputs, report);
}

}  // namespace velt::tools::cfg
