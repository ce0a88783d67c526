// A program that runs beside the test, to be fed, signalled and reaped.
#ifndef VELT_TESTS_SUPPORT_RUNNING_PROGRAM_H
#define VELT_TESTS_SUPPORT_RUNNING_PROGRAM_H

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/process.h"

namespace velt::test {

// The three standard streams of a program; the test keeps its own ends.
struct Streams {
  int in = -1;  // -1: /dev/null
  int out = -1;
  int err = -1;
};

// RunningProgram starts a program and kills it at the end of the test, should it still run. Start it while
// the test has one thread.
class RunningProgram {
 public:
  // `before_exec` runs in the child and may only make system calls.
  template <typename BeforeExec>
  RunningProgram(std::vector<std::string> const& command, Streams const& streams, BeforeExec before_exec) {
    std::vector<char*> argv;
    argv.reserve(command.size() + 1);
    for (auto const& word : command) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    pid_ = fork();
    if (pid_ < 0) throw std::runtime_error("fork failed");
    if (pid_ != 0) return;
    int const null = open("/dev/null", O_RDWR | O_CLOEXEC);
    dup2(streams.in < 0 ? null : streams.in, 0);
    dup2(streams.out < 0 ? null : streams.out, 1);
    dup2(streams.err < 0 ? null : streams.err, 2);
    before_exec();
    execv(argv[0], argv.data());
    _exit(127);
  }

  RunningProgram(std::vector<std::string> const& command, Streams const& streams)
      : RunningProgram(command, streams, [] {}) {}

  ~RunningProgram() {
    if (!reaped_) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
  }
  RunningProgram(RunningProgram const&) = delete;
  RunningProgram& operator=(RunningProgram const&) = delete;

  pid_t Pid() const { return pid_; }
  void Signal(int number) const { kill(pid_, number); }

  // The exit code; -1 when a signal ended it, -2 when it did not end within a minute.
  int Wait() {
    int status = 0;
    reaped_ = WaitUntil([this, &status] { return waitpid(pid_, &status, WNOHANG) == pid_; });
    if (!reaped_) return -2;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_ = -1;
  bool reaped_ = false;
};

// A descriptor that closes itself.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {
    if (number < 0) throw std::runtime_error("no descriptor");
  }
  ~Descriptor() { Close(); }
  Descriptor(Descriptor const&) = delete;
  Descriptor& operator=(Descriptor const&) = delete;

  operator int() const { return number_; }  // NOLINT(google-explicit-constructor): used as its number
  void Close() {
    if (number_ >= 0) close(number_);
    number_ = -1;
  }

 private:
  int number_;
};

// Both ends of a pipe, closed on exec.
struct PipeEnds {
  PipeEnds() : PipeEnds(Make()) {}

  Descriptor read;
  Descriptor write;

 private:
  explicit PipeEnds(std::pair<int, int> ends) : read(ends.first), write(ends.second) {}
  static std::pair<int, int> Make() {
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    return {ends[0], ends[1]};
  }
};

}  // namespace velt::test

#endif
