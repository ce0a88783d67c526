#include "tests/support/process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <stdexcept>
#include <thread>

namespace velt::test {
namespace {

using Clock = std::chrono::steady_clock;

struct Pipe {
  Pipe() {
    if (pipe2(end, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  }
  ~Pipe() {
    CloseRead();
    CloseWrite();
  }
  Pipe(Pipe const&) = delete;
  Pipe& operator=(Pipe const&) = delete;
  void CloseRead() { Close(end[0]); }
  void CloseWrite() { Close(end[1]); }
  static void Close(int& fd) {
    if (fd >= 0) close(fd);
    fd = -1;
  }
  int end[2] = {-1, -1};
};

// Feeds and drains the child until both outputs end or the time is up; returns whether they ended.
bool Pump(Pipe& in, Pipe& out, Pipe& err, std::string const& input, Outcome& outcome,
          Clock::time_point deadline) {
  std::size_t fed = 0;
  if (input.empty()) in.CloseWrite();
  while (out.end[0] >= 0 || err.end[0] >= 0) {
    if (Clock::now() > deadline) return false;
    pollfd fds[3] = {{in.end[1], POLLOUT, 0}, {out.end[0], POLLIN, 0}, {err.end[0], POLLIN, 0}};
    if (poll(fds, 3, 100) <= 0) continue;
    if (fds[0].revents != 0) {
      ssize_t const n = write(in.end[1], input.data() + fed, input.size() - fed);
      if (n > 0) fed += static_cast<std::size_t>(n);
      if (n < 0 || fed == input.size()) in.CloseWrite();
    }
    char block[65536];
    for (int i = 1; i <= 2; ++i) {
      if (fds[i].revents == 0) continue;
      Pipe& source = i == 1 ? out : err;
      ssize_t const n = read(source.end[0], block, sizeof block);
      if (n > 0) (i == 1 ? outcome.out : outcome.err).append(block, static_cast<std::size_t>(n));
      if (n <= 0) source.CloseRead();
    }
  }
  return true;
}

void Reap(pid_t child, bool ended, Outcome& outcome, Clock::time_point deadline) {
  int status = 0;
  while (ended && waitpid(child, &status, WNOHANG) == 0) {
    if (Clock::now() > deadline) ended = false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  if (!ended) {
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
  }
  outcome.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  outcome.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

Outcome RunForked(std::function<int()> const& body, std::string const& input,
                  std::chrono::milliseconds limit) {
  auto const deadline = Clock::now() + limit;
  Pipe in;
  Pipe out;
  Pipe err;
  std::cout.flush();
  std::fflush(nullptr);
  pid_t const child = fork();
  if (child < 0) throw std::runtime_error("fork failed");
  if (child == 0) {
    dup2(in.end[0], 0);
    dup2(out.end[1], 1);
    dup2(err.end[1], 2);
    int const code = body();
    std::cout.flush();
    std::fflush(nullptr);
    _exit(code);
  }
  in.CloseRead();
  out.CloseWrite();
  err.CloseWrite();
  auto const before = std::signal(SIGPIPE, SIG_IGN);  // a child that stops reading must not end the test
  Outcome outcome;
  bool const ended = Pump(in, out, err, input, outcome, deadline);
  Reap(child, ended, outcome, deadline);
  std::signal(SIGPIPE, before);
  return outcome;
}

}  // namespace

bool WaitUntil(std::function<bool()> const& condition, std::chrono::milliseconds limit) {
  auto const deadline = Clock::now() + limit;
  while (!condition()) {
    if (Clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

void WaitForNextSecond() {
  std::time_t const now = std::time(nullptr);
  while (std::time(nullptr) == now) std::this_thread::sleep_for(std::chrono::milliseconds(2));
}

Outcome RunInChild(std::function<int()> const& body, std::chrono::milliseconds limit) {
  return RunForked(body, {}, limit);
}

Outcome RunProgram(std::vector<std::string> const& command, std::string const& input,
                   std::chrono::milliseconds limit) {
  auto const exec = [&command] {
    std::vector<char*> argv;
    for (auto const& word : command) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    return 127;
  };
  return RunForked(exec, input, limit);
}

CaptureStdout::CaptureStdout() {
  std::cout.flush();
  std::fflush(stdout);
  std::FILE* const scratch = std::tmpfile();
  if (scratch == nullptr) throw std::runtime_error("no file to capture into");
  file_ = dup(fileno(scratch));
  std::fclose(scratch);
  saved_ = dup(1);
  dup2(file_, 1);
}

CaptureStdout::~CaptureStdout() { Text(); }

std::string CaptureStdout::Text() {
  if (file_ < 0) return text_;
  std::cout.flush();
  std::fflush(stdout);
  dup2(saved_, 1);
  close(saved_);
  lseek(file_, 0, SEEK_SET);
  char block[65536];
  for (ssize_t n = 0; (n = read(file_, block, sizeof block)) > 0;)
    text_.append(block, static_cast<std::size_t>(n));
  close(file_);
  file_ = -1;
  return text_;
}

}  // namespace velt::test
