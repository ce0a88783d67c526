#include "debug/channel/output_thread.h"

#include <pthread.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include <ace/Base_Thread_Adapter.h>
#include <ace/OS_NS_Thread.h>
#include <ace/OS_NS_sys_time.h>

#include "debug/channel/channel_state.h"
#include "debug/channel/current_file.h"
#include "debug/channel/housekeeping.h"
#include "debug/channel/output.h"
#include "debug/channel/record.h"
#include "debug/channel/record_node.h"
#include "debug/channel/record_recycler.h"
#include "platform/bounded.h"
#include "platform/fork_generation.h"

namespace velt {
namespace {

constexpr std::size_t kThreadNameLength = 15;  // the kernel's limit
constexpr time_t kSecondsBeforeTrim = 5;

thread_local bool in_loop = false;
thread_local std::uint32_t loop_generation = 0;  // of the process that the loop began in

// Marks the calling thread as an output thread.
class InLoop {
 public:
  InLoop() noexcept {
    in_loop = true;
    loop_generation = ForkGeneration();
  }
  ~InLoop() { in_loop = false; }
  InLoop(InLoop const&) = delete;
  InLoop& operator=(InLoop const&) = delete;
};

// While it exists, blocks every signal in the calling thread except those of faults. A thread that is created
// meanwhile inherits the mask: signals sent to the process never run a handler on it, and its own faults
// still end the process with a core.
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

// The new thread's start function. ACE's own would give the thread an ACE log object, which is destroyed at
// the thread's end, in a race with ACE's destruction at the end of the process.
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

// Returns an array, not a string: on this thread an allocation failure could not be handled.
std::array<char, kThreadNameLength + 1> ThreadName(std::string const& prefix) {
  std::array<char, kThreadNameLength + 1> name{};
  (void)snprintf_s(name.data(), name.size(), kThreadNameLength, "velt:%s", prefix.c_str());
  return name;
}

void WriteStartLines(ChannelState& state) {
  WriteFile(state, "This is the first log file\n");
  std::array<char, 60> line{};
  // The low 32 bits of the id are part of the file format.
  snprintf_s(line.data(), line.size(), line.size() - 1, "Thread handle output string is 0x%x\n",
             static_cast<unsigned>(pthread_self()));
  WriteFile(state, line.data());
}

// Takes everything that is queued, and waits for it. When there is nothing to do for a while, frees idle
// memory.
ACE_Message_Block* TakeRecords(RecordQueue& queue) {
  while (IdleNodesToStock() && queue.is_empty()) StockIdleNodes();
  while (IdleNodesToTrim()) {
    ACE_Time_Value deadline = ACE_OS::gettimeofday() + ACE_Time_Value(kSecondsBeforeTrim);
    ACE_Message_Block* const records = queue.TakeAll(&deadline);
    if (records != nullptr || errno != EWOULDBLOCK) return records;
    while (IdleNodesToTrim() && queue.is_empty()) TrimIdleNodes();
  }
  return queue.TakeAll(nullptr);
}

void CountLost(ChannelState& state) {
  state.m_counts.lost.Add();
  state.m_counts.dealtWith.Add();
}

// Returns false for the stop marker.
bool HandleRecord(ChannelState& state, std::unique_ptr<OutDataUnit> rec) {
  if (rec == nullptr) {
    WriteFile(state, "can't get message block's base\n");
    CountLost(state);
    return true;
  }
  if (IsStopMarker(*rec)) return false;
  if (rec->m_pTimeStamp == nullptr || (rec->m_pText == nullptr && rec->m_pAsn == nullptr)) {
    WriteFile(state, "can't get output data\n");
    CountLost(state);
    return true;
  }
  (void)OutputRecord(state, *rec, false,
                     &CountDealtWith);  // without a file the next record counts as lost, too
  return true;
}

// Handles all records that are queued, under one lock. Returns false when the thread must end.
bool HandleNextRecords(ChannelState& state) {
  RecordQueue& queue = state.m_OutputQueue;
  if (state.m_bExit.load(std::memory_order_acquire) && queue.message_count() == 0) return false;
  ACE_Message_Block* next = TakeRecords(queue);
  if (next == nullptr) {
    // A channel whose end has no memory for the stop marker wakes its thread without a block.
    if (!state.m_bExit.load(std::memory_order_acquire)) WriteFile(state, "can't get message block\n");
    return true;
  }
  state.m_inHand.Begin();
  bool go_on = true;
  while (true) {
    BlockPtr block(next);
    next = next->next();
    // Two records ahead: the links of the next one are in the cache already.
    if (next != nullptr) PrefetchRecord(next->next());
    go_on = HandleRecord(state, UnwrapRecord(std::move(block)));
    if (next == nullptr || !go_on) break;
    state.m_inHand.NextRecord();
  }
  state.m_inHand.GiveBack();
  queue.PutBack(next);  // what came after the stop marker
  return go_on;
}

}  // namespace

bool StartOutputThread(ChannelState& state, VeltDebugInfo* channel) {
  if (state.InheritedByFork()) return false;
  // Held while the thread is created, so that two callers cannot start two threads.
  MutexLock const lock(state.m_mutex);
  if (!lock.locked()) return false;
  if (state.m_bThreadStarted.load(std::memory_order_relaxed)) return true;
  HostSignalsBlocked const blocked;
  auto start = std::make_unique<LoopStart>(channel);
  if (ACE_OS::thr_create(&VeltDebugInfo::HandleOutputStringLoop, channel, THR_NEW_LWP | THR_DETACHED, nullptr,
                         nullptr, ACE_DEFAULT_THREAD_PRIORITY, nullptr, ACE_DEFAULT_THREAD_STACKSIZE,
                         start.get()) == -1) {
    return false;
  }
  (void)start.release();  // the new thread owns it
  // Relaxed: tracing threads only learn that the queue will be read; the queue has a lock of its own.
  state.m_bThreadStarted.store(true, std::memory_order_relaxed);
  return true;
}

bool OnAnyOutputThread() noexcept { return in_loop && loop_generation == ForkGeneration(); }

void RunOutputThread(ChannelState& state) {
  InLoop const mark;
  (void)pthread_setname_np(pthread_self(), ThreadName(state.m_strFilePrefix).data());  // for debuggers only
  state.m_OutputQueue.BeginTaking();  // a problem handler may trace or flush before the first record is taken
  ProcessLogFileBeforeCreateNew(state);
  if (OpenFileUntilExit(state)) {
    WriteStartLines(state);
    while (HandleNextRecords(state)) {
    }
    WriteFile(state, "thread handle output string exit\n");
  }
  // The last access to the channel. Release: a destructor that sees the mark also sees what this thread
  // wrote.
  state.m_bThreadExited.store(true, std::memory_order_release);
}

}  // namespace velt
