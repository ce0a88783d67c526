// A host that uses a channel without the manager. Its forked child traces, too, which must be refused.
#include <sys/wait.h>
#include <unistd.h>

#include "velt/channel.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  VeltDebugInfo channel(argv[1], "host_", "host 1.0\n", false, false, 0, 1'000'000, 10, 10, false);
  if (!channel.Trace("net", VeltLogLevel(3), "found by pkg-config", nullptr, false, true)) return 3;
  if (!channel.Flush(30'000)) return 4;
  pid_t const child = fork();
  if (child == 0) _exit(channel.Trace("net", VeltLogLevel(3), "lost", nullptr, false, true) ? 1 : 0);
  int status = 0;
  if (waitpid(child, &status, 0) != child) return 5;
  return status == 0 ? 0 : 6;
}
