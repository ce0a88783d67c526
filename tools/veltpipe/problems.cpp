// What the library reports while veltpipe runs, said in veltpipe's name.
#include "tools/veltpipe/problems.h"

#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <string>

#include "velt/problem.h"

namespace velt::tools {
namespace {

constexpr std::uint64_t kNever = UINT64_MAX;

// Static, since the library's handler is a plain function. Written by the output thread, read by the main
// thread. Release and acquire for the channel, which the main thread has made; the rest is relaxed: each is a
// figure by itself.
std::atomic<VeltDebugInfo const*> watched{nullptr};
std::atomic<std::uint64_t> files_at_report{kNever};  // files that had been opened at the last failed open
std::atomic<int> open_error{0};
std::atomic<int> write_error{0};
std::atomic<bool> refused_is_said{false};

std::uint64_t FilesOpened() {
  VeltDebugInfo const* const channel = watched.load(std::memory_order_acquire);
  return channel == nullptr ? 0 : channel->Counts().filesOpened;
}

void Say(char const* sentence) {
  pollfd out{STDERR_FILENO, POLLOUT, 0};
  if (poll(&out, 1, 0) != 1 || (out.revents & POLLOUT) == 0) return;
  std::string const line = std::string("veltpipe: ") + sentence + "\n";
  (void)!write(STDERR_FILENO, line.data(), line.size());  // a failure cannot be reported
}

void Hear(VeltProblem const& problem) {
  if (problem.kind == VeltProblemKind::kCannotOpen) {
    open_error.store(problem.error, std::memory_order_relaxed);
    files_at_report.store(FilesOpened(), std::memory_order_relaxed);
  } else if (problem.kind == VeltProblemKind::kWriteRefused) {
    write_error.store(problem.error, std::memory_order_relaxed);
  } else if (problem.kind == VeltProblemKind::kRecordsRefused &&
             !refused_is_said.load(std::memory_order_relaxed)) {
    return;
  }
  Say(problem.sentence);
}

}  // namespace

Problems::Problems(bool say_refused) {
  refused_is_said.store(say_refused, std::memory_order_relaxed);
  (void)VeltSetProblemHandler(&Hear);  // there was none
}

Problems::~Problems() { (void)VeltSetProblemHandler(nullptr); }

void Problems::Watch(VeltDebugInfo const* channel) { watched.store(channel, std::memory_order_release); }

bool Problems::IsWithoutFile(std::uint64_t files_opened) const {
  return files_at_report.load(std::memory_order_relaxed) == files_opened;
}

int Problems::OpenError() const { return open_error.load(std::memory_order_relaxed); }

int Problems::WriteError() const { return write_error.load(std::memory_order_relaxed); }

}  // namespace velt::tools
