// The life of the manager: made on first use, initialised once, destroyed, or set aside in a forked child.
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <string>

#include "velt/config.h"
#include "velt/manager.h"

#include "debug/channel/output_thread.h"
#include "debug/manager/config_problems.h"
#include "debug/manager/debug_config.h"
#include "debug/manager/manager_state.h"
#include "debug/manager/module_name.h"
#include "debug/manager/sets_cache.h"
#include "platform/problem_report.h"

namespace velt {

std::atomic<VeltDebugMgr*> ManagerState::m_pInstance{nullptr};

namespace {

// Stores the name of the configuration file, unless one is stored already and `overwrite` is false.
void RememberCfgFile(ManagerState& state, std::string const& file, bool overwrite) {
  MutexLock const lock(state.m_cfgFileLock);
  if (lock.locked() && (overwrite || state.m_strCfgFile.empty())) state.m_strCfgFile = file;
}

// Reads the configuration. If another file than `cfgFile` was read, stores its name.
// Returns false when no file is to be found.
bool ReadConfig(ManagerState& state, std::string const& cfgFile, DebugConfig& config) {
  bool const found = ReadDebugConfig(cfgFile, config);
  if (found && config.file != cfgFile) RememberCfgFile(state, config.file, !cfgFile.empty());
  return found;
}

FileLimits WithinBounds(FileLimits const& limits, std::string const& host_name) {
  FileLimits bounded;
  bounded.m_nFiltLogBufSize = Bounded(kRingRecords, limits.m_nFiltLogBufSize);
  bounded.m_nMaxFileNum = Bounded(kChannels, limits.m_nMaxFileNum);
  bounded.m_nEachFileMaxSize = Bounded(kFileBytes, limits.m_nEachFileMaxSize);
  bounded.m_nEachProcessMaxZipNum =
      Bounded(kArchives, limits.m_nEachProcessMaxZipNum) * ArchiveFactor(host_name);
  bounded.m_nZipFileIncludeFileNum = Bounded(kFilesPerArchive, limits.m_nZipFileIncludeFileNum);
  return bounded;
}

bool OpenMainChannel(ManagerState& state, std::string const& directory, std::string const& fileHeader,
                     bool channelFlag) {
  std::string const path = directory + state.m_strName;
  bool const usable = path.empty() || access(path.c_str(), F_OK) == 0 ||
                      (errno != ENAMETOOLONG && state.m_strName.find('/') == std::string::npos);
  if (!usable) return false;
  state.m_pChannel =
      state.m_channels.MakeMain(state.m_strName, directory, fileHeader, state.m_limits, channelFlag);
  return true;
}

struct InitArguments {
  std::string const& name;
  std::string const& cfgFile;
  std::string const& logDir;
  std::string const& fileHeader;
  bool channelFlag;
  bool silent;
};

bool Initialise_i(ManagerState& state, InitArguments const& given, ConfigProblems& problems) {
  if (state.m_bInit.load(std::memory_order_relaxed)) return true;
  state.m_bSilent.store(given.silent, std::memory_order_relaxed);
  if (given.name.empty()) return false;
  state.m_strName = given.name;
  constexpr mode_t kDirectoryMode = 0755;
  // A failure is ignored: the channel finds out whether the directory is usable.
  if (!given.logDir.empty()) (void)mkdir(given.logDir.c_str(), kDirectoryMode);
  std::string const directory = given.logDir.empty() ? VeltGetDefaultLogPath() : given.logDir;
  if (!given.cfgFile.empty()) RememberCfgFile(state, given.cfgFile, true);

  DebugConfig config;
  bool const found = ReadConfig(state, given.cfgFile, config);
  problems.LookAtFile(given.cfgFile, found, config);
  problems.LookAtValues(config);
  state.m_limits = WithinBounds(config.limits, given.name);
  state.m_modules.RegisterConfigured_i(config.modules);
  problems.LookAtDefaultModule(config.modules.count(kDebugModule) != 0);
  if (!given.silent && !OpenMainChannel(state, directory, given.fileHeader, given.channelFlag)) return false;

  state.m_nForkGeneration = ForkGeneration();
  state.m_bInit.store(true, std::memory_order_release);
  return true;
}

}  // namespace
}  // namespace velt

using velt::ManagerState;

VeltDebugMgr::VeltDebugMgr() : m_pState(new ManagerState) {}

VeltDebugMgr::~VeltDebugMgr() {
  m_pState->m_bInit.store(false, std::memory_order_release);
  delete m_pState->m_pEngine.exchange(nullptr, std::memory_order_acq_rel);
  m_pState->m_channels.EndAll();
  delete m_pState;
}

VeltDebugMgr* VeltDebugMgr::Instance() {
  // Acquire: what the creating thread wrote is seen with the pointer.
  VeltDebugMgr* instance = ManagerState::m_pInstance.load(std::memory_order_acquire);
  if (instance != nullptr) return instance;
  velt::MutexLock const lock(ManagerState::m_pInstLock);
  if (!lock.locked()) return nullptr;
  instance = ManagerState::m_pInstance.load(std::memory_order_relaxed);  // the lock orders it
  if (instance == nullptr) {
    instance = new VeltDebugMgr;
    ManagerState::m_pInstance.store(instance, std::memory_order_release);
  }
  return instance;
}

int VeltDebugMgr::Destroy() {
  // Before the lock: the Destroy of another thread may hold it and wait for this thread.
  if (velt::OnAnyOutputThread()) {
    errno = EDEADLK;
    return -1;
  }
  velt::MutexLock lock(ManagerState::m_pInstLock);
  if (!lock.locked()) return -1;
  VeltDebugMgr* const instance = ManagerState::m_pInstance.load(std::memory_order_relaxed);
  if (instance != nullptr && instance->m_pState->InheritedByFork()) {
    velt::KeepInherited(instance->m_pState->m_inherited, instance);
    velt::ForgetSets();  // its destructor, which is not run, would do it: the next manager has other modules
  } else {
    delete instance;
  }
  ManagerState::m_pInstance.store(nullptr, std::memory_order_release);
  return lock.release();
}

bool VeltDebugMgr::IsInit() const { return m_pState->IsInit(); }

bool VeltDebugMgr::Init(std::string const& name, std::string const& cfgFile, std::string const& logDir,
                        std::string const& fileHeader, bool channelFlag, bool silent) {
  if (m_pState->InheritedByFork()) return true;  // it is initialised; its locks must not be touched
  velt::ReadProblemSetting();
  velt::ConfigProblems problems;
  bool initialised = false;
  {
    velt::WriteLock const lock(m_pState->m_modules.m_tableLock);
    if (!lock.locked()) return false;
    initialised =
        velt::Initialise_i(*m_pState, {name, cfgFile, logDir, fileHeader, channelFlag, silent}, problems);
  }
  problems.Tell();  // without the lock: the handler may call the manager
  return initialised;
}

void VeltDebugMgr::GetCfgItem(std::string const& cfgFile, int& filtLogBufSize, int& maxFileNum,
                              int& maxFileSize, int& eachProcessMaxZipNum, int& zipFileIncludeFileNum,
                              ModuleSets& modules) {
  velt::DebugConfig config;
  config.modules.swap(modules);
  try {
    (void)velt::ReadConfig(*m_pState, cfgFile, config);  // without a file the defaults are the result
  } catch (...) {
    config.modules.swap(modules);  // the caller keeps its own modules when memory runs out
    throw;
  }
  config.modules.swap(modules);
  filtLogBufSize = config.limits.m_nFiltLogBufSize;
  maxFileNum = config.limits.m_nMaxFileNum;
  maxFileSize = config.limits.m_nEachFileMaxSize;
  eachProcessMaxZipNum = config.limits.m_nEachProcessMaxZipNum;
  zipFileIncludeFileNum = config.limits.m_nZipFileIncludeFileNum;
}

int VeltDebugMgr::system(char const* command) {
  if (command == nullptr) return -1;
  sigset_t none;
  sigset_t before;
  sigemptyset(&none);
  int const changed = pthread_sigmask(SIG_SETMASK, &none, &before);
  if (changed != 0) errno = changed;
  std::FILE* const running = popen(command, "w");
  if (running == nullptr) return -1;  // the signals stay unblocked, as the header says
  int const status = pclose(running);
  if (changed == 0) {
    int const restored = pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (restored != 0) errno = restored;
  }
  return status;
}
