// The main function of the test programs. Singletons, once-read switches and the environment belong to a
// process, so each test case gets a process of its own: ctest asks for one case at a time, and a program that
// is to run several starts itself once for each.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace velt::test {
namespace {

// Starts this program for one case, with its output in `output`. Returns its wait status, -1 if it could not
// start.
int RunAlone(std::string const& test, int output) {
  std::string program = "/proc/self/exe";
  std::string filter = "--gtest_filter=" + test;
  std::string disabled = "--gtest_also_run_disabled_tests";
  std::array<char*, 4> const arguments = {program.data(), filter.data(), disabled.data(), nullptr};

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
  pid_t child = -1;
  int const failure = posix_spawn(&child, program.c_str(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  int status = -1;
  if (failure != 0 || waitpid(child, &status, 0) != child) return -1;
  return status;
}

std::string Text(int file) {
  std::string text;
  std::array<char, 4096> part{};
  for (;;) {
    ssize_t const size = pread(file, part.data(), part.size(), static_cast<off_t>(text.size()));
    if (size <= 0) return text;
    text.append(part.data(), static_cast<std::size_t>(size));
  }
}

class OneProcessPerCase : public testing::EmptyTestEventListener {
 public:
  void OnTestProgramStart(testing::UnitTest const& program) override {
    if (program.test_to_run_count() < 2) return;

    std::printf("%d cases, each in a process of its own\n", program.test_to_run_count());
    int skipped = 0;
    std::vector<std::string> failed;
    for (int s = 0; s < program.total_test_suite_count(); ++s) {
      testing::TestSuite const& suite = *program.GetTestSuite(s);
      for (int t = 0; t < suite.total_test_count(); ++t) {
        testing::TestInfo const& test = *suite.GetTestInfo(t);
        if (test.should_run()) Run(std::string(suite.name()) + "." + test.name(), skipped, failed);
      }
    }
    int const bad = static_cast<int>(failed.size());
    std::printf("%d passed, %d skipped, %d failed\n", program.test_to_run_count() - skipped - bad, skipped,
                bad);
    for (std::string const& name : failed) std::printf("FAILED %s\n", name.c_str());
    std::fflush(stdout);
    std::_Exit(failed.empty() ? 0 : 1);
  }

 private:
  static void Run(std::string const& name, int& skipped, std::vector<std::string>& failed) {
    int const output = memfd_create("output", MFD_CLOEXEC);
    int const status = RunAlone(name, output);
    std::string const text = Text(output);
    close(output);

    char const* result = "passed ";
    if (status != 0) {
      result = "FAILED ";
      failed.push_back(name);
      std::fputs(text.c_str(), stdout);
    } else if (text.find("[  SKIPPED ]") != std::string::npos) {
      result = "skipped";
      ++skipped;
    }
    std::printf("%s %s\n", result, name.c_str());
    std::fflush(stdout);
  }
};

}  // namespace
}  // namespace velt::test

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  testing::UnitTest::GetInstance()->listeners().Append(new velt::test::OneProcessPerCase);  // it deletes them
  return RUN_ALL_TESTS();
}
