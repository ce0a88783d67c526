// The signals that ask veltpipe to end.
#include "tools/veltpipe/stop_signal.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace velt::tools {
namespace {

// Under nohup SIGHUP is ignored, but would reach the descriptor all the same if it were blocked here.
bool IsIgnored(int signal_number) {
  struct sigaction now {};
  return sigaction(signal_number, nullptr, &now) == 0 && now.sa_handler == SIG_IGN;
}

sigset_t StopSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  if (!IsIgnored(SIGHUP)) sigaddset(&signals, SIGHUP);
  return signals;
}

}  // namespace

StopSignal::StopSignal() {
  sigset_t const signals = StopSignals();
  int const failed = pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  if (failed != 0) throw std::system_error(failed, std::generic_category(), "cannot block signals");
  descriptor_ = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
  if (descriptor_ < 0) throw std::system_error(errno, std::generic_category(), "cannot receive signals");
}

StopSignal::~StopSignal() { close(descriptor_); }

bool StopSignal::Raised() {
  signalfd_siginfo received;
  if (!raised_ && read(descriptor_, &received, sizeof received) > 0) {
    raised_ = true;
    raised_at_ = Clock::now();
  }
  return raised_;
}

void StopSignal::Pause(std::chrono::milliseconds time) {
  pollfd waited{descriptor_, POLLIN, 0};
  nfds_t const count = Raised() ? 0 : 1;
  (void)poll(&waited, count, static_cast<int>(time.count()));  // a pause that ends early does no harm
}

}  // namespace velt::tools
