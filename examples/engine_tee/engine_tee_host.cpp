// engine_tee_host: traces numbered records into log files and to a syslog daemon.
//
// Usage: engine_tee_host DIRECTORY SOCKET COUNT
// DIRECTORY, which must exist, gets the files tee_*.log; SOCKET is the daemon's, /dev/log for the system's
// own.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <utility>

#include "velt/log.h"

#include "engine_syslog/engine_syslog.h"
#include "engine_tee/engine_tee.h"

namespace {

int Run(std::string const& directory, std::string const& socket, long count) {
  VeltDebugMgr* const manager = VeltDebugMgr::Instance();
  if (!manager->Init("engine_tee_host_", "", "", "", false, true)) return 1;  // silent: only the tee writes
  velt::Module const net("net");
  net.Register(velt::UpTo(velt::kInfo), velt::kToFile);

  velt::examples::SyslogOptions options;
  options.socket_path = socket;
  options.ident = "engine_tee_host";
  velt::examples::TeeFiles files;
  files.directory = directory + "/";
  files.prefix = "tee_";
  files.header = "engine_tee_host, an example\n";
  auto syslog = std::make_unique<velt::examples::SyslogEngine>(options);
  auto tee = std::make_unique<velt::examples::TeeEngine>(files, std::move(syslog));
  if (!manager->RegDebugEngine(tee.release())) return 1;  // the manager owns it now

  long refused = 0;
  for (long i = 1; i <= count; ++i) refused += net.Info("record {} of {}", i, count) ? 0 : 1;
  VeltDebugMgr::Destroy();  // deletes the tee, which writes its file and sends what is buffered
  std::printf("%ld of %ld records were refused by one of the two\n", refused, count);
  return refused == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fputs("usage: engine_tee_host DIRECTORY SOCKET COUNT\n", stderr);
    return 2;
  }
  try {
    return Run(argv[1], argv[2], std::strtol(argv[3], nullptr, 10));
  } catch (std::exception const& problem) {
    std::fprintf(stderr, "engine_tee_host: %s\n", problem.what());
    return 1;
  }
}
