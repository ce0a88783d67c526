// veltpipe: standard input, line by line, into a rotated and compressed log family.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>

#include "velt/config.h"

#include "tools/say.h"
#include "tools/veltpipe/family_lock.h"
#include "tools/veltpipe/feeder.h"
#include "tools/veltpipe/input.h"
#include "tools/veltpipe/limits.h"
#include "tools/veltpipe/line_splitter.h"
#include "tools/veltpipe/options.h"
#include "tools/veltpipe/progress.h"
#include "tools/veltpipe/statistics.h"
#include "tools/veltpipe/stop_signal.h"

namespace {

using namespace velt::tools;

constexpr int kSuccess = 0;
constexpr int kLoss = 1;
constexpr int kUsage = 2;

// Opens /dev/null in place of standard streams that are closed, so that no log file gets their descriptor.
void OccupyStandardStreams() {
  int descriptor = 0;
  do {
    descriptor = open("/dev/null", O_RDWR | O_CLOEXEC);
  } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
  if (descriptor >= 0) close(descriptor);
}

// When standard output's reader has gone, or a file reaches the size limit of the process, a write fails; the
// process goes on.
void IgnoreWriteSignals() {
  (void)std::signal(SIGPIPE, SIG_IGN);
  (void)std::signal(SIGXFSZ, SIG_IGN);
}

bool Refuse(char const* what, std::string const& directory, char const* reason) {
  std::fprintf(stderr, "veltpipe: %s %s: %s; give another place with --dir\n", what, directory.c_str(),
               reason);
  return false;
}

// Tries again to learn the reason: the library's errno is only that of its last access().
std::string WhyNotMade(std::string const& directory) {
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  return error ? error.message() : "the path is too long";
}

bool PrepareDirectory(std::string const& directory) {
  if (VeltMakeDirEx(directory.c_str()) != 0) {
    std::string const reason =
        directory.find('$') != std::string::npos ? "there is a \"$\" in the path" : WhyNotMade(directory);
    return Refuse("cannot create the directory", directory, reason.c_str());
  }
  struct stat info {};
  if (stat(directory.c_str(), &info) == 0 && !S_ISDIR(info.st_mode)) {
    return Refuse("cannot write in", directory, "it is not a directory");
  }
  if (access(directory.c_str(), W_OK | X_OK) != 0) {
    return Refuse("cannot write in", directory, std::strerror(errno));
  }
  return true;
}

// False when another process has the lock. If locking itself fails, veltpipe goes on: not reading the input
// would be worse.
bool IsAlone(FamilyLock const& lock, Options const& options) {
  if (lock.IsTaken()) {
    std::fprintf(
        stderr,
        "veltpipe: another veltpipe writes the family %s in %s; give another --name or another place with "
        "--dir\n",
        options.name.c_str(), options.directory.c_str());
    return false;
  }
  if (lock.Error() != 0) {
    std::fprintf(stderr,
                 "veltpipe: cannot lock the family %s in %s: %s; a second veltpipe would not be noticed\n",
                 options.name.c_str(), options.directory.c_str(), std::strerror(lock.Error()));
  }
  return true;
}

int Run(Options const& options) {
  OccupyStandardStreams();
  IgnoreWriteSignals();
  StopSignal stop;
  if (!PrepareDirectory(options.directory)) return kLoss;
  FamilyLock const lock(options.directory, options.name);
  if (!IsAlone(lock, options)) return kLoss;

  Statistics statistics;
  Feeder feeder(options, LimitsFor(options), stop, statistics);
  LineSplitter lines(options.escape, [&feeder](std::string const& message) { feeder.Feed(message); });
  Progress progress(options.progress, statistics, [&feeder] { feeder.Refresh(); });
  int const read_error = ReadInput(STDIN_FILENO, stop, lines, statistics, progress);
  lines.Finish();
  feeder.Finish();
  statistics.lines_in = lines.Lines();
  progress.Finish();

  if (read_error != 0)
    std::fprintf(stderr, "veltpipe: cannot read standard input: %s; it takes a pipe or a file\n",
                 std::strerror(read_error));
  PrintLoss(statistics, feeder.OpenError(), feeder.WriteError(), stderr);
  if (options.stats) (options.json ? PrintStatisticsAsJson : PrintStatistics)(statistics, stderr);
  return read_error == 0 && !HasLoss(statistics) ? kSuccess : kLoss;
}

int Serve(int argc, char** argv) {
  CommandLine const line = ParseCommandLine(argc, argv);
  switch (line.request) {
    case Request::kHelp:
      return Say("veltpipe", HelpText()) ? kSuccess : kLoss;
    case Request::kVersion:
      return Say("veltpipe", "veltpipe " VELT_VERSION "\n") ? kSuccess : kLoss;
    case Request::kUsageError:
      return kUsage;
    case Request::kRun:
      break;
  }
  return Run(line.options);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Serve(argc, argv);
  } catch (std::exception const& problem) {
    std::fprintf(stderr, "veltpipe: %s\n", problem.what());
    return kLoss;
  }
}
