// Waiting, child processes and captured standard output for tests.
#ifndef VELT_TESTS_SUPPORT_PROCESS_H
#define VELT_TESTS_SUPPORT_PROCESS_H

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace velt::test {

// Polls until `condition` holds. False when it did not within `limit`, which is generous: slow machines pass.
bool WaitUntil(std::function<bool()> const& condition,
               std::chrono::milliseconds limit = std::chrono::milliseconds(60'000));

// Waits until the wall clock shows another second: files of one channel are named by it.
void WaitForNextSecond();

struct Outcome {
  int exit_code = -1;  // -1 when a signal ended it
  int signal = 0;
  std::string out;  // standard output
  std::string err;  // standard error
};

// Runs `body` in a fork of this process and reaps it; the child ends with _exit(body()). Standard streams are
// captured. The child is killed after `limit` (signal is then SIGKILL). Call it while this process has one
// thread.
Outcome RunInChild(std::function<int()> const& body,
                   std::chrono::milliseconds limit = std::chrono::milliseconds(120'000));

// Runs a program with arguments, `input` on its standard input, and reaps it.
Outcome RunProgram(std::vector<std::string> const& command, std::string const& input = {},
                   std::chrono::milliseconds limit = std::chrono::milliseconds(120'000));

// Everything written to file descriptor 1 (std::cout included) between construction and Text().
class CaptureStdout {
 public:
  CaptureStdout();
  ~CaptureStdout();
  CaptureStdout(CaptureStdout const&) = delete;
  CaptureStdout& operator=(CaptureStdout const&) = delete;

  std::string Text();  // ends the capture the first time; the same text from then on

 private:
  int saved_;
  int file_;
  std::string text_;
};

}  // namespace velt::test

#endif
