// Reports of problems in the debug configuration.
#ifndef VELT_DEBUG_MANAGER_CONFIG_PROBLEMS_H
#define VELT_DEBUG_MANAGER_CONFIG_PROBLEMS_H

#include <string>
#include <vector>

#include "velt/problem.h"

#include "debug/manager/debug_config.h"

namespace velt {

// Collects reports while a lock is held; Tell makes them afterwards.
class ConfigProblems {
 public:
  // The host named `cfgFile`; `found` tells whether `config` was read from any file.
  void LookAtFile(std::string const& cfgFile, bool found, DebugConfig const& config);

  // Numbers out of their bounds, and texts that are no set.
  void LookAtValues(DebugConfig const& config);

  // Whether module "debug" is registered.
  void LookAtDefaultModule(bool exists);

  // Makes the reports. The caller must hold no lock.
  void Tell() const;

 private:
  struct Problem {
    VeltProblemKind kind;
    std::string sentence;
    std::string path;
    int error;
  };

  void LookAtTexts(std::string const& file, char const* marker);

  std::vector<Problem> problems_;
};

}  // namespace velt

#endif
