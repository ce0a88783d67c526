// The content of veltcfg's report, independent of its form (text or JSON).
#ifndef VELT_TOOLS_VELTCFG_REPORT_H
#define VELT_TOOLS_VELTCFG_REPORT_H

#include <bitset>
#include <optional>
#include <string>
#include <vector>

#include "debug/manager/limits.h"
#include "tools/veltcfg/config_lines.h"
#include "tools/veltcfg/finding.h"
#include "tools/veltcfg/installation.h"

namespace velt::tools::cfg {

// Which files the library reads, and in which order.
struct Sources {
  ConfigFile first;             // its path is empty when there is none at all
  ConfigFile main;              // velt.cfg, which also has the switches
  bool main_is_second = false;  // whether items that the first file lacks are looked up in `main`

  // Whether the library can be asked: it has a file to read, and would not wait in opening one.
  bool AreUsable() const { return first.state == FileState::kReadable && main.state != FileState::kBlocking; }
};

// A number of the configuration: its text, and how the library reads it.
struct NumberView {
  std::string key;
  std::optional<std::string> text;  // absent: no file has it
  Place place;                      // where the text is
  int number = 0;                   // as the library reads it; set only with a text
};

struct LimitView {
  NumberView number;
  Limit limit = kRingRecords;
  char const* unit = "";
  int as_read = 0;  // in the unit of the limit, before the bounds are applied
  int value = 0;    // what the host uses
};

struct SwitchView {
  NumberView number;
  bool on = false;
};

struct SetView {
  std::bitset<32> bits;        // what the host uses
  std::bitset<32> configured;  // before the mask is applied
  std::optional<Item> item;    // in the file that is read first; absent: the default is used
};

struct ModuleView {
  std::string name;
  SetView levels;
  SetView outputs;
};

struct Report {
  std::string host_name;
  Installation installation;
  Sources sources;
  std::vector<LimitView> limits;  // empty, like the next two, when the library cannot be asked
  std::vector<SwitchView> switches;
  std::vector<ModuleView> modules;
  Findings findings;  // the installation's first, then by file and line
};

}  // namespace velt::tools::cfg

#endif
