// The command line of veltcfg.
#include "tools/veltcfg/options.h"

#include <getopt.h>

#include <array>
#include <cstdio>

namespace velt::tools::cfg {
namespace {

enum Key { kName = 256, kJson, kQuiet, kHelp, kVersion };

constexpr std::array<option, 6> kLongOptions{{{"name", required_argument, nullptr, kName},
                                              {"json", no_argument, nullptr, kJson},
                                              {"quiet", no_argument, nullptr, kQuiet},
                                              {"help", no_argument, nullptr, kHelp},
                                              {"version", no_argument, nullptr, kVersion},
                                              {nullptr, 0, nullptr, 0}}};

CommandLine UsageError(std::string const& what) {
  if (!what.empty()) std::fprintf(stderr, "veltcfg: %s\n", what.c_str());
  std::fputs("Try 'veltcfg --help'.\n", stderr);
  return {};
}

}  // namespace

CommandLine ParseCommandLine(int argc, char** argv) {
  CommandLine line;
  line.request = Request::kRun;
  int key = 0;
  while ((key = getopt_long(argc, argv, "", kLongOptions.data(), nullptr)) != -1) {
    switch (key) {
      case kName:
        line.options.name = optarg;
        break;
      case kJson:
        line.options.json = true;
        break;
      case kQuiet:
        line.options.quiet = true;
        break;
      case kHelp:
        line.request = Request::kHelp;
        return line;
      case kVersion:
        line.request = Request::kVersion;
        return line;
      default:
        return UsageError({});  // getopt_long has said what is wrong
    }
  }
  if (line.options.json && line.options.quiet) {
    return UsageError("--quiet shortens the report for people; of --json, take the member findings");
  }
  if (line.options.name.empty()) return UsageError("--name is empty; no host starts without a name");
  if (optind < argc) {
    line.options.file = argv[optind++];
    if (line.options.file.empty())
      return UsageError("FILE is empty; leave it out for the installation's own");
  }
  if (optind < argc) return UsageError("unexpected argument \"" + std::string(argv[optind]) + "\"");
  return line;
}

char const* HelpText() {
  return R"(Usage: veltcfg [OPTION]... [FILE]
Show what a host reads from the environment and its debug configuration, and everything in there that is replaced,
cut or ignored. FILE is the configuration that the host names itself; without it, the installation's own is read.
Nothing is changed on disk.

  --name NAME    name of the host (default server_); only VELTMrb_p2_ makes a difference
  --json         print the report as JSON
  --quiet        print the findings alone, nothing where there are none
  --help         show this text
  --version      show the version

The environment is the caller's: run it as the host is run, for instance APP_ROOT=/opt/server veltcfg.

Exit status: 0 when all is well, 1 with warnings, 2 when no configuration can be read or the command line is wrong.
)";
}

}  // namespace velt::tools::cfg
