// The shim itself: a rule applies to the calls that it names, and to no others.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>

#include "tests/faults/scale.h"
#include "tests/faults/shim/shim.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace velt::faults {
namespace {

using shim::Action;
using shim::Call;
using test::ScratchDir;

shim::Rule Failing(Call call, unsigned first, unsigned count, int error, char const* path = nullptr) {
  return {call, Action::kFail, first, count, error, 0, path};
}

class ShimTest : public ::testing::Test {
 protected:
  ~ShimTest() override { shim::ClearRules(); }

  ScratchDir const dir;
};

TEST_F(ShimTest, TheThirdAndFourthWriteToANamedFileFail) {
  std::string const pattern = "*/" + std::string("a.log");
  int const rule = shim::AddRule(Failing(Call::kWrite, 3, 2, ENOSPC, pattern.c_str()));
  int const file = open((dir / "a.log").c_str(), O_WRONLY | O_CREAT, 0600);
  int const other = open((dir / "b.log").c_str(), O_WRONLY | O_CREAT, 0600);
  std::string results;

  for (int i = 0; i < 6; ++i) {
    ssize_t const written = write(file, "x", 1);
    results += written == 1 ? 'x' : errno == ENOSPC ? '-' : '?';
    EXPECT_EQ(write(other, "y", 1), 1);
  }

  close(file);
  close(other);
  EXPECT_EQ(results, "xx--xx");
  EXPECT_EQ(test::ReadFile(dir / "a.log"), "xxxx");
  EXPECT_EQ(shim::MatchedCalls(rule), 6U);
  EXPECT_EQ(shim::AppliedCalls(rule), 2U);
}

TEST_F(ShimTest, AShortWriteWritesHalf) {
  shim::AddRule({Call::kWrite, Action::kShort, 1, 1, 0, 0, "*/a.log"});
  int const file = open((dir / "a.log").c_str(), O_WRONLY | O_CREAT, 0600);

  EXPECT_EQ(write(file, "12345678", 8), 4);
  EXPECT_EQ(write(file, "5678", 4), 4);

  close(file);
  EXPECT_EQ(test::ReadFile(dir / "a.log"), "12345678");
}

TEST_F(ShimTest, ARuleOfItsOwnThreadLeavesTheCallsOfOthersAlone) {
  shim::Rule rule = Failing(Call::kWrite, 1, 0, ENOSPC, "*/a.log");
  rule.own_thread = true;
  int const number = shim::AddRule(rule);
  int const file = open((dir / "a.log").c_str(), O_WRONLY | O_CREAT, 0600);

  std::thread([&] { EXPECT_EQ(write(file, "x", 1), 1); }).join();
  EXPECT_EQ(write(file, "y", 1), -1);

  close(file);
  EXPECT_EQ(test::ReadFile(dir / "a.log"), "x");
  EXPECT_EQ(shim::MatchedCalls(number), 1U);
}

TEST_F(ShimTest, AnOpenOfANewLogFileIsRefusedUntilTheRulesAreCleared) {
  std::string const path = dir / "a.log";
  shim::AddRule(Failing(Call::kCreate, 1, 0, EMFILE, "*.log"));
  int const refused = open(path.c_str(), O_WRONLY | O_CREAT, 0600);
  int const reason = errno;
  shim::ClearRules();
  int const opened = open(path.c_str(), O_WRONLY | O_CREAT, 0600);

  EXPECT_EQ(refused, -1);
  EXPECT_EQ(reason, EMFILE);
  EXPECT_NE(opened, -1);
  close(opened);
}

TEST_F(ShimTest, ARemovalThatIsRefusedLeavesTheFile) {
  test::WriteFile(dir / "a", "kept");
  shim::AddRule(Failing(Call::kRemove, 1, 1, EPERM));

  EXPECT_EQ(std::remove((dir / "a").c_str()), -1);
  EXPECT_EQ(errno, EPERM);
  EXPECT_EQ(test::ReadFile(dir / "a"), "kept");
  EXPECT_EQ(std::remove((dir / "a").c_str()), 0);
}

TEST_F(ShimTest, AProcessStopsAtTheCallAndGoesOnWithIt) {
  test::WriteFile(dir / "a", "");
  pid_t const child = fork();
  if (child == 0) {
    shim::AddRule({Call::kRemove, Action::kStop, 1, 1, 0, 0, nullptr});
    _exit(std::remove((dir / "a").c_str()) == 0 ? 7 : 8);
  }
  int status = 0;

  ASSERT_EQ(waitpid(child, &status, WUNTRACED), child);
  EXPECT_TRUE(WIFSTOPPED(status));
  EXPECT_TRUE(test::Exists(dir / "a"));
  kill(child, SIGCONT);
  ASSERT_EQ(waitpid(child, &status, 0), child);

  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7);
  EXPECT_FALSE(test::Exists(dir / "a"));
}

TEST_F(ShimTest, PreloadedItTakesItsRulesFromTheEnvironment) {
  if (kSanitized) GTEST_SKIP() << "a preloaded library would come before the sanitizer's runtime";
  std::string const target = dir / "out";
  std::string const rules = "VELT_SHIM=write,first=1,count=0,errno=ENOSPC,path=*/out";
  std::string const preload = "LD_PRELOAD=" VELT_FAULT_SHIM;

  auto const refused = test::RunProgram({"env", rules, preload, "sh", "-c", "echo text >" + target});
  auto const bad = test::RunProgram({"env", "VELT_SHIM=nonsense", preload, "true"});

  EXPECT_NE(refused.exit_code, 0);
  EXPECT_EQ(test::ReadFile(target), "");
  EXPECT_EQ(bad.signal, SIGABRT);
}

}  // namespace
}  // namespace velt::faults
