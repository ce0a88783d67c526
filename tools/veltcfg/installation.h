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

// A path as the library makes it, and what it made it of.
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

// Reads the environment, and asks the library what it makes of it.
Installation DescribeInstallation();

}  // namespace velt::tools::cfg

#endif
