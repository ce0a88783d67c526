// engine_tee_host: traces numbered records into log files and to a syslog daemon.
//
// Usage: engine_tee_host DIRECTORY SOCKET COUNT
// DIRECTORY, which must exist, gets the files tee_*.log; SOCKET is the daemon's, /dev/log for the system's
// own. Exit 0 when both have every record.
#include <charconv>
#include <chrono>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
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
  options.room_limit =
      std::chrono::seconds(10);  // calls are slowed to the daemon's pace, records are not dropped
  options.stop_limit = std::chrono::seconds(10);
  velt::examples::TeeFiles files;
  files.directory = directory + "/";
  files.prefix = "tee_";
  files.header = "engine_tee_host, an example\n";
  auto owned_syslog = std::make_unique<velt::examples::SyslogEngine>(options);
  velt::examples::SyslogEngine* const syslog = owned_syslog.get();
  auto owned_tee = std::make_unique<velt::examples::TeeEngine>(files, std::move(owned_syslog));
  velt::examples::TeeEngine* const tee = owned_tee.get();
  if (!manager->RegDebugEngine(owned_tee.release())) return 1;  // the manager owns it now

  for (long i = 1; i <= count; ++i) net.Info("record {} of {}", i, count);
  syslog->Stop();
  (void)tee->FlushFiles(10'000);  // the counts say what is missing
  std::uint64_t const written = tee->FileCounts().written;
  std::uint64_t const sent = syslog->Counters().sent;
  std::printf("of %ld records the files have %" PRIu64 ", the daemon has %" PRIu64 "\n", count, written,
              sent);
  VeltDebugMgr::Destroy();  // deletes the tee, which deletes the other engine
  auto const all = static_cast<std::uint64_t>(count);
  return written == all && sent == all ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  long count = 0;
  char const* const number_end = argc == 4 ? argv[3] + std::strlen(argv[3]) : nullptr;
  if (argc != 4 || std::from_chars(argv[3], number_end, count).ptr != number_end || count < 0) {
    std::fputs("usage: engine_tee_host DIRECTORY SOCKET COUNT\n", stderr);
    return 2;
  }
  try {
    return Run(argv[1], argv[2], count);
  } catch (std::exception const& problem) {
    std::fprintf(stderr, "engine_tee_host: %s\n", problem.what());
    return 1;
  }
}
