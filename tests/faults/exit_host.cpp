// A host that ends without Destroy, linked with the shared library as hosts are.
//
//   exit_host directory=D way=WAY [run=0] [records=1000] [rules=SHIM]
//
// Traces "R<run>-<number>" for each record, prints "accepted N" and leaves by WAY:
//
//   return, exit, thread        out of main; std::exit there; std::exit in another thread
//   _exit, abort                without the library
//   terminate                   by an exception that nobody catches, with a handler that flushes
//   trace, destroy              return, and a static object traces or calls Destroy in its destructor
//   trace_destroy, destroy_trace  return, and two static objects do both, in that order
//   fork                        a forked child leaves by std::exit at once, and the process returns
//   fork_own                    a forked child makes a manager of its own ("child_"), and both leave by
//   std::exit
//   busy                        return, while another thread traces to the family "t_busy_" without a pause
//
// `rules` are for the shim, as in VELT_SHIM; they hold from the first record on. "child_ms N" is how long the
// child of way=fork took to leave.
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>

#include "velt/manager.h"

#include "tests/faults/sanitizers.h"
#include "tests/faults/shim/shim.h"

namespace {

constexpr VeltLogLevel kLevel3{3};

std::map<std::string, std::string> arguments;  // made before the two below, so it outlives them
int traced = 0;

void Trace(int count) {
  for (int i = 0; i < count; ++i) {
    std::string const text = "R" + arguments["run"] + "-" + std::to_string(traced);
    if (VeltDebugMgr::Instance()->AppTrace("m", kLevel3, text.c_str(), nullptr, false, true, "")) ++traced;
  }
}

// Its destructor, which runs at the process's end, traces or calls Destroy.
struct Leaver {
  Leaver() = default;
  Leaver(Leaver const&) = delete;
  Leaver& operator=(Leaver const&) = delete;
  ~Leaver() {
    if (does == 't') Trace(100);
    if (does == 'd') (void)VeltDebugMgr::Destroy();
  }
  char does = ' ';
};

Leaver second_to_go;
Leaver first_to_go;

bool Init(std::string const& prefix) {
  std::string const config = arguments["directory"] + "/" + prefix + "host.cfg";
  if (std::FILE* const file = std::fopen(config.c_str(), "w"); file != nullptr) {
    std::fputs("nEachFileMaxSize=1\nnEachProcessMaxZipNum=200\n", file);
    std::fclose(file);
  }
  std::string const logs = arguments["logs"].empty() ? arguments["directory"] + "/logs" : arguments["logs"];
  return VeltDebugMgr::Instance()->Init(prefix, config, logs, "header\n", false, false);
}

void SayAccepted() {
  std::printf("accepted %d\n", traced);
  std::fflush(stdout);
}

// Whether the child ends within ten seconds; if not, it is killed.
bool Ends(pid_t child) {
  for (int tries = 0; tries < 10'000; ++tries) {
    if (waitpid(child, nullptr, WNOHANG) == child) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  return false;
}

// The milliseconds that a forked child took to leave; -1 when it did not.
long long ChildLeaves() {
  auto const begin = std::chrono::steady_clock::now();
  pid_t const child = fork();
  if (child == 0) std::exit(0);
  if (!Ends(child)) return -1;
  auto const took = std::chrono::steady_clock::now() - begin;
  return std::chrono::duration_cast<std::chrono::milliseconds>(took).count();
}

void ForkAndLeave() {
  // g++'s address sanitizer does not hold its allocator's locks over a fork: now and then a child waits for
  // one.
  constexpr int kAttempts = VELT_ADDRESS_SANITIZER ? 3 : 1;
  long long child_ms = -1;
  for (int i = 0; i < kAttempts && child_ms < 0; ++i) child_ms = ChildLeaves();
  std::printf("child_ms %lld\n", child_ms);
  velt::shim::ClearRules();
}

void ForkWithAManagerOfItsOwn() {
  pid_t const child = fork();
  if (child == 0) {
    (void)VeltDebugMgr::Destroy();
    if (!Init("child_")) std::_Exit(1);
    Trace(1'000);
    std::exit(0);
  }
  waitpid(child, nullptr, 0);
}

void TraceWithoutEnd() {
  for (;;) {
    (void)VeltDebugMgr::Instance()->AppTrace("m", kLevel3, "busy", nullptr, false, true, "busy");
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
}

[[noreturn]] void FlushAndLeave() {
  bool const flushed = VeltDebugMgr::Instance()->Flush(30'000);
  _exit(flushed ? 0 : 1);
}

void Leave(std::string const& way) {
  if (way == "exit") std::exit(0);
  if (way == "thread") std::thread([] { std::exit(0); }).join();
  if (way == "_exit") _exit(0);
  if (way == "abort") std::abort();
  if (way == "terminate") {
    std::set_terminate(FlushAndLeave);
    throw std::runtime_error("nobody catches it");
  }
  if (way == "busy") std::thread(TraceWithoutEnd).detach();
  if (way == "fork") ForkAndLeave();
  if (way == "fork_own") ForkWithAManagerOfItsOwn();
}

void PrepareStatics(std::string const& way) {
  if (way == "trace" || way == "trace_destroy") first_to_go.does = 't';
  if (way == "destroy" || way == "destroy_trace") first_to_go.does = 'd';
  if (way == "trace_destroy") second_to_go.does = 'd';
  if (way == "destroy_trace") second_to_go.does = 't';
}

}  // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): its test sees the signal
int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    std::string const word = argv[i];
    std::size_t const equal = word.find('=');
    if (equal == std::string::npos) return 2;
    arguments[word.substr(0, equal)] = word.substr(equal + 1);
  }
  if (!Init("t_")) return 3;
  if (!arguments["rules"].empty()) {
    setenv("VELT_SHIM", arguments["rules"].c_str(), 1);
    velt::shim::ReadEnvironment();
  }
  Trace(std::stoi(arguments["records"]));
  SayAccepted();
  PrepareStatics(arguments["way"]);
  Leave(arguments["way"]);
  return 0;
}
