// The directories and files that the environment names.
#ifndef VELT_TOOLS_VELTCFG_INSTALLATION_H
#define VELT_TOOLS_VELTCFG_INSTALLATION_H

#include <optional>
#include <string>
#include <vector>

#include "tools/veltcfg/finding.h"

namespace velt::tools::cfg {

struct Variable {
  std::string name;
  std::optional<std::string> value;  // absent: not set
};

// A path that the library derives, and what it derives it from.
struct Location {
  std::string name;
  std::string path;  // empty: there is none
  std::string from;  // a variable, or "default"; empty with the path
  bool exists = false;
};

struct Installation {
  std::vector<Variable> environment;
  std::vector<Location> directories;
  std::vector<Location> files;
  Findings findings;
};

// Reads the environment, and asks the library for the paths that it derives from it.
Installation DescribeInstallation();

}  // namespace velt::tools::cfg

#endif
