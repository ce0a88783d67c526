// The module that is used when none is named, or the named one is not registered.
#ifndef VELT_DEBUG_MANAGER_MODULE_NAME_H
#define VELT_DEBUG_MANAGER_MODULE_NAME_H

#include <string>

namespace velt {

inline constexpr char const* kDebugModule = "debug";

// `name`, or "debug" when it is empty.
inline std::string ModuleOrDebug(std::string const& name) { return name.empty() ? kDebugModule : name; }

}  // namespace velt

#endif
