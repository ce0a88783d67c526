// The library changes nothing of its host's process. A process in an unusual state uses manager, channels,
// rotation and look-ups; its state is compared before, meanwhile and afterwards.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <atomic>

#include <cfenv>
#include <climits>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <locale>
#include <map>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "velt/config.h"
#include "velt/manager.h"
#include "velt/process.h"

#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/manager_host.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

using State = std::map<std::string, std::string>;

// NOLINTBEGIN(bugprone-sizeof-expression): of a pointer it is the pointer itself that is compared
template <typename Value>
std::string Bytes(Value const& value) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  std::array<unsigned char, sizeof(Value)> bytes{};
  std::memcpy(bytes.data(), &value, sizeof value);
  for (unsigned const byte : bytes) text << std::hex << byte << '.';
  return text.str();
}
// NOLINTEND(bugprone-sizeof-expression)

std::string Mask() {
  sigset_t mask;
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  std::string text;
  for (int signal = 1; signal < NSIG; ++signal) text += sigismember(&mask, signal) == 1 ? '1' : '0';
  return text;
}

void AddSignals(State& state) {
  for (int signal = 1; signal < NSIG; ++signal) {
    struct sigaction act {};
    if (sigaction(signal, nullptr, &act) != 0) continue;  // the two that the C library keeps for itself
    std::string text = Bytes(act.sa_handler) + " flags " + std::to_string(act.sa_flags) + " mask ";
    for (int other = 1; other < NSIG; ++other) text += sigismember(&act.sa_mask, other) == 1 ? '1' : '0';
    state["signal " + std::to_string(signal)] = text;
  }
  state["signal mask"] = Mask();
  for (int const timer : {ITIMER_REAL, ITIMER_VIRTUAL, ITIMER_PROF}) {
    itimerval value{};
    getitimer(static_cast<__itimer_which_t>(timer), &value);
    state["timer " + std::to_string(timer)] = Bytes(value.it_interval);
  }
}

void AddLimits(State& state) {
  for (int resource = 0; resource < RLIM_NLIMITS; ++resource) {
    rlimit limit{};
    if (getrlimit(static_cast<__rlimit_resource>(resource), &limit) == 0) {
      state["limit " + std::to_string(resource)] =
          std::to_string(limit.rlim_cur) + " " + std::to_string(limit.rlim_max);
    }
  }
  state["priority"] = std::to_string(getpriority(PRIO_PROCESS, 0));
}

// The parts of the kernel's view of this process that only the process itself can change.
void AddKernelView(State& state) {
  std::ifstream in("/proc/self/status");
  for (std::string line; std::getline(in, line);) {
    for (char const* const field :
         {"Name:", "Umask:", "PPid:", "Uid:", "Gid:", "Groups:", "NSpid:", "CapInh:", "CapPrm:", "CapEff:",
          "CapBnd:", "CapAmb:", "NoNewPrivs:", "Seccomp:", "SigIgn:", "SigCgt:", "CoreDumping:",
          "THP_enabled:", "Cpus_allowed:"}) {
      if (line.rfind(field, 0) == 0) state[field] = line;
    }
  }
  for (int const option : {PR_GET_DUMPABLE, PR_GET_KEEPCAPS, PR_GET_TIMERSLACK}) {
    state["prctl " + std::to_string(option)] = std::to_string(prctl(option, 0, 0, 0, 0));
  }
  for (int const option : {PR_GET_PDEATHSIG, PR_GET_CHILD_SUBREAPER}) {
    int value = -1;
    prctl(option, &value, 0, 0, 0);
    state["prctl " + std::to_string(option)] = std::to_string(value);
  }
}

void AddLanguage(State& state) {
  state["C locale"] = std::setlocale(LC_ALL, nullptr);
  state["C++ locale"] = std::locale().name();
  std::ostringstream number;
  number << 1234567.5;
  state["a number in the host's locale"] = number.str();
  fenv_t environment;
  std::fegetenv(&environment);
  state["rounding"] = std::to_string(std::fegetround());
  state["floating-point traps"] = std::to_string(fegetexcept());
  state["floating-point control"] = std::to_string(environment.__control_word) + " " +
                                    std::to_string(environment.__mxcsr & ~0x3FU);  // all but the sticky flags
  state["new handler"] = Bytes(std::get_new_handler());
  state["terminate handler"] = Bytes(std::get_terminate());
  for (auto* const stream : {&std::cout, &std::cerr}) {
    std::string const name = stream == &std::cout ? "std::cout " : "std::cerr ";
    state[name + "flags"] = std::to_string(static_cast<int>(stream->flags()));
    state[name + "state"] = std::to_string(static_cast<int>(stream->rdstate()));
    state[name + "exceptions"] = std::to_string(static_cast<int>(stream->exceptions()));
    state[name + "precision, width, fill"] =
        std::to_string(stream->precision()) + " " + std::to_string(stream->width()) + " " + stream->fill();
    state[name + "buffer"] = Bytes(stream->rdbuf());
    state[name + "locale"] = stream->getloc().name();
  }
}

// Everything that must not change even for a moment.
State StateNow() {
  State state;
  AddSignals(state);
  AddLimits(state);
  AddKernelView(state);
  AddLanguage(state);
  char directory[PATH_MAX] = "";
  state["working directory"] = getcwd(directory, sizeof directory) == nullptr ? "?" : directory;
  state["environment"] = Bytes(environ);
  int count = 0;
  for (char** entry = environ; *entry != nullptr; ++entry)
    state["environment " + std::to_string(count++)] = *entry;
  return state;
}

// Adds what may differ for a moment, but must be as before at the end.
State WithDescriptors(State state) {
  for (auto const& number : ListDir("/proc/self/fd")) {
    std::array<char, PATH_MAX> target{};
    std::string const link = "/proc/self/fd/" + number;
    if (readlink(link.c_str(), target.data(), target.size() - 1) < 0) continue;  // the one that lists them
    int const descriptor = std::stoi(number);
    state["descriptor " + number] = std::string(target.data()) + " " +
                                    std::to_string(fcntl(descriptor, F_GETFL)) + " " +
                                    std::to_string(fcntl(descriptor, F_GETFD));
  }
  return state;
}

std::string Difference(State const& before, State const& after) {
  std::string text;
  for (auto const& [name, value] : before) {
    auto const found = after.find(name);
    if (found == after.end())
      text += name + " has gone: " + value + "\n";
    else if (found->second != value)
      text += name + ": " + value + " -> " + found->second + "\n";
  }
  for (auto const& [name, value] : after) {
    if (before.count(name) == 0) text += name + " is new: " + value + "\n";
  }
  return text;
}

// Groups thousands: a number that the library printed through the host's locale would have commas.
class Grouped : public std::numpunct<char> {
  char do_thousands_sep() const override { return '_'; }
  std::string do_grouping() const override { return "\3"; }
};

void HostHandler(int /*signal*/) {}
void HostNewHandler() { throw std::bad_alloc(); }

// Sets every part of the state to a value that is not the default.
void MakeUnusual(std::string const& directory) {
  struct sigaction act {};
  act.sa_handler = HostHandler;
  sigemptyset(&act.sa_mask);
  sigaddset(&act.sa_mask, SIGUSR2);
  act.sa_flags = SA_RESTART;
  for (int const signal : {SIGTERM, SIGUSR1, SIGCHLD, SIGXFSZ, SIGALRM}) sigaction(signal, &act, nullptr);
  act.sa_handler = SIG_IGN;
  for (int const signal : {SIGHUP, SIGUSR2}) sigaction(signal, &act, nullptr);
  sigset_t blocked;
  sigemptyset(&blocked);
  for (int const signal : {SIGUSR1, SIGWINCH, SIGRTMIN + 3}) sigaddset(&blocked, signal);
  pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
  umask(027);
  std::setlocale(LC_ALL, "C.UTF-8");
  std::locale::global(std::locale(std::locale(), new Grouped));
  std::cout.imbue(std::locale());
  std::cout << std::hex << std::setfill('*');
  std::cout.precision(3);
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = 200;
  setrlimit(RLIMIT_NOFILE, &limit);
  std::fesetround(FE_UPWARD);
  std::set_new_handler(HostNewHandler);
  if (chdir(directory.c_str()) != 0) throw std::runtime_error("no working directory");
}

// --- a whole life ---

constexpr VeltLogLevel kLevel3{3};

VeltDebugMgr& Manager() { return *VeltDebugMgr::Instance(); }

void LookUpEverything(std::string const& directory) {
  int value = 0;
  std::map<std::string, std::string> items;
  VeltGetCfgInt("nMaxFileNum", value, (directory + "/host.cfg").c_str());
  VeltAllCfgItem(items, directory + "/host.cfg", "_level");
  VeltMakeDirEx((directory + "/made/deep").c_str());
  VELTreplaceEnvValue("${HOME}/${NOT_THERE}");
  for (auto const path :
       {VeltGetRootPath, VeltGetLogPath, VeltGetDefaultTempPath, VeltGetTraceDir, VeltGetDefaultLogPath,
        VeltGetDefaultCfgPath, VeltGetDefaultCfgFile, VeltGetDefaultSslPath}) {
    path();
  }
}

void TraceEverything() {
  AsnText const value("a value");
  Manager().RegSubModuleInfo("net", BitsOf({0, 3}), BitsOf({0, 1}), false);
  Manager().Trace("net", VeltLogLevel{9}, "into the ring", &value, false, false);
  Manager().Trace("net", kLevel3, "to file and standard output", &value, true, true);
  Manager().Trace("net", VeltLogLevel{0}, "brings the ring out", nullptr, false, false);
  Manager().AppTrace("net", kLevel3, "elsewhere", &value, false, true, "gw");
  Manager().Printf(kLevel3, VeltInterString("net"), "%d %.3f %5s %ld", 1234567, 2.5, "x", 7L);
  Manager().Printf(kLevel3, "%d", 1);
  Manager().Printf("%d", 1);
  VeltOutputFrmtString("%d", 1);
  VeltOutputMrbLog(kLevel3, "%d", 1);
  SetVeltAppExit(true);
  SetVeltAppExit(false);
  Manager().SetLogLevel("net", VeltLogLevel{9}, true);
  VeltDebugMgr::system("exit 3");
}

class HostUnchangedTest : public ::testing::Test {
 protected:
  void SetUp() override {
    MakeUnusual(host_.Dir().Path());
    std::thread([] {}).join();  // the C library reserves a signal when a process starts its first thread
  }
  // Rotates the main family: waits for another second, then traces more than a megabyte.
  void Rotate() const {
    WaitForNextSecond();
    std::string const text(2'000, 'r');
    for (int i = 0; i < 600; ++i) Manager().Trace("net", kLevel3, text.c_str(), nullptr, false, true);
    EXPECT_TRUE(WaitUntil([this] { return !FilesOf(host_.LogDir(), "host_", ".log.gz").empty(); }));
  }

  ManagerHost const host_{"nEachFileMaxSize = 1\nnFiltLogBufSize = 10\nnMaxFileNum = 5\n"};
};

TEST_F(HostUnchangedTest, AWholeLifeLeavesTheProcessAsItWas) {
  State const before = StateNow();
  State const before_with_descriptors = WithDescriptors(before);
  std::size_t const threads = ThreadCount();
  std::string printed;
  State during;

  {
    CaptureStdout out;
    EXPECT_TRUE(host_.Init());
    LookUpEverything(host_.Dir().Path());
    TraceEverything();
    Rotate();
    during = StateNow();
    EXPECT_EQ(VeltDebugMgr::Destroy(), 0);
    BaseUtilInternal::Instance()->ServiceExit();
    BaseUtilInternal::Destroy();
    printed = out.Text();
  }

  EXPECT_EQ(Difference(before, during), "") << "while the manager lived";
  EXPECT_EQ(Difference(before_with_descriptors, WithDescriptors(StateNow())), "");
  EXPECT_TRUE(WaitUntil([threads] { return ThreadCount() == threads; })) << ThreadCount();
  EXPECT_EQ(CountOf(printed, "to file and standard output"), 1U);
}

TEST_F(HostUnchangedTest, AllThreadsOfTheHostKeepTheirMasksAndRounding) {
  constexpr int kThreads = 4;
  std::atomic<int> ready{0};
  std::atomic<bool> traced{false};
  std::atomic<int> changed{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      sigset_t own;
      sigemptyset(&own);
      sigaddset(&own, SIGRTMIN + t);
      pthread_sigmask(SIG_SETMASK, &own, nullptr);
      std::fesetround(t % 2 == 0 ? FE_DOWNWARD : FE_TOWARDZERO);
      std::string const before = Mask();
      int const rounding = std::fegetround();
      ++ready;
      while (!Manager().IsInit()) std::this_thread::yield();
      for (int i = 0; i < 50; ++i) {
        Manager().Trace("net", kLevel3, "text", nullptr, false, true);
        Manager().AppTrace("net", kLevel3, "text", nullptr, false, true,
                           "t" + std::to_string(t));  // makes a thread
      }
      if (Mask() != before || std::fegetround() != rounding) ++changed;
      while (!traced) std::this_thread::yield();
      if (Mask() != before) ++changed;
    });
  }
  ASSERT_TRUE(WaitUntil([&] { return ready == kThreads; }));

  EXPECT_TRUE(host_.Init());
  traced = true;
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(VeltDebugMgr::Destroy(), 0);

  EXPECT_EQ(changed, 0);
}

TEST_F(HostUnchangedTest, TheHostsLocaleAndRoundingDoNotShowInTheLog) {
  EXPECT_TRUE(host_.Init());
  ASSERT_TRUE(Manager().Trace("net", kLevel3, "text", nullptr, false, true));
  EXPECT_EQ(VeltDebugMgr::Destroy(), 0);

  std::string const log = host_.Text();
  ASSERT_EQ(CountOf(log, " net I: text\n"), 1U);
  EXPECT_EQ(CountOf(log, "Current ospid is " + std::to_string(getpid()) + "\n"), 1U);
  EXPECT_EQ(CountOf(log, ".T" + std::to_string(gettid()) + " net I: text\n"), 1U);
  EXPECT_EQ(CountOf(log, "Thread handle output string is 0x"), 1U);
}

TEST_F(HostUnchangedTest, AFailureOfInitLeavesTheProcessAsItWas) {
  State const before = WithDescriptors(StateNow());

  EXPECT_FALSE(Manager().Init("", "", host_.LogDir(), "", false, false));
  EXPECT_FALSE(Manager().Init("no/such", "", host_.LogDir(), "", false, false));
  EXPECT_EQ(VeltDebugMgr::Destroy(), 0);

  EXPECT_EQ(Difference(before, WithDescriptors(StateNow())), "");
}

}  // namespace
}  // namespace velt::test
