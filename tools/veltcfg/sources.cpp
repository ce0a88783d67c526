// The files of a debug configuration.
#include "tools/veltcfg/sources.h"

#include <unistd.h>

#include <cstdlib>

#include "velt/config.h"

namespace velt::tools::cfg {
namespace {

bool Exists(std::string const& path) { return access(path.c_str(), F_OK) == 0; }

std::string WhyNone() {
  if (std::getenv("APP_ROOT") == nullptr) return "APP_ROOT is not set";
  return "default_debug.cfg is not in " + Quoted(std::getenv("APP_ROOT") + std::string("/conf/")) +
         ", and COMMON_LIB_PATH is not set";
}

void CheckChoice(std::string const& own_file, Sources const& sources, Findings& findings) {
  bool const own_missing = !own_file.empty() && !Exists(own_file);
  if (sources.first.path.empty()) {
    AddFinding(findings, Severity::kError, "no-configuration", {own_missing ? own_file : "", 0},
               "there is no configuration: " + std::string(own_missing ? "this file is missing, and " : "") +
                   WhyNone() + "; a host has default numbers and no module, not even debug");
  } else if (own_missing) {
    AddFinding(findings, Severity::kWarning, "file-missing", {own_file, 0},
               "the file is missing: " + Quoted(sources.first.path) + " is read instead");
  }
}

void CheckFiles(Sources const& sources, Findings& findings) {
  ConfigFile const& first = sources.first;
  ConfigFile const& main = sources.main;
  if (!first.path.empty() && first.state != FileState::kReadable) {
    AddFinding(findings, Severity::kError, "file-unreadable", {first.path, 0},
               "the file cannot be read, and no other takes its place: " + first.reason);
  }
  if (main.path == first.path) return;
  if (main.state == FileState::kBlocking) {
    AddFinding(findings, Severity::kError, "file-unreadable", {main.path, 0},
               "a host that opens the file may wait without end: " + main.reason);
  }
  if (main.state == FileState::kUnreadable) {
    AddFinding(findings, Severity::kWarning, "file-unreadable", {main.path, 0},
               "the file cannot be read: " + main.reason);
  }
  if (main.state == FileState::kReadable && !sources.main_is_second && !first.path.empty()) {
    AddFinding(findings, Severity::kNote, "second-not-read", {main.path, 0},
               "limits and sets are not looked up here while no default_debug.cfg is found");
  }
}

void Take(Findings const& from, Findings& into) { into.insert(into.end(), from.begin(), from.end()); }

}  // namespace

Sources ReadSources(std::string const& own_file, Findings& findings) {
  std::string const installed = VeltGetDefaultDebugCfgFile();
  std::string const main = VeltGetDefaultCfgFile();
  bool const own_is_used = !own_file.empty() && Exists(own_file);

  Sources sources;
  std::string const first = own_is_used ? own_file : installed;
  if (!first.empty()) sources.first = ReadConfigFile(first);
  if (!main.empty()) sources.main = ReadConfigFile(main);
  sources.main_is_second = !installed.empty() && first != main;

  CheckChoice(own_file, sources, findings);
  CheckFiles(sources, findings);
  Take(sources.first.findings, findings);
  if (main != first) Take(sources.main.findings, findings);
  return sources;
}

}  // namespace velt::tools::cfg
