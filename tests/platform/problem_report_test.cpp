// Problem reports to a standard error that cannot take them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/problem_report.h"
#include "tests/support/process.h"

namespace velt::test {
namespace {

void TellOne() { TellProblem(VeltProblemKind::kCannotOpen, "a problem", "path", ENOENT, 1); }

// Puts the writing end of a pipe in the place of standard error; gives the reading end.
int ReplaceStandardError() {
  int ends[2] = {-1, -1};
  if (pipe(ends) != 0 || dup2(ends[1], STDERR_FILENO) == -1) _exit(90);
  close(ends[1]);
  return ends[0];
}

bool IsPending(int signal) {
  sigset_t pending;
  sigpending(&pending);
  return sigismember(&pending, signal) != 0;
}

TEST(ProblemReportTest, AStandardErrorThatNobodyReadsAnyMoreDoesNotEndTheProcess) {
  Outcome const outcome = RunInChild([] {
    std::signal(SIGPIPE, SIG_DFL);
    setenv("VELT_PROBLEMS", "stderr", 1);
    ReadProblemSetting();
    close(ReplaceStandardError());
    TellOne();
    return IsPending(SIGPIPE) ? 22 : 21;
  });

  EXPECT_EQ(outcome.signal, 0);
  EXPECT_EQ(outcome.exit_code, 21) << "no SIGPIPE is left pending for the host";
}

TEST(ProblemReportTest, AStandardErrorAtTheFileSizeLimitDoesNotEndTheProcess) {
  Outcome const outcome = RunInChild([] {
    setenv("VELT_PROBLEMS", "stderr", 1);
    ReadProblemSetting();
    std::FILE* const file = std::tmpfile();
    if (file == nullptr || dup2(fileno(file), STDERR_FILENO) == -1) return 90;
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    rlimit const none{0, before.rlim_max};
    if (setrlimit(RLIMIT_FSIZE, &none) != 0) return 91;
    TellOne();
    bool const pending = IsPending(SIGXFSZ);
    setrlimit(RLIMIT_FSIZE, &before);  // for what a measured build writes at its exit
    return pending ? 25 : 24;
  });

  EXPECT_EQ(outcome.signal, 0);
  EXPECT_EQ(outcome.exit_code, 24) << "no SIGXFSZ is left pending for the host";
}

TEST(ProblemReportTest, AStandardErrorThatIsFullDoesNotHoldTheCaller) {
  Outcome const outcome = RunInChild([] {
    setenv("VELT_PROBLEMS", "stderr", 1);
    ReadProblemSetting();
    int const reader = ReplaceStandardError();
    int const flags = fcntl(STDERR_FILENO, F_GETFL);
    fcntl(STDERR_FILENO, F_SETFL, flags | O_NONBLOCK);
    std::string const block(4096, 'x');
    while (write(STDERR_FILENO, block.data(), block.size()) > 0) {
    }
    fcntl(STDERR_FILENO, F_SETFL, flags);
    alarm(30);  // ends a write that waits
    TellOne();
    close(reader);
    return 23;
  });

  EXPECT_EQ(outcome.exit_code, 23);
}

TEST(ProblemReportTest, ALineHasTheSentenceTheReasonAndItsNumber) {
  Outcome const outcome = RunInChild([] {
    setenv("VELT_PROBLEMS", "stderr", 1);
    ReadProblemSetting();
    TellOne();
    return 0;
  });

  EXPECT_EQ(outcome.err, "veltbaseutil: a problem: No such file or directory (2)\n");
}

}  // namespace
}  // namespace velt::test
