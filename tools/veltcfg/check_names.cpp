// Finds names that occur twice, are in the wrong file, or are unknown.
#include <strings.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "velt/manager.h"

#include "tools/veltcfg/checks.h"
#include "tools/veltcfg/module_item.h"

namespace velt::tools::cfg {
namespace {

bool IsSwitch(Report const& report, std::string const& name) {
  return std::any_of(report.switches.begin(), report.switches.end(),
                     [&name](SwitchView const& view) { return view.number.key == name; });
}

bool IsLimit(Report const& report, std::string const& name) {
  return std::any_of(report.limits.begin(), report.limits.end(),
                     [&name](LimitView const& view) { return view.number.key == name; });
}

// Whether `name` is one of the two items of module "debug", which are looked up in both files.
bool IsDebugKey(std::string const& name) { return name == DEBUGLEVELITEM || name == DEBUGOUPUTTITEM; }

std::vector<std::string> KnownKeys(Report const& report) {
  std::vector<std::string> keys{DEBUGLEVELITEM, DEBUGOUPUTTITEM};
  for (auto const& view : report.limits) keys.push_back(view.number.key);
  for (auto const& view : report.switches) keys.push_back(view.number.key);
  return keys;
}

// The known key that differs from `name` only in case; empty when there is none.
std::string OtherCase(Report const& report, std::string const& name) {
  for (auto const& key : KnownKeys(report)) {
    if (name == key) return {};
    if (strcasecmp(name.c_str(), key.c_str()) == 0) return key;
  }
  return {};
}

// Of a name that occurs twice the first line counts, except for module items (checked in check_modules.cpp).
void CheckDuplicates(ConfigFile const& file, bool with_module_items, Findings& findings) {
  std::map<std::string, int> first_lines;
  for (auto const& item : file.items) {
    if (with_module_items && !ModuleItemsOf(item).empty()) continue;  // of a module item the last line counts
    auto const [first, is_first] = first_lines.try_emplace(item.name, item.line);
    if (is_first) continue;
    AddFinding(
        findings, Severity::kWarning, "duplicate", {file.path, item.line},
        Quoted(item.name) + " does not count: line " + std::to_string(first->second) + " has it already");
  }
}

void CheckCase(ConfigFile const& file, Report& report) {
  for (auto const& item : file.items) {
    std::string const key = OtherCase(report, item.name);
    if (key.empty()) continue;
    AddFinding(report.findings, Severity::kWarning, "name-case", {file.path, item.line},
               Quoted(item.name) + " is not " + Quoted(key));
  }
}

void CheckFirst(Report& report) {
  ConfigFile const& file = report.sources.first;
  for (auto const& item : file.items) {
    if (IsSwitch(report, item.name)) {
      AddFinding(report.findings, Severity::kWarning, "wrong-file", {file.path, item.line},
                 Quoted(item.name) + " is looked for in velt.cfg only");
      continue;
    }
    bool const known =
        IsLimit(report, item.name) || !ModuleItemsOf(item).empty() || !OtherCase(report, item.name).empty();
    if (known) continue;
    AddFinding(report.findings, Severity::kNote, "unknown-name", {file.path, item.line},
               Quoted(item.name) + " is not a name that traces are configured by");
  }
}

// velt.cfg may also hold items of the host. Only names that look like trace settings are checked.
void CheckMain(Report& report) {
  Sources const& sources = report.sources;
  for (auto const& item : sources.main.items) {
    bool const debug_key = IsDebugKey(item.name);
    bool const asked = debug_key || IsLimit(report, item.name);
    if (asked && sources.main_is_second && FirstOf(sources.first, item.name) != nullptr) {
      AddFinding(report.findings, Severity::kNote, "overridden", {sources.main.path, item.line},
                 Quoted(item.name) + " does not count: " + Quoted(sources.first.path) + " has it");
    }
    if (ModuleItemsOf(item).empty() || debug_key) continue;
    AddFinding(report.findings, Severity::kWarning, "module-not-read", {sources.main.path, item.line},
               Quoted(item.name) + " registers nothing: modules are read from " + Quoted(sources.first.path) +
                   " only");
  }
}

}  // namespace

void CheckNames(Report& report) {
  Sources const& sources = report.sources;
  bool const one_file = sources.main.path == sources.first.path;
  CheckDuplicates(sources.first, true, report.findings);
  CheckCase(sources.first, report);
  if (one_file) return;
  CheckFirst(report);
  CheckDuplicates(sources.main, false, report.findings);
  CheckCase(sources.main, report);
  CheckMain(report);
}

}  // namespace velt::tools::cfg
