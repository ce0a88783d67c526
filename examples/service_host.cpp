// service_host: a small service that uses the library, from setting up its installation root to an orderly
// end.
//
// Usage: service_host [--flat-out | --crash] [ROOT]
// ROOT is made when it is missing; without it, a fresh directory under TMPDIR. The service works for a
// moment, says "ready" and waits for SIGTERM or SIGINT. ROOT then holds the log family (log/demo*) and, one
// message a line, what was traced into it: traced_main.txt and traced_gw.txt.
// --flat-out: instead of that, four threads trace as fast as they can (log/flat_out_*); the messages that the
// library accepted are in traced_flat_out.txt.
// --crash: instead of that, a thread traces and ends by an exception that nobody catches.
#include <pthread.h>

#include <array>
#include <atomic>
#include <bitset>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "flat_out.h"
#include "velt/config.h"
#include "velt/log.h"
#include "velt/manager.h"
#include "velt/process.h"

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

constexpr char const* kName = "demo";   // prefix of the main family's file names
constexpr char const* kGateway = "gw";  // sub-name of the second family
constexpr int kWorkers = 4;
constexpr int kItems = 1500;              // of each worker in each round: two rounds cross one limit of 1 MB
constexpr std::size_t kRingRecords = 20;  // nFiltLogBufSize in conf/default_debug.cfg
constexpr std::size_t kFilteredRecords = 30;  // more than the ring holds

using velt::kError;
using velt::kInfo;
using velt::kWarning;

// One object for each module; copies mean the same module.
velt::Module const& Sched() {
  static velt::Module const module("sched");
  return module;
}
velt::Module const& Net() {
  static velt::Module const module("net");
  return module;
}
velt::Module const& GatewayNet() {  // traces to the second family
  static velt::Module const module("net", kGateway);
  return module;
}

std::atomic<bool> stop_requested{false};
std::atomic<bool> stop_answered{false};

// The messages that must be in the log families afterwards.
struct Journal {
  std::vector<std::string> main;
  std::vector<std::string> gateway;

  void Add(Journal const& other) {
    main.insert(main.end(), other.main.begin(), other.main.end());
    gateway.insert(gateway.end(), other.gateway.begin(), other.gateway.end());
  }
};

// ---- Installation root

fs::path ScratchRoot() {
  std::string pattern = (fs::temp_directory_path() / "service_host_XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make a scratch directory");
  return pattern;
}

// Sets the environment before the first thread starts, since the library reads it on any thread.
void SetUpRoot(fs::path const& root) {
  fs::path const conf = root / "conf";
  fs::path const log = root / "log";
  if (VeltMakeDirEx(conf.c_str()) != 0 || VeltMakeDirEx(log.c_str()) != 0) {
    throw std::runtime_error("cannot set up " + root.string());
  }
  for (char const* const file : {"velt.cfg", "default_debug.cfg"}) {
    fs::copy_file(fs::path(VELT_EXAMPLE_CONF_DIR) / file, conf / file, fs::copy_options::skip_existing);
  }
  setenv("APP_ROOT", root.c_str(), 1);
  setenv("_APP_LOG_DIR", log.c_str(), 1);
}

// ---- Tracing

void StartTracing(fs::path const& log) {
  VeltDebugMgr* const manager = VeltDebugMgr::Instance();
  if (!manager->Init(kName, "", log.string(), "service_host, an example\n", true, false)) {
    throw std::runtime_error("cannot start tracing");
  }
  Sched().Register(velt::UpTo(kInfo), velt::kToFile);
  // "store" inherits the sets of "debug"; "net" is in the configuration file.
  manager->RegSubModuleInfo("store", {}, {}, true);
}

std::string Message(int worker, int round, int item, char const* what) {
  std::array<char, 256> text{};
  (void)std::snprintf(
      text.data(), text.size(),
      "round %d, worker %d, item %d: %s; order %08d went through reception, pricing, stock and delivery "
      "without a fault",
      round, worker, item, what, item * kWorkers + worker);
  return text.data();
}

// Traces one item of a worker, in one of the ways that the library offers. `store_informs` says whether the
// module "store" has level 3 by now.
void TraceItem(int worker, int round, int item, bool store_informs, Journal& journal) {
  VeltDebugMgr* const manager = VeltDebugMgr::Instance();
  switch (item % 6) {
    case 0:
      journal.main.push_back(Message(worker, round, item, "scheduled"));
      Sched().Info("{}", journal.main.back());
      return;
    case 1:
      journal.main.push_back(Message(worker, round, item, "sent"));
      manager->Trace("net", kError, journal.main.back().c_str(), nullptr, false, false);
      return;
    case 2: {
      std::string const message = Message(worker, round, item, "stored");
      manager->Trace("store", kInfo, message.c_str(), nullptr, false, false);
      if (store_informs) journal.main.push_back(message);
      return;
    }
    case 3:
      journal.gateway.push_back(Message(worker, round, item, "received"));
      GatewayNet().Warning("{}", journal.gateway.back());
      return;
    case 4:
      journal.main.push_back(Message(worker, round, item, "confirmed"));
      VeltOutputFrmtString("%s", journal.main.back().c_str());
      return;
    default:
      journal.main.push_back(Message(worker, round, item, "billed"));
      VeltOutputMrbLog(kError, "%s", journal.main.back().c_str());
      return;
  }
}

void RunRound(int round, bool store_informs, Journal& journal) {
  std::array<Journal, kWorkers> journals;
  std::vector<std::thread> workers;
  workers.reserve(kWorkers);
  for (int worker = 0; worker < kWorkers; ++worker) {
    Journal& own = journals.at(static_cast<std::size_t>(worker));
    workers.emplace_back([worker, round, store_informs, &own] {
      for (int item = 0; item < kItems; ++item) TraceItem(worker, round, item, store_informs, own);
    });
  }
  for (auto& worker : workers) worker.join();
  for (auto const& own : journals) journal.Add(own);
}

// A record of level 0 makes the library write the newest filtered records first, those in the ring.
void RaiseAlert(Journal& journal) {
  for (std::size_t i = 0; i < kFilteredRecords; ++i) {
    std::string const message = "filtered record " + std::to_string(i) + ", kept in the ring";
    Net().Info("{}", message);
    if (i >= kFilteredRecords - kRingRecords) journal.main.push_back(message);
  }
  journal.main.emplace_back("the link to the store is down");
  Net().Alert("{}", journal.main.back());
}

// ---- End of the service

sigset_t BlockStopSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  return signals;
}

// A wake-up that comes while no thread waits is lost, so it is repeated until the main thread has reacted.
void AwaitStopSignal(sigset_t signals) {
  int received = 0;
  sigwait(&signals, &received);
  stop_requested = true;
  while (!stop_answered) {
    VeltsvcdServiceExit();
    std::this_thread::sleep_for(milliseconds(20));
  }
}

void WaitForStop() {
  while (!stop_requested) BaseUtilInternal::Instance()->ServiceWait();
  stop_answered = true;
}

void IdleUntilExit(int worker, std::string& message) {
  while (!VeltAppIsExit()) std::this_thread::sleep_for(milliseconds(10));
  message = "worker " + std::to_string(worker) + " saw the exit flag";
  VeltDebugMgr::Instance()->Printf(kWarning, "%s", message.c_str());
}

void ServeUntilStopped(sigset_t stop_signals, Journal& journal) {
  std::array<std::string, kWorkers> messages;
  std::vector<std::thread> workers;
  workers.reserve(kWorkers);
  for (int worker = 0; worker < kWorkers; ++worker) {
    workers.emplace_back(IdleUntilExit, worker, std::ref(messages.at(static_cast<std::size_t>(worker))));
  }
  std::thread listener(AwaitStopSignal, stop_signals);
  std::puts("ready");
  (void)std::fflush(stdout);
  WaitForStop();
  listener.join();
  SetVeltAppExit(true);
  journal.main.emplace_back("===================SetVeltAppExit (1)==================");
  for (auto& worker : workers) worker.join();
  journal.main.insert(journal.main.end(), messages.begin(), messages.end());
}

void WriteMessages(fs::path const& path, std::vector<std::string> const& messages) {
  std::ofstream out(path);
  for (auto const& message : messages) out << message << '\n';
  if (!out.flush()) throw std::runtime_error("cannot write " + path.string());
}

void Serve(fs::path const& root, sigset_t stop_signals) {
  fs::path const log = root / "log";
  Journal journal;
  StartTracing(log);
  RunRound(1, false, journal);
  RaiseAlert(journal);
  VeltDebugMgr::Instance()->SetLogLevel("store", kInfo, true);
  RunRound(2, true, journal);
  ServeUntilStopped(stop_signals, journal);
  VeltDebugMgr::Destroy();
  WriteMessages(root / "traced_main.txt", journal.main);
  WriteMessages(root / "traced_gw.txt", journal.gateway);
  std::printf("traced %zu records into %s/%s*\n", journal.main.size() + journal.gateway.size(), log.c_str(),
              kName);
}

// ---- End by an exception that nobody catches

// Called by the runtime before the process is aborted. What was traced is written first, for five seconds at
// most: an abort by itself loses what is in the queue.
[[noreturn]] void FlushAndAbort() {
  (void)VeltDebugMgr::Instance()->Flush(5000);
  std::abort();
}

void Crash(fs::path const& root) {
  StartTracing(root / "log");
  std::thread([] {
    for (int i = 0; i < 10000; ++i) Sched().Info("record {} before the end", i);
    throw std::runtime_error("a fault of the service");
  }).join();
}

enum class Mode { kServe, kFlatOut, kCrash };

void Run(Mode mode, fs::path const& root, sigset_t stop_signals) {
  switch (mode) {
    case Mode::kFlatOut:
      TraceFlatOut(root / "log", root / "traced_flat_out.txt");
      return;
    case Mode::kCrash:
      Crash(root);
      return;
    case Mode::kServe:
      Serve(root, stop_signals);
  }
}

}  // namespace

int main(int argc, char** argv) {
  std::set_terminate(FlushAndAbort);
  try {
    std::vector<std::string> words(argv + 1, argv + argc);
    Mode mode = Mode::kServe;
    if (!words.empty() && words.front() == "--flat-out") mode = Mode::kFlatOut;
    if (!words.empty() && words.front() == "--crash") mode = Mode::kCrash;
    if (mode != Mode::kServe) words.erase(words.begin());
    fs::path const root = fs::absolute(words.empty() ? ScratchRoot() : fs::path(words.front()));
    // A signal that comes early stays pending until the service waits for it.
    sigset_t const stop_signals = BlockStopSignals();
    SetUpRoot(root);
    Run(mode, root, stop_signals);
    BaseUtilInternal::Destroy();
    return 0;
  } catch (std::exception const& problem) {
    std::fprintf(stderr, "service_host: %s\n", problem.what());
    return 1;
  }
}
