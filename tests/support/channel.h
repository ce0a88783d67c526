// Channels, records and ASN values for tests.
#ifndef VELT_TESTS_SUPPORT_CHANNEL_H
#define VELT_TESTS_SUPPORT_CHANNEL_H

#include <pthread.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "velt/channel.h"

#include "debug/channel/channel_state.h"

namespace velt::test {

// The arguments of a channel, with values that make it log nothing by itself and never rotate.
struct ChannelSetup {
  explicit ChannelSetup(std::string dir) : directory(std::move(dir)) {}

  std::string directory;
  std::string prefix = "t_";
  std::string header = "header\n";
  bool print = false;
  bool log = false;
  unsigned ring = 0;
  unsigned max_bytes = 1'000'000'000;
  unsigned keep = 30;
};

inline std::unique_ptr<VeltDebugInfo> MakeChannel(ChannelSetup const& setup) {
  return std::make_unique<VeltDebugInfo>(setup.directory, setup.prefix, setup.header, setup.print, setup.log,
                                         setup.ring, setup.max_bytes, setup.keep, 10U, false);
}

// While it lives, no thread can be created in this process: each would get a stack larger than the address
// space.
class NoNewThreads {
 public:
  NoNewThreads() {
    pthread_attr_t huge;
    pthread_getattr_default_np(&before_);
    pthread_attr_init(&huge);
    pthread_attr_setstacksize(&huge, std::size_t{1} << 47);
    if (pthread_setattr_default_np(&huge) != 0)
      throw std::runtime_error("cannot change the default stack size");
    pthread_attr_destroy(&huge);
  }
  ~NoNewThreads() {
    pthread_setattr_default_np(&before_);
    pthread_attr_destroy(&before_);
  }
  NoNewThreads(NoNewThreads const&) = delete;
  NoNewThreads& operator=(NoNewThreads const&) = delete;

 private:
  pthread_attr_t before_{};
};

// A channel whose output thread could not be created: the test may do that thread's work.
inline std::unique_ptr<VeltDebugInfo> MakeIdleChannel(ChannelSetup const& setup) {
  NoNewThreads const none;
  return MakeChannel(setup);
}

inline constexpr char const* kStamp = "2026-11-15 08:52:13.123456";
inline constexpr char const* kLineHead = "11-15 08:52:13.123456.T4711";  // of a record of NewRecord

inline char* NewText(std::string const& text) {
  char* const copy = new char[text.size() + 1];
  std::memcpy(copy, text.c_str(), text.size() + 1);
  return copy;
}

// A record as a host builds it, with plain arrays; stamped kStamp by thread 4711.
inline OutDataUnit* NewRecord(std::string const& text, int level = 3, bool log = true, bool print = false) {
  auto* const rec = new OutDataUnit;
  rec->m_pTimeStamp = NewText(kStamp);
  rec->m_nThreadId = 4711;
  rec->m_nLevel = level;
  rec->m_pText = NewText(text);
  rec->m_bLog = log;
  rec->m_bPrint = print;
  return rec;
}

// A record that tells the output thread to end.
inline OutDataUnit* NewStopMarker() {
  auto* const rec = new OutDataUnit;
  rec->m_bLog = true;
  return rec;
}

// Writes one record as the output thread does.
inline bool Output(VeltDebugInfo& channel, OutDataUnit* rec, bool from_discard = false) {
  std::unique_ptr<OutDataUnit> const owned(rec);
  return channel.OutputString(rec, from_discard);
}

// Prints a text. Live() counts the objects of this class.
class AsnText : public AsnType {
 public:
  explicit AsnText(std::string text) : text_(std::move(text)) { ++live_; }
  AsnText(AsnText const& other) : AsnType(other), text_(other.text_) { ++live_; }
  AsnText& operator=(AsnText const&) = delete;
  ~AsnText() override { --live_; }

  AsnType* Clone() const override { return new AsnText(*this); }
  void Print(std::ostream& out, int, int) const override { out << text_; }

  static int Live() { return live_; }

 private:
  std::string text_;
  inline static std::atomic<int> live_{0};
};

// Stalls an output thread: its Print waits until the gate is opened.
class Gate {
 public:
  void Open() {
    std::lock_guard<std::mutex> const lock(mutex_);
    open_ = true;
    changed_.notify_all();
  }
  void Pass() {
    std::unique_lock<std::mutex> lock(mutex_);
    entered_ = true;
    changed_.notify_all();
    changed_.wait(lock, [this] { return open_; });
  }
  void WaitForVisitor() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return entered_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool open_ = false;
  bool entered_ = false;
};

// A value that waits in Print until its gate is opened, and prints nothing.
class AsnAtGate : public AsnType {
 public:
  explicit AsnAtGate(Gate& gate) : gate_(gate) {}
  AsnType* Clone() const override { return new AsnAtGate(gate_); }
  void Print(std::ostream& /*out*/, int, int) const override { gate_.Pass(); }

 private:
  Gate& gate_;
};

// Stalls the output thread of `channel` in the middle of a record, and returns once it waits there.
inline void StallAt(Gate& gate, VeltDebugInfo& channel) {
  AsnAtGate const value(gate);
  channel.Trace("gate", VeltLogLevel{3}, "stalled", &value, false, true);
  gate.WaitForVisitor();
}

// What a file of this process begins with; its name gives the time.
inline std::string HeadOf(std::string const& name, ChannelSetup const& setup) {
  std::string const t = name.substr(setup.prefix.size(), 15);
  return "\xEF\xBB\xBF"
         "File create at time " +
         t.substr(0, 4) + "-" + t.substr(4, 2) + "-" + t.substr(6, 2) + " " + t.substr(9, 2) + ":" +
         t.substr(11, 2) + ":" + t.substr(13, 2) + ". Current ospid is " + std::to_string(getpid()) + "\n" +
         setup.header;
}

// The kernel's ids of this process's threads with that name.
inline std::vector<int> ThreadsNamed(std::string const& name) {
  std::vector<int> ids;
  std::error_code failed;
  for (auto const& task : std::filesystem::directory_iterator("/proc/self/task", failed)) {
    std::ifstream in(task.path() / "comm");
    std::string comm;
    if (std::getline(in, comm) && comm == name) ids.push_back(std::stoi(task.path().filename().string()));
  }
  return ids;
}

// The state letter of a thread of this process ('S' sleeps); '?' when there is no such thread.
inline char StateOf(int thread) {
  std::ifstream in("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string line;
  std::getline(in, line);
  std::size_t const end = line.rfind(')');
  return end == std::string::npos || end + 2 >= line.size() ? '?' : line[end + 2];
}

// The names that files of `prefix` get in this second and the next `seconds`.
inline std::vector<std::string> ComingNames(std::string const& prefix, int seconds) {
  std::vector<std::string> names;
  std::time_t const now = std::time(nullptr);
  for (std::time_t at = now; at <= now + seconds; ++at) {
    std::tm local{};
    localtime_r(&at, &local);
    char time[32];
    std::strftime(time, sizeof time, "%Y%m%d_%H%M%S.log", &local);
    names.push_back(prefix + time);
  }
  return names;
}

// Runs `body` in a fork of this process, which may have other threads. Returns its result; -1 when it died or
// hung.
template <typename Body>
int InFork(Body body) {
  pid_t const child = fork();
  if (child == 0) {
    alarm(60);  // ends a child that hangs
    _exit(body());
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The two queues of a channel.
inline RecordQueue& OutputQueueOf(VeltDebugInfo& channel) { return ChannelState::Of(channel).m_OutputQueue; }
inline RecordQueue& RingOf(VeltDebugInfo& channel) { return ChannelState::Of(channel).m_DiscardQueue; }

// Whether the output thread has ended; the caller may then read what it wrote.
inline bool ThreadHasEnded(VeltDebugInfo& channel) {
  return ChannelState::Of(channel).m_bThreadExited.load(std::memory_order_acquire);
}

// Takes the oldest record out of a queue; null when it is empty.
inline std::unique_ptr<OutDataUnit> TakeFrom(RecordQueue& queue) {
  if (queue.is_empty()) return nullptr;
  ACE_Message_Block* block = nullptr;
  if (queue.dequeue_head(block) == -1) return nullptr;
  std::unique_ptr<OutDataUnit> rec(reinterpret_cast<OutDataUnit*>(block->base()));
  block->release();
  return rec;
}

}  // namespace velt::test

#endif
