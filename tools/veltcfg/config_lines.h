// Reads a configuration file line by line, as the library does.
#ifndef VELT_TOOLS_VELTCFG_CONFIG_LINES_H
#define VELT_TOOLS_VELTCFG_CONFIG_LINES_H

#include <string>
#include <vector>

#include "tools/veltcfg/finding.h"

namespace velt::tools::cfg {

struct Item {
  std::string name;
  std::string value;
  int line = 0;
};

// kBlocking: a pipe or a device, at which the library would wait when it opens the file.
enum class FileState { kMissing, kReadable, kUnreadable, kBlocking };

struct ConfigFile {
  std::string path;  // empty: the environment gives no path for this file
  FileState state = FileState::kMissing;
  std::string reason;       // why the file is not kReadable
  std::vector<Item> items;  // in the order of the file
  Findings findings;        // lines that hold no item, are cut, or end the reading
};

// Reads `path` up to where the library stops reading. However long a line is, memory is needed for the items
// only.
ConfigFile ReadConfigFile(std::string const& path);

// The first item of that name; null when there is none.
Item const* FirstOf(ConfigFile const& file, std::string const& name);

}  // namespace velt::tools::cfg

#endif
