// Where the installation's files are, from the environment.
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>

#include "velt/config.h"

#include "config/text.h"

namespace {

constexpr char const* kSlash = "/";
constexpr char const* kConfDirectory = "conf/";
constexpr char const* kConfInRoot = "/conf/";
constexpr char const* kLogDirectory = "mrblog/";
constexpr char const* kMainFile = "velt.cfg";
constexpr char const* kDebugFile = "default_debug.cfg";
constexpr char const* kSslName = "ssl";

std::string DirectoryOf(char const* variable) {
  char const* const value = std::getenv(variable);
  if (value == nullptr) return {};
  std::string directory = TrimString(value, velt::kBlankCharacters);
  if (!directory.empty() && directory.back() != '/') directory += kSlash;
  return directory;
}

}  // namespace

std::string VeltGetRootPath() { return DirectoryOf("APP_ROOT"); }

std::string VeltGetLogPath() { return DirectoryOf("_APP_LOG_DIR"); }

std::string VeltGetDefaultTempPath() { return DirectoryOf("_APP_TMP_DIR"); }

std::string VeltGetTraceDir() {
  // Stored once and never freed: a trace call during exit may still need it. Acquire pairs with the release
  // of the exchange below, so that the whole string is seen.
  static std::atomic<std::string const*> known{nullptr};
  if (std::string const* const directory = known.load(std::memory_order_acquire)) return *directory;

  std::string directory = VeltGetLogPath();
  if (directory.empty()) return directory;  // not kept: the variable may still be set later
  auto made = std::make_unique<std::string const>(std::move(directory));
  std::string const* first = nullptr;
  if (known.compare_exchange_strong(first, made.get(), std::memory_order_acq_rel,
                                    std::memory_order_acquire)) {
    return *made.release();
  }
  return *first;
}

std::string VeltGetDefaultLogPath() { return VeltGetTraceDir() + kSlash + kLogDirectory; }

std::string VeltGetDefaultCfgPath() { return VeltGetRootPath() + kConfDirectory; }

std::string VeltGetConfFullPath(std::string const& file) {
  char const* const root = std::getenv("APP_ROOT");
  if (root == nullptr) return {};
  std::string candidate = std::string(root) + kConfInRoot + file;
  if (access(candidate.c_str(), F_OK) == 0) return candidate;
  char const* const shared = std::getenv("COMMON_LIB_PATH");
  if (shared == nullptr) return {};
  return std::string(shared) + kConfInRoot + file;
}

std::string VeltGetDefaultCfgFile() { return VeltGetConfFullPath(kMainFile); }

std::string VeltGetDefaultDebugCfgFile() { return VeltGetConfFullPath(kDebugFile); }

std::string VeltGetDefaultSslPath() { return VeltGetConfFullPath(kSslName); }
