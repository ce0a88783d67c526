// The command line of veltcfg.
#ifndef VELT_TOOLS_VELTCFG_OPTIONS_H
#define VELT_TOOLS_VELTCFG_OPTIONS_H

#include <string>

namespace velt::tools::cfg {

struct Options {
  std::string file;              // the configuration that the host names; empty: it names none
  std::string name = "server_";  // the host's name; never empty
  bool json = false;
  bool quiet = false;  // print the findings only
};

enum class Request { kRun, kHelp, kVersion, kUsageError };

struct CommandLine {
  Request request = Request::kUsageError;
  Options options;
};

// Reads the arguments. If they are wrong, prints why on standard error and returns the request kUsageError.
CommandLine ParseCommandLine(int argc, char** argv);

// The text of --help, ending in a newline.
char const* HelpText();

}  // namespace velt::tools::cfg

#endif
