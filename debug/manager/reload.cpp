// Reads the modules of the configuration file again while other threads trace.
#include <sys/stat.h>
#include <unistd.h>

#include <bitset>
#include <cerrno>
#include <cstdint>
#include <map>
#include <string>

#include "velt/config.h"
#include "velt/manager.h"

#include "debug/manager/bit_set_text.h"
#include "debug/manager/debug_config.h"
#include "debug/manager/manager_state.h"
#include "debug/manager/module_name.h"
#include "platform/locks.h"
#include "platform/problem_report.h"

namespace {

using Texts = std::map<std::string, std::string>;

constexpr int kAttempts = 10;  // to read a file that another process is writing

// What changes when a file is written or replaced.
struct Version {
  explicit Version(std::string const& file) { found = stat(file.c_str(), &status) == 0; }

  // Only such a file can be read again: opening a FIFO would wait for its writer.
  bool IsFile() const { return found && S_ISREG(status.st_mode); }

  bool operator==(Version const& other) const {
    auto const same = [](timespec const& left, timespec const& right) {
      return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
    };
    return found && other.found && status.st_dev == other.status.st_dev &&
           status.st_ino == other.status.st_ino && status.st_size == other.status.st_size &&
           same(status.st_mtim, other.status.st_mtim) && same(status.st_ctim, other.status.st_ctim);
  }

  struct stat status = {};
  bool found;
};

// What is wrong with the first text that is no valid set; empty if all are. `marker` follows each name in the
// file. Init replaces an invalid text; a reload changes nothing instead.
std::string FaultOfSets(Texts const& items, char const* marker) {
  for (auto const& [name, value] : items) {
    std::string text = value;
    std::bitset<32> set;
    if (!velt::BitSetFromText(text, set)) return name + marker + " is no text of 0 and 1";
  }
  return {};
}

// The two items of module "debug", under the keys that the host may have changed.
Texts DebugItems(Texts const& all) {
  Texts items;
  for (char const* const key : {DEBUGLEVELITEM, DEBUGOUPUTTITEM}) {
    auto const found = key == nullptr ? all.end() : all.find(key);
    if (found != all.end()) items.insert(*found);
  }
  return items;
}

// Tells of a file that is not taken: the system's reason where it cannot be opened, otherwise the fault.
void TellNotTaken(velt::ManagerState& state, std::string const& file, std::string const& fault) {
  int const reason = access(file.c_str(), R_OK) == 0 ? 0 : errno;
  std::uint64_t all = 0;
  if (!state.m_reloadProblems.Pass(1, all)) return;
  std::string sentence =
      "the modules of the configuration file " + file + " were not taken, nothing has changed";
  if (reason == 0) sentence.append(": ").append(fault);
  velt::TellProblem(VeltProblemKind::kNoConfiguration, sentence, file, reason, all);
}

std::string CfgFile(velt::ManagerState& state) {
  velt::MutexLock const lock(state.m_cfgFileLock);
  return lock.locked() ? state.m_strCfgFile : std::string();
}

// Returns why the file is not taken; empty if it is.
std::string ReadNamedModules(std::string& file, VeltDebugMgr::ModuleSets& modules) {
  std::string const default_file = VeltGetDefaultDebugCfgFile();
  std::string const secondary = VeltGetDefaultCfgFile();
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    Version const before(file);
    if (before.found && !before.IsFile()) return "it is not a regular file";
    Texts all;
    Texts levels;
    Texts outputs;
    bool const read = !file.empty() && VeltAllCfgItem(all, file, "") &&
                      VeltAllCfgItem(levels, file, "_level") && VeltAllCfgItem(outputs, file, "_output");
    modules.clear();
    velt::ReadModuleSets(file, secondary, default_file.empty() || file == secondary, modules);
    if (!(Version(file) == before)) continue;  // the file changed while it was read, or is gone
    Texts const debug = DebugItems(all);
    bool const names_debug =
        !debug.empty() || levels.count(velt::kDebugModule) != 0 || outputs.count(velt::kDebugModule) != 0;
    if (!names_debug) modules.erase(velt::kDebugModule);
    if (!read || modules.empty()) return "it names no module";
    std::string fault = FaultOfSets(levels, "_level");
    if (fault.empty()) fault = FaultOfSets(outputs, "_output");
    if (fault.empty()) fault = FaultOfSets(debug, "");
    return fault;
  }
  return "it changed while it was read";
}

}  // namespace

bool VeltDebugMgr::ReloadModules() {
  if (!IsInit() || m_pState->InheritedByFork()) return false;
  std::string file = CfgFile(*m_pState);
  ModuleSets modules;
  // The file is read without the table's lock, which tracing threads may need.
  std::string const fault = ReadNamedModules(file, modules);
  if (!fault.empty()) {
    TellNotTaken(*m_pState, file, fault);
    return false;
  }
  velt::WriteLock const lock(m_pState->m_modules.m_tableLock);
  if (!lock.locked()) return false;
  // The first changed module makes what threads remember out of date: they then wait for the lock, and see
  // all modules changed.
  m_pState->m_modules.RegisterConfigured_i(modules);
  return true;
}
