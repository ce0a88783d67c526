// The command line of veltpipe.
#ifndef VELT_TOOLS_VELTPIPE_OPTIONS_H
#define VELT_TOOLS_VELTPIPE_OPTIONS_H

#include <optional>
#include <string>

namespace velt::tools {

struct Options {
  std::string name;         // what the file names begin with
  std::string directory;    // need not exist yet
  std::string config_file;  // empty: none
  std::string module = "app";
  int level = 3;
  std::optional<int> size_mb;     // absent: the configuration decides
  std::optional<int> keep_files;  // absent: the configuration decides
  bool print = false;
  bool escape = false;         // write control characters as \xNN
  bool drop_on_stall = false;  // drop records instead of blocking the input
  bool stats = false;
  bool json = false;  // statistics as JSON
  bool progress = false;
};

enum class Request { kRun, kHelp, kVersion, kUsageError };

struct CommandLine {
  Request request = Request::kUsageError;
  Options options;  // complete and within bounds for kRun only
};

// Reads the arguments. If they are wrong, prints why on standard error and returns the request kUsageError.
CommandLine ParseCommandLine(int argc, char** argv);

// The text of --help, ending in a newline.
char const* HelpText();

}  // namespace velt::tools

#endif
