// The command line of veltcfg.
#ifndef VELT_TOOLS_VELTCFG_OPTIONS_H
#define VELT_TOOLS_VELTCFG_OPTIONS_H

#include <string>

namespace velt::tools::cfg {

struct Options {
  std::string file;              // the host's own; empty: it has none
  std::string name = "server_";  // of the host; never empty
  bool json = false;
  bool quiet = false;  // the findings alone
};

enum class Request { kRun, kHelp, kVersion, kUsageError };

struct CommandLine {
  Request request = Request::kUsageError;
  Options options;
};

// Reads the arguments. What is wrong with them is said on standard error; the request is then kUsageError.
CommandLine ParseCommandLine(int argc, char** argv);

// The text of --help, ending in a newline.
char const* HelpText();

}  // namespace velt::tools::cfg

#endif
