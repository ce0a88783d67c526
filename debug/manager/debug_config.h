// The debug configuration: which file, which keys, which defaults, and the modules that they make.
#ifndef VELT_DEBUG_MANAGER_DEBUG_CONFIG_H
#define VELT_DEBUG_MANAGER_DEBUG_CONFIG_H

#include <string>

#include "velt/manager.h"

#include "debug/manager/limits.h"

namespace velt {

struct DebugConfig {
  FileLimits limits;  // as they are in the file; Init applies the bounds
  VeltDebugMgr::ModuleSets modules;
  std::string file;  // the primary file that was read
};

// Reads `cfgFile`, or the installation's own file when that is empty or missing, into `config`; modules are
// added to those that are there. Returns false when no file is to be found at all: `limits` are the defaults
// then, and the rest is untouched.
bool ReadDebugConfig(std::string const& cfgFile, DebugConfig& config);

// The modules of `primary`, and module "debug" of both files, unless `primary_only`. `primary` is read alone.
void ReadModuleSets(std::string& primary, std::string const& secondary, bool primary_only,
                    VeltDebugMgr::ModuleSets& modules);

}  // namespace velt

#endif
