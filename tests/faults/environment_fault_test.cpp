// Wrong environments and odd directory names: paths, Init while threads trace, names with characters of a
// shell.
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "velt/config.h"
#include "velt/manager.h"

#include "tests/checker/report.h"
#include "tests/faults/counted.h"
#include "tests/faults/host.h"
#include "tests/faults/scale.h"
#include "tests/support/files.h"
#include "tests/support/manager_host.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

using faults::Figure;
using faults::Scaled;

// --- variables ---

struct Variable {
  char const* value;  // null: unset
  std::string directory;
};

// Each value and the directory that it gives.
std::vector<Variable> OddVariables() {
  static std::string const five_thousand(5'000, 'p');
  return {{nullptr, ""},
          {"", ""},
          {" \t\r\n ", ""},
          {"/", "/"},
          {"  /x y/ \t", "/x y/"},
          {five_thousand.c_str(), five_thousand + "/"},
          {"/one\ntwo", "/one\ntwo/"},
          {"\n/x\n", "/x/"},
          {"/\xC3\x28\xFF", "/\xC3\x28\xFF/"},
          {"$HOME/`id`", "$HOME/`id`/"},
          {"%s%n", "%s%n/"}};
}

void Set(char const* name, char const* value) { value == nullptr ? unsetenv(name) : setenv(name, value, 1); }

TEST(EnvironmentFaultTest, OddVariablesGiveTheirPathsOrNone) {
  for (auto const& odd : OddVariables()) {
    for (char const* const name : {"APP_ROOT", "_APP_LOG_DIR", "_APP_TMP_DIR"}) Set(name, odd.value);
    unsetenv("COMMON_LIB_PATH");

    EXPECT_EQ(VeltGetRootPath(), odd.directory);
    EXPECT_EQ(VeltGetLogPath(), odd.directory);
    EXPECT_EQ(VeltGetDefaultTempPath(), odd.directory);
    EXPECT_EQ(VeltGetDefaultCfgPath(), odd.directory + "conf/");
    EXPECT_EQ(VeltGetDefaultCfgFile(), "") << "no such file, and no second root";

    Set("COMMON_LIB_PATH", odd.value);
    bool const both = odd.value != nullptr;
    EXPECT_EQ(VeltGetDefaultCfgFile(), both ? std::string(odd.value) + "/conf/velt.cfg" : "");
    EXPECT_EQ(VeltGetDefaultSslPath(), both ? std::string(odd.value) + "/conf/ssl" : "");
  }
  Figure({{"odd_variables", static_cast<long long>(OddVariables().size()) * 4}});
}

TEST(EnvironmentFaultTest, ReferencesToOddVariablesAreReplacedOrLeft) {
  for (auto const& odd : OddVariables()) {
    Set("ODD", odd.value);
    std::string const value = odd.value == nullptr || *odd.value == '\0' ? "${ODD}" : odd.value;

    EXPECT_EQ(VELTreplaceEnvValue("a${ODD}b${ODD}"), "a" + value + "b" + value);
  }
}

TEST(EnvironmentFaultTest, AManagerStartsWithOddVariables) {
  for (auto const& odd : OddVariables()) {
    for (char const* const name : {"APP_ROOT", "COMMON_LIB_PATH", "TZ"}) Set(name, odd.value);
    ScratchDir const dir;

    EXPECT_TRUE(VeltDebugMgr::Instance()->Init("host_", "", dir.Path(), "", false, false));
    EXPECT_TRUE(VeltDebugMgr::Instance()->Trace("m", VeltLogLevel{3}, "there", nullptr, false, true));
    faults::ExpectCounts(faults::QuietCounts()["host_"], 1, 0, 1);
    EXPECT_EQ(VeltDebugMgr::Destroy(), 0);

    EXPECT_EQ(ExactFamily(dir.Path(), "host_").size(), 1U);
    EXPECT_EQ(CountOf(ExactFamilyText(dir.Path(), "host_"), " m I: there\n"), 1U);
  }
}

TEST(EnvironmentFaultTest, AHostThatSetsVariablesWhileThreadsTraceLosesNothing) {
  constexpr unsigned kProducers = 4;
  ManagerHost const host("nEachFileMaxSize = 50\n");
  ASSERT_TRUE(host.Init());
  faults::ProducerSetup setup;
  setup.side_directory = host.Dir() / "side";
  setup.producers = kProducers;
  setup.records = static_cast<unsigned>(Scaled(3'000, 60'000));
  faults::Producers producers(setup, faults::ToManager());

  int changes = 0;
  while (producers.Traced() < kProducers * setup.records) {
    auto const odd = OddVariables();
    for (char const* const name : {"TZ", "APP_ROOT", "_APP_LOG_DIR", "_APP_TMP_DIR", "COMMON_LIB_PATH"}) {
      Set(name, odd[static_cast<std::size_t>(changes) % odd.size()].value);
    }
    setenv(("ODD" + std::to_string(changes % 500)).c_str(), "grows the environment", 1);
    ++changes;
  }
  producers.Wait();
  setenv("TZ", "UTC", 1);  // a zone with a name, for the last line of the file
  tzset();
  VeltTraceCounts const counts = faults::QuietCounts()["host_"];
  VeltDebugMgr::Destroy();

  checker::Expectation expected;
  expected.directory = host.LogDir();
  expected.prefix = "host_";
  expected.header = "host header\n";
  checker::Report const report = Check(expected, checker::ReadOutcomes(setup.side_directory));
  EXPECT_TRUE(report.Clean()) << report.Text();
  faults::ExpectCounted(counts, report);
  EXPECT_EQ(report.found + report.refused, kProducers * setup.records);
  Figure({{"environment_changes", changes}, {"records_verified", static_cast<long long>(report.found)}});
}

// --- directories ---

// From now on SIGSYS ends this process when it starts a program or another process. False when the kernel has
// no such filter.
bool ForbidPrograms() {
#if defined(__x86_64__)
  std::vector<sock_filter> filter = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
  for (int const call : {SYS_execve, SYS_execveat, SYS_fork, SYS_vfork, SYS_clone, SYS_clone3}) {
    filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call), 0, 1));
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS));
  }
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  sock_fprog const program{static_cast<unsigned short>(filter.size()), filter.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
#else
  return false;
#endif
}

// Names that a shell or a program would take for a command or an option.
std::vector<std::string> HostileNames(int count) {
  std::vector<std::string> names = {"\"",
                                    "\"; touch executed; \"",
                                    "\" && touch executed && \"",
                                    "`touch executed`",
                                    "; touch executed",
                                    "| touch executed",
                                    "& touch executed &",
                                    "> executed",
                                    "new\nline",
                                    "\ntouch executed\n",
                                    "-p",
                                    "--help",
                                    "-m 777",
                                    "'; touch executed; '",
                                    "\\",
                                    "*?[!a]",
                                    "~",
                                    "{a,b}",
                                    "%s%s%n",
                                    "\xff\xfe\x80",
                                    " ",
                                    "\t"};
  std::mt19937 random(4'711);
  std::string const alphabet = "\"'`;|&<>(){}[]*?~!#\\\n\r\t -%=:\x01\x7f\xC3 touch executed";
  while (names.size() < static_cast<std::size_t>(count)) {
    std::string name = "x";
    for (auto left = 1 + random() % 60; left > 0; --left) name += alphabet[random() % alphabet.size()];
    names.push_back(name);
  }
  return names;
}

bool IsDirectory(std::string const& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

class MakeDirFaultTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(chdir(dir_.Path().c_str()), 0); }
  void TearDown() override { ASSERT_EQ(chdir("/"), 0); }

  ScratchDir const dir_;
};

TEST_F(MakeDirFaultTest, HostileNamesBecomeDirectoriesAndNothingIsEverExecuted) {
  auto const names = HostileNames(Scaled(120, 5'000));

  auto const outcome = RunInChild([&] {
    if (!ForbidPrograms()) return 2;
    for (auto const& name : names) {
      if (VeltMakeDirEx(name.c_str()) != 0) return 3;
      if (VeltMakeDirEx(("below/" + name + "/deeper").c_str()) != 0) return 4;
      if (VeltMakeDirEx(("$" + name).c_str()) != -1) return 5;
    }
    return 0;
  });

  EXPECT_EQ(outcome.signal, 0) << "a program was started";
  ASSERT_NE(outcome.exit_code, 2) << "this kernel has no system call filters";
  EXPECT_EQ(outcome.exit_code, 0);
  // A shell would have made this file from such names.
  long long const executed = Exists(dir_ / "executed") ? 1 : 0;
  EXPECT_EQ(executed, 0);
  long long made = 0;
  for (auto const& name : names) {
    EXPECT_TRUE(IsDirectory(dir_ / name)) << name;
    EXPECT_TRUE(IsDirectory(dir_ / ("below/" + name + "/deeper"))) << name;
    EXPECT_FALSE(Exists(dir_ / ("$" + name))) << name;
    ++made;
  }
  Figure({{"hostile_names", made}, {"executed", executed}});
}

TEST_F(MakeDirFaultTest, TheFilterThatProvesItEndsAProcessThatStartsAProgram) {
  auto const outcome = RunInChild([] {
    if (!ForbidPrograms()) return 2;
    return VeltDebugMgr::system("true") == 0 ? 0 : 1;
  });

  EXPECT_NE(outcome.signal, 0);
}

TEST_F(MakeDirFaultTest, WhatStandsInTheWayIsRefusedAndLeftAsItIs) {
  WriteFile(dir_ / "file", "content");
  ASSERT_EQ(symlink("nowhere", (dir_ / "dangling").c_str()), 0);
  ASSERT_EQ(symlink("circle", (dir_ / "circle").c_str()), 0);
  chmod(dir_.Path().c_str(), 0755);

  EXPECT_EQ(VeltMakeDirEx("file/below/deeper"), -1);
  EXPECT_EQ(VeltMakeDirEx("dangling"), -1);
  EXPECT_EQ(VeltMakeDirEx("dangling/below"), -1);
  EXPECT_EQ(VeltMakeDirEx("circle/below"), -1);
  EXPECT_EQ(VeltMakeDirEx("/proc/self/no/such"), -1);
  EXPECT_EQ(VeltMakeDirEx(std::string(256, 'n').c_str()), -1);
  auto const ordinary_user = RunInChild([] {
    if (geteuid() == 0 && setuid(65534) != 0) return 2;
    return geteuid() != 0 && VeltMakeDirEx("/proc/1/forbidden") == -1 ? 0 : 1;
  });

  EXPECT_EQ(ordinary_user.exit_code, 0);
  EXPECT_EQ(ReadFile(dir_ / "file"), "content");
  EXPECT_FALSE(Exists(dir_ / "nowhere"));
  EXPECT_EQ(ListDir(dir_.Path()), (std::vector<std::string>{"circle", "dangling", "file"}));
}

TEST_F(MakeDirFaultTest, ADirectoryOfOthersIsNotWrittenInto) {
  ASSERT_EQ(mkdir((dir_ / "theirs").c_str(), 0555), 0);
  chmod(dir_.Path().c_str(), 0755);

  auto const outcome = RunInChild([this] {
    if (geteuid() == 0 && setuid(65534) != 0) return 2;
    return VeltMakeDirEx((dir_ / "theirs/mine/deeper").c_str()) == -1 ? 0 : 1;
  });

  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_TRUE(ListDir(dir_ / "theirs").empty());
}

TEST_F(MakeDirFaultTest, APathOf1007CharactersIsMadeAndOneMoreIsRefused) {
  std::string longest = "first";
  while (longest.size() + 101 <= 1'000) longest += "/" + std::string(100, 'd');
  longest += "/" + std::string(1'007 - longest.size() - 1, 'e');
  ASSERT_EQ(longest.size(), 1'007U);

  EXPECT_EQ(VeltMakeDirEx(("second" + longest.substr(5)).c_str()), -1);
  EXPECT_EQ(VeltMakeDirEx(longest.c_str()), 0);

  EXPECT_EQ(ListDir(dir_.Path()), (std::vector<std::string>{"first"}));
  EXPECT_TRUE(IsDirectory(dir_ / longest));
}

}  // namespace
}  // namespace velt::test
