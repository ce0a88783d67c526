// A configuration file line by line, as the library reads it.
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

// Blocking is what would hold the library up when it opens the file: a pipe, a device.
enum class FileState { kMissing, kReadable, kUnreadable, kBlocking };

struct ConfigFile {
  std::string path;  // empty: there is no such file to look for
  FileState state = FileState::kMissing;
  std::string reason;       // of a state other than kReadable
  std::vector<Item> items;  // in the order of the file
  Findings findings;        // lines that hold no item, are cut, or end the reading
};

// Reads `path` up to where the library stops. Memory is bounded by the items, not by the length of a line.
ConfigFile ReadConfigFile(std::string const& path);

// The first line of that name; null when there is none.
Item const* FirstOf(ConfigFile const& file, std::string const& name);

}  // namespace velt::tools::cfg

#endif
