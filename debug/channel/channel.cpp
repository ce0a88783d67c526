// Construction of a channel and the start of its output thread.
#include "velt/channel.h"

#include <pthread.h>

#include <csignal>
#include <memory>

#include <ace/Base_Thread_Adapter.h>
#include <ace/OS_NS_Thread.h>

#include "velt/config.h"

#include "platform/fork_generation.h"
#include "platform/locks.h"

namespace {

constexpr std::size_t kQueueBytes = 10'240'000;  // both water marks of both queues

std::string DirectoryFor(std::string const& log_path) {
  if (log_path.empty()) return VeltGetDefaultLogPath();
  return log_path.back() == '/' ? log_path : log_path + '/';
}

// Blocks, while it lives, every signal that a process is sent: a thread created meanwhile inherits that, and
// the host's handlers and sigwait never run on it. Faults of the thread itself still kill with a core.
class HostSignalsBlocked {
 public:
  HostSignalsBlocked() {
    sigset_t blocked;
    sigfillset(&blocked);
    for (int const fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT})
      sigdelset(&blocked, fault);
    changed_ = pthread_sigmask(SIG_SETMASK, &blocked, &before_) == 0;
  }
  ~HostSignalsBlocked() {
    if (changed_) pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  HostSignalsBlocked(HostSignalsBlocked const&) = delete;
  HostSignalsBlocked& operator=(HostSignalsBlocked const&) = delete;

 private:
  sigset_t before_{};
  bool changed_;
};

// What the new thread begins with. ACE's own would give it an ACE log object, whose destruction at the
// thread's end races with ACE's at the process's end.
class LoopStart : public ACE_Base_Thread_Adapter {
 public:
  explicit LoopStart(VeltDebugInfo* channel)
      : ACE_Base_Thread_Adapter(&VeltDebugInfo::HandleOutputStringLoop, channel), channel_(channel) {}

  ACE_THR_FUNC_RETURN invoke() override {
    std::unique_ptr<LoopStart> const self(this);
    return VeltDebugInfo::HandleOutputStringLoop(channel_);
  }

 private:
  VeltDebugInfo* channel_;
};

}  // namespace

VeltDebugInfo::VeltDebugInfo(std::string const& logPath, std::string const& filePrefix,
                             std::string const& fileHeader, bool bPrint, bool bLog,
                             unsigned int nFiltLogBufSize, unsigned int nEachFileMaxSize,
                             unsigned int nEachProcessMaxZipNum, unsigned int nZipFileIncludeFileNum,
                             bool /*ignored*/)
    : m_bThreadExited(false),
      m_bExit(false),
      m_strFilePrefix(filePrefix),
      m_strLogPath(DirectoryFor(logPath)),
      m_strFileHeader(fileHeader),
      m_bPrint(bPrint),
      m_bLog(bLog),
      m_nFiltLogBufSize(nFiltLogBufSize),
      m_nEachFileMaxSize(nEachFileMaxSize),
      m_bThreadStarted(false),
      m_nEachProcessMaxZipNum(nEachProcessMaxZipNum),
      m_nZipFileIncludeFileNum(nZipFileIncludeFileNum),
      m_nForkGeneration(velt::ForkGeneration()) {
  m_OutputQueue.high_water_mark(kQueueBytes);
  m_OutputQueue.low_water_mark(kQueueBytes);
  m_DiscardQueue.high_water_mark(kQueueBytes);
  m_DiscardQueue.low_water_mark(kQueueBytes);
  (void)Init();  // a channel without a thread refuses records; a host may call Init again
}

bool VeltDebugInfo::Init() {
  if (InheritedByFork()) return false;
  // Held over the creation, so that two callers cannot start two threads.
  velt::MutexLock const lock(m_mutex);
  if (!lock.locked()) return false;
  if (m_bThreadStarted.load(std::memory_order_relaxed)) return true;
  HostSignalsBlocked const blocked;
  auto start = std::make_unique<LoopStart>(this);
  if (ACE_OS::thr_create(&VeltDebugInfo::HandleOutputStringLoop, this, THR_NEW_LWP | THR_DETACHED, nullptr,
                         nullptr, ACE_DEFAULT_THREAD_PRIORITY, nullptr, ACE_DEFAULT_THREAD_STACKSIZE,
                         start.get()) == -1) {
    return false;
  }
  (void)start.release();  // the thread's now
  // Relaxed: it tells tracing threads that somebody will read the queue, which has a lock of its own.
  m_bThreadStarted.store(true, std::memory_order_relaxed);
  return true;
}

std::string const& VeltDebugInfo::LogPath() const { return m_strLogPath; }

bool VeltDebugInfo::InheritedByFork() const noexcept { return m_nForkGeneration != velt::ForkGeneration(); }
