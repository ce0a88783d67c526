// The directories and files that the environment names.
#include "tools/veltcfg/installation.h"

#include <unistd.h>

#include <array>
#include <cstdlib>

#include "velt/config.h"

namespace velt::tools::cfg {
namespace {

constexpr char const* kRoot = "APP_ROOT";
constexpr char const* kSharedRoot = "COMMON_LIB_PATH";
constexpr char const* kLogDirectory = "_APP_LOG_DIR";
constexpr char const* kTempDirectory = "_APP_TMP_DIR";
constexpr char const* kBlanks = " \t\r\n";

bool Exists(std::string const& path) { return !path.empty() && access(path.c_str(), F_OK) == 0; }

std::optional<std::string> ValueOf(char const* variable) {
  char const* const value = std::getenv(variable);
  if (value == nullptr) return std::nullopt;
  return value;
}

Location Directory(char const* name, std::string path, char const* variable, std::string const& own_value) {
  Location location{name, std::move(path), {}, false};
  location.exists = Exists(location.path);
  if (!location.path.empty()) location.from = own_value.empty() ? "default" : variable;
  return location;
}

Location File(char const* name, std::string path) {
  Location location{name, std::move(path), {}, false};
  if (location.path.empty()) return location;
  location.exists = Exists(location.path);
  auto const root = ValueOf(kRoot);
  bool const in_root = root && location.exists && location.path == *root + "/conf/" + name;
  location.from = in_root ? kRoot : kSharedRoot;
  return location;
}

// Checks a variable that becomes part of file paths untrimmed.
void CheckFileRoot(char const* variable, Findings& findings) {
  auto const value = ValueOf(variable);
  if (!value) return;
  std::string const trimmed = TrimString(*value, kBlanks);
  if (trimmed.empty()) {
    AddFinding(findings, Severity::kWarning, "environment-blank", {},
               std::string(variable) + " is set to " + Quoted(*value) +
                   ": configuration files are looked for in " + Quoted(*value + "/conf/"));
  } else if (trimmed != *value) {
    AddFinding(findings, Severity::kWarning, "environment-blank", {},
               std::string(variable) +
                   " has blanks at its ends, which belong to the paths of files: " + Quoted(*value));
  }
}

void CheckEnvironment(Findings& findings) {
  CheckFileRoot(kRoot, findings);
  CheckFileRoot(kSharedRoot, findings);
  if (ValueOf(kSharedRoot) && !ValueOf(kRoot)) {
    AddFinding(findings, Severity::kWarning, "environment-ignored", {},
               std::string(kSharedRoot) + " is not looked at while " + kRoot + " is not set");
  }
}

void CheckLogDirectory(std::string const& path, Findings& findings) {
  std::size_t const name = path.find_last_not_of('/');
  std::size_t const slash = path.find_last_of('/', name);
  std::string const parent = path.substr(0, slash + 1);
  if (Exists(path) || Exists(parent)) return;
  AddFinding(
      findings, Severity::kNote, "log-directory", {},
      "the default log directory " + Quoted(path) + " cannot be created: the directory above it is missing");
}

}  // namespace

Installation DescribeInstallation() {
  Installation installation;
  for (char const* const name : {kRoot, kSharedRoot, kLogDirectory, kTempDirectory}) {
    installation.environment.push_back({name, ValueOf(name)});
  }
  std::string const root = VeltGetRootPath();
  std::string const logs = VeltGetLogPath();
  std::string const temp = VeltGetDefaultTempPath();
  installation.directories = {Directory("root", root, kRoot, root),
                              Directory("configuration", VeltGetDefaultCfgPath(), kRoot, root),
                              Directory("log", VeltGetDefaultLogPath(), kLogDirectory, logs),
                              Directory("temporary", temp, kTempDirectory, temp)};
  installation.files = {File("default_debug.cfg", VeltGetDefaultDebugCfgFile()),
                        File("velt.cfg", VeltGetDefaultCfgFile()), File("ssl", VeltGetDefaultSslPath())};
  CheckEnvironment(installation.findings);
  CheckLogDirectory(VeltGetDefaultLogPath(), installation.findings);
  return installation;
}

}  // namespace velt::tools::cfg
