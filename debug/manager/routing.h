// Decides which outputs a record goes to.
#ifndef VELT_DEBUG_MANAGER_ROUTING_H
#define VELT_DEBUG_MANAGER_ROUTING_H

#include <string>

#include "velt/manager.h"

namespace velt {

struct ManagerState;

struct OutputFlags {
  bool print;
  bool log;
};

// The outputs of a record of `module` at `level` whose caller asked for `asked`. Throws std::out_of_range for
// a level that is no bit of the module's set.
OutputFlags ResolveFlags(ManagerState& state, std::string const& module, VeltLogLevel level,
                         OutputFlags asked);

}  // namespace velt

#endif
