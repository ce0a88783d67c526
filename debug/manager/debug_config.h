// Reads the debug configuration: finds the file, and reads the limits and modules in it.
#ifndef VELT_DEBUG_MANAGER_DEBUG_CONFIG_H
#define VELT_DEBUG_MANAGER_DEBUG_CONFIG_H

#include <string>

#include "velt/manager.h"

#include "debug/manager/limits.h"

namespace velt {

struct DebugConfig {
  FileLimits limits;  // the numbers in the file; Init applies the bounds
  VeltDebugMgr::ModuleSets modules;
  std::string file;  // the primary file that was read
};

// Reads `cfgFile`, or the installation's own file if that is empty or missing, into `config`. Modules are
// added to those in `config`. Returns false when there is no path for any file: `limits` are then the
// defaults, and the rest is untouched.
bool ReadDebugConfig(std::string const& cfgFile, DebugConfig& config);

// Adds the modules of `primary` to `modules`, and module "debug", which is looked up in `primary` and then,
// unless `primary_only`, in `secondary`. Does not change `primary`.
void ReadModuleSets(std::string& primary, std::string const& secondary, bool primary_only,
                    VeltDebugMgr::ModuleSets& modules);

}  // namespace velt

#endif
