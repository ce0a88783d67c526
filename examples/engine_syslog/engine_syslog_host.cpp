// engine_syslog_host: traces numbered records through a SyslogEngine.
//
// Usage: engine_syslog_host SOCKET COUNT [rfc5424]
// SOCKET is the daemon's, /dev/log for the system's own. Exit 0 when the daemon took every record.
#include <charconv>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <thread>

#include "velt/manager.h"

#include "engine_syslog.h"

namespace {

constexpr VeltLogLevel kInformation{3};

// A host may try again, drop or write elsewhere what the buffer has no room for. This one tries again.
void TraceUntilTaken(std::string const& text) {
  while (!VeltDebugMgr::Instance()->Trace("count", kInformation, text.c_str(), nullptr, false, true)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

int Run(velt::examples::SyslogOptions const& options, long count) {
  VeltDebugMgr* const manager = VeltDebugMgr::Instance();
  if (!manager->Init("engine_syslog_host_", "", "", "", false, true)) return 1;  // silent: writes no files
  auto owned = std::make_unique<velt::examples::SyslogEngine>(options);
  velt::examples::SyslogEngine* const engine = owned.get();
  if (!manager->RegDebugEngine(owned.release())) return 1;  // the manager owns it now
  for (long i = 1; i <= count; ++i)
    TraceUntilTaken("record " + std::to_string(i) + " of " + std::to_string(count));
  engine->Stop();
  velt::examples::SyslogCounters const counters = engine->Counters();
  std::printf("accepted %" PRIu64 ", sent %" PRIu64 ", lost %" PRIu64 "\n", counters.accepted, counters.sent,
              counters.lost);
  VeltDebugMgr::Destroy();
  return counters.sent == static_cast<std::uint64_t>(count) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  long count = 0;
  char const* const number_end = argc >= 3 ? argv[2] + std::strlen(argv[2]) : nullptr;
  if (argc < 3 || std::from_chars(argv[2], number_end, count).ptr != number_end || count < 0) {
    std::fputs("usage: engine_syslog_host SOCKET COUNT [rfc5424]\n", stderr);
    return 2;
  }
  velt::examples::SyslogOptions options;
  options.socket_path = argv[1];
  options.ident = "engine_syslog_host";
  options.stop_limit = std::chrono::seconds(60);
  if (argc > 3 && std::strcmp(argv[3], "rfc5424") == 0)
    options.format = velt::examples::SyslogFormat::kRfc5424;
  try {
    return Run(options, count);
  } catch (std::exception const& problem) {
    std::fprintf(stderr, "engine_syslog_host: %s\n", problem.what());
    return 1;
  }
}
