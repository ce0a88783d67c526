// The command line of veltpipe.
#include "tools/veltpipe/options.h"

#include <getopt.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <system_error>

#include "debug/manager/limits.h"

namespace velt::tools {
namespace {

constexpr int kHighestLevel = 31;
constexpr std::size_t kLongestName = 233;  // 255, the longest file name, less the time, ".log" and ".gz"

enum Key {
  kName = 256,
  kDir,
  kSize,
  kKeep,
  kModule,
  kLevel,
  kPrint,
  kEscape,
  kOnStall,
  kConfig,
  kStats,
  kJson,
  kProgress,
  kHelp,
  kVersion
};

constexpr std::array<option, 16> kLongOptions{{{"name", required_argument, nullptr, kName},
                                               {"dir", required_argument, nullptr, kDir},
                                               {"size", required_argument, nullptr, kSize},
                                               {"keep", required_argument, nullptr, kKeep},
                                               {"module", required_argument, nullptr, kModule},
                                               {"level", required_argument, nullptr, kLevel},
                                               {"print", no_argument, nullptr, kPrint},
                                               {"escape", no_argument, nullptr, kEscape},
                                               {"on-stall", required_argument, nullptr, kOnStall},
                                               {"config", required_argument, nullptr, kConfig},
                                               {"stats", no_argument, nullptr, kStats},
                                               {"json", no_argument, nullptr, kJson},
                                               {"progress", no_argument, nullptr, kProgress},
                                               {"help", no_argument, nullptr, kHelp},
                                               {"version", no_argument, nullptr, kVersion},
                                               {nullptr, 0, nullptr, 0}}};

bool Complain(std::string const& what) {
  std::fprintf(stderr, "veltpipe: %s\n", what.c_str());
  return false;
}

// The number that `text` is, if the whole text is one decimal number in the range.
std::optional<int> NumberIn(std::string const& text, int low, int high) {
  int number = 0;
  char const* const end = text.data() + text.size();
  auto const [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end || number < low || number > high) return std::nullopt;
  return number;
}

std::optional<int> NumberOption(char const* option_name, int low, int high) {
  auto const number = NumberIn(optarg, low, high);
  if (!number) {
    Complain(std::string(option_name) + " takes a number from " + std::to_string(low) + " to " +
             std::to_string(high) + ", not \"" + optarg + "\"");
  }
  return number;
}

bool TakeStall(Options& options) {
  std::string const what = optarg;
  options.drop_on_stall = what == "drop";
  return what == "drop" || what == "wait" || Complain("--on-stall takes wait or drop, not \"" + what + "\"");
}

bool TakeOption(int key, CommandLine& line) {
  Options& options = line.options;
  switch (key) {
    case kName:
      options.name = optarg;
      return true;
    case kDir:
      options.directory = optarg;
      return true;
    case kModule:
      options.module = optarg;
      return true;
    case kConfig:
      options.config_file = optarg;
      return true;
    case kPrint:
      options.print = true;
      return true;
    case kEscape:
      options.escape = true;
      return true;
    case kOnStall:
      return TakeStall(options);
    case kStats:
      options.stats = true;
      return true;
    case kJson:
      options.json = true;
      return true;
    case kProgress:
      options.progress = true;
      return true;
    case kSize:
      options.size_mb = NumberOption("--size", kLimitRanges[kFileBytes].low / kMegabyte,
                                     kLimitRanges[kFileBytes].high / kMegabyte);
      return options.size_mb.has_value();
    case kKeep:
      options.keep_files = NumberOption("--keep", kLimitRanges[kArchives].low, kLimitRanges[kArchives].high);
      return options.keep_files.has_value();
    case kLevel: {
      auto const level = NumberOption("--level", 0, kHighestLevel);
      options.level = level.value_or(options.level);
      return level.has_value();
    }
    case kHelp:
      line.request = Request::kHelp;
      return true;
    case kVersion:
      line.request = Request::kVersion;
      return true;
    default:
      return false;  // getopt_long has printed what is wrong
  }
}

// Why `file` cannot be used as a configuration; empty when it can. It has to be a regular file, since the
// library opens it more than once.
std::string WhyUnreadable(std::string const& file) {
  struct stat info {};
  if (stat(file.c_str(), &info) != 0 || access(file.c_str(), R_OK) != 0) return std::strerror(errno);
  if (S_ISDIR(info.st_mode)) return "it is a directory";
  return S_ISREG(info.st_mode) ? "" : "it is not a regular file";
}

bool IsUsable(Options const& options) {
  if (options.name.empty()) return Complain("--name is missing or empty");
  if (options.name.find('/') != std::string::npos) return Complain("--name must not contain a \"/\"");
  if (options.name.size() > kLongestName) return Complain("--name is longer than 233 characters");
  if (options.directory.empty()) return Complain("--dir is missing or empty");
  if (options.module.find('\n') != std::string::npos) return Complain("--module must be one line");
  std::string const reason = options.config_file.empty() ? "" : WhyUnreadable(options.config_file);
  if (!reason.empty())
    return Complain("cannot read the configuration \"" + options.config_file + "\": " + reason);
  if (options.json && !options.stats) return Complain("--json is the form of --stats, which is missing");
  return true;
}

CommandLine UsageError() {
  std::fputs("Try 'veltpipe --help'.\n", stderr);
  return {};
}

}  // namespace

CommandLine ParseCommandLine(int argc, char** argv) {
  CommandLine line;
  line.request = Request::kRun;
  int key = 0;
  while ((key = getopt_long(argc, argv, "", kLongOptions.data(), nullptr)) != -1) {
    if (!TakeOption(key, line)) return UsageError();
    if (line.request != Request::kRun) return line;  // what follows --help or --version is ignored
  }
  if (optind < argc) {
    Complain("unexpected argument \"" + std::string(argv[optind]) + "\"");
    return UsageError();
  }
  return IsUsable(line.options) ? line : UsageError();
}

char const* HelpText() {
  return R"(Usage: some-program 2>&1 | veltpipe --name NAME --dir DIR [OPTION]...
Trace each line of standard input into the log family DIR/NAME<date>_<time>.log: a file that has outgrown its
limit is compressed and a new one begun, and only the newest archives are kept.

  --name NAME    what the file names begin with, as it is
  --dir DIR      where they are; created with its parents when it is missing
  --size MB      limit of one file, 1 to 50 (default 5)
  --keep COUNT   archives kept, 1 to 200 (default 30)
  --module NAME  module that stands in each record (default app)
  --level LEVEL  level of each record, 0 to 31 (default 3); 0 to 3 show as A, E, W, I
  --print        copy each record to standard output
  --escape       write control characters as \xNN
  --on-stall DO  when the log takes no more: wait (default), or drop records, count them and go on reading
  --config FILE  take limits from a debug configuration file; an option given here wins over the file
  --stats        report lines, records, retries and rotations on standard error at the end
  --json         the report of --stats as one line of JSON
  --progress     show lines, bytes, rate and rotations on standard error while it runs, if that is a terminal
  --help         show this text
  --version      show the version

A line of more than 2048 characters becomes several records; a NUL byte becomes the two characters \0.
When the log is slower than the input, the input waits, unless --on-stall says otherwise. A record that the device
refuses (a full disk) is lost, counted and told.
SIGTERM, SIGINT and SIGHUP end it once everything that was read is written.
A second veltpipe on a family is refused.

Exit status: 0 when every line read is in the log, 1 when not, 2 for a wrong command line.
)";
}

}  // namespace velt::tools
