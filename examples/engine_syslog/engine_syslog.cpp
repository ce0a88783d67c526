// The engine: it picks the wanted records, buffers them, and sends them from a thread of its own.
#include "engine_syslog.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <bitset>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <deque>
#include <mutex>
#include <optional>
#include <sstream>
#include <system_error>
#include <thread>
#include <utility>

#include "syslog_socket.h"

namespace velt::examples {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kPause{100};  // between two attempts while the daemon takes no messages
constexpr milliseconds kNoticeInterval{1000};
constexpr int kWarning = 2;

std::size_t BytesOf(SyslogRecord const& record) {
  return record.module.size() + record.sub_name.size() + record.text.size();
}

std::string TextOf(AsnType const& value) {
  try {
    std::ostringstream text;
    value.Print(text, 0, 1);
    return "ASN Trace:\n" + text.str();
  } catch (...) {
    return "ASN Trace:";  // Print is the host's code; its exception must not leave the trace call
  }
}

// Copies the arguments of a trace call into a record; of the text no more than a datagram can hold.
SyslogRecord MakeRecord(std::string const& module, int level, char const* text, AsnType const* asn,
                        std::string const& sub_name, std::size_t most_bytes) {
  SyslogRecord record;
  clock_gettime(CLOCK_REALTIME, &record.time);
  record.thread = syscall(SYS_gettid);
  record.level = level;
  record.module.assign(module, 0, most_bytes);
  record.sub_name.assign(sub_name, 0, most_bytes);
  record.text.assign(text, strnlen(text, most_bytes + 1));
  if (asn != nullptr) {
    if (!record.text.empty() && record.text.back() != '\n') record.text += '\n';
    record.text += TextOf(*asn);
  }
  record.cut = record.text.size() > most_bytes;
  if (record.cut) record.text.resize(most_bytes);
  return record;
}

}  // namespace

class SyslogEngine::Sender {
 public:
  explicit Sender(SyslogOptions const& options)
      : options_(options),
        formatter_(options.format, options.ident, options.facility, options.most_datagram_bytes),
        socket_(options.socket_path),
        owner_(getpid()) {
    // The new thread must not receive the host's signals.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
      thread_ = std::thread([this] { Run(); });
    } catch (std::system_error const&) {
      stopping_ = true;  // from now on no record is accepted
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }

  bool IsInherited() const { return getpid() != owner_; }

  bool Push(SyslogRecord record) {
    std::size_t const bytes = BytesOf(record);
    std::unique_lock<std::mutex> lock(mutex_);
    auto const has_room = [&] {
      return buffer_.size() < options_.most_records && bytes <= options_.most_bytes - bytes_;
    };
    if (bytes <= options_.most_bytes)  // a larger one never finds room
      room_.wait_for(lock, options_.room_limit, [&] { return stopping_ || has_room(); });
    if (stopping_ || !has_room()) {
      ++counters_.dropped;
      if (buffer_.empty()) wake_.notify_one();  // the thread sleeps while the buffer is empty
      return false;
    }
    buffer_.push_back(std::move(record));
    bytes_ += bytes;
    ++counters_.accepted;
    lock.unlock();
    wake_.notify_one();
    return true;
  }

  void CountDrop() {
    std::lock_guard<std::mutex> const lock(mutex_);
    ++counters_.dropped;
    if (buffer_.empty()) wake_.notify_one();
  }

  SyslogCounters Counters() const {
    std::lock_guard<std::mutex> const lock(mutex_);
    return counters_;
  }

  void Stop() {
    std::unique_lock<std::mutex> lock(mutex_);
    if (!stopping_) {
      deadline_ = Clock::now() + options_.stop_limit;
      stopping_ = true;
    }
    std::thread ending = std::move(thread_);  // only one of several calls joins it
    lock.unlock();
    wake_.notify_one();
    room_.notify_all();
    if (ending.joinable()) ending.join();
  }

 private:
  void Run() {
    (void)pthread_setname_np(pthread_self(), "velt:syslog");  // for debuggers only
    std::unique_lock<std::mutex> lock(mutex_);
    while (true) {
      WaitForWork(lock);
      if (IsNoticeDue()) Announce(lock);
      if (IsTimeUp() || (stopping_ && buffer_.empty())) break;
      if (buffer_.empty()) continue;
      bool const sent = Deliver(lock, buffer_.front());
      (sent ? counters_.sent : counters_.lost) += 1;
      bytes_ -= BytesOf(buffer_.front());
      buffer_.pop_front();
      room_.notify_all();  // records differ in size: a later caller may fit where the first does not
    }
    counters_.lost += buffer_.size();
    buffer_.clear();
    bytes_ = 0;
  }

  void WaitForWork(std::unique_lock<std::mutex>& lock) {
    auto const has_work = [this] { return stopping_ || !buffer_.empty(); };
    wake_.wait(lock, [&] { return has_work() || counters_.dropped != announced_; });
    if (!has_work()) wake_.wait_until(lock, next_notice_, has_work);  // a notice alone keeps to its time
  }

  bool IsNoticeDue() const {
    return counters_.dropped != announced_ && (stopping_ || Clock::now() >= next_notice_);
  }

  bool IsTimeUp() const { return stopping_ && Clock::now() >= deadline_; }

  // True when the daemon has the record. The lock is held on entry and on return, and released in between:
  // only this thread touches the record at the front, and a push at the back does not move it.
  bool Deliver(std::unique_lock<std::mutex>& lock, SyslogRecord const& record) {
    lock.unlock();
    std::optional<std::string> const datagram = Format(record);
    lock.lock();
    if (!datagram) return false;
    while (true) {
      lock.unlock();
      SyslogSocket::Result const result = socket_.Send(*datagram);
      if (result == SyslogSocket::Result::kFull) socket_.WaitForRoom(kPause);
      lock.lock();
      if (result == SyslogSocket::Result::kSent) return true;
      if (result == SyslogSocket::Result::kRefused || IsTimeUp()) return false;
      if (result == SyslogSocket::Result::kUnreachable) Pause(lock);
    }
  }

  // Waits before the next attempt. A stop ends the wait at once.
  void Pause(std::unique_lock<std::mutex>& lock) {
    bool const was_stopping = stopping_;
    auto const until = stopping_ ? std::min(deadline_, Clock::now() + kPause) : Clock::now() + kPause;
    wake_.wait_until(lock, until, [&] { return stopping_ != was_stopping; });
  }

  std::optional<std::string> Format(SyslogRecord const& record) const {
    try {
      return formatter_.Format(record);
    } catch (std::bad_alloc const&) {
      return std::nullopt;
    }
  }

  void Announce(std::unique_lock<std::mutex>& lock) {
    next_notice_ = Clock::now() + kNoticeInterval;
    std::uint64_t const dropped = counters_.dropped;
    try {
      SyslogRecord notice;
      clock_gettime(CLOCK_REALTIME, &notice.time);
      notice.thread = syscall(SYS_gettid);
      notice.level = kWarning;
      notice.module = "engine_syslog";
      notice.text = "records dropped: " + std::to_string(dropped - announced_);
      if (Deliver(lock, notice)) announced_ = dropped;
    } catch (std::bad_alloc const&) {
      return;  // the next record tries again
    }
  }

  SyslogOptions const options_;
  SyslogFormatter const formatter_;  // sender thread
  SyslogSocket socket_;              // sender thread
  pid_t const owner_;

  mutable std::mutex mutex_;      // guards everything below
  std::condition_variable wake_;  // the sender's
  std::condition_variable room_;  // of callers that wait for room
  std::deque<SyslogRecord> buffer_;
  std::size_t bytes_ = 0;  // of the buffered records
  SyslogCounters counters_;
  std::uint64_t announced_ = 0;    // drops that the daemon was told of
  Clock::time_point next_notice_;  // earliest time to tell it of drops again
  bool stopping_ = false;
  Clock::time_point deadline_;  // the end of sending, once stopping
  std::thread thread_;
};

SyslogEngine::SyslogEngine(SyslogOptions const& options)
    : options_(options), sender_(std::make_unique<Sender>(options)) {}

SyslogEngine::~SyslogEngine() {
  if (sender_->IsInherited()) {
    (void)sender_.release();  // its thread, and maybe the holder of its lock, exist only in the parent
    return;
  }
  Stop();
}

bool SyslogEngine::Trace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn,
                         bool print, bool log) {
  return AppTrace(module, level, text, asn, print, log, std::string());
}

bool SyslogEngine::AppTrace(std::string const& module, VeltLogLevel level, char const* text,
                            AsnType const* asn, bool print, bool log, std::string const& sub_name) {
  if (text == nullptr || sender_->IsInherited()) return false;
  try {
    if (!IsWanted(module, level, print, log)) return true;
    return sender_->Push(MakeRecord(module, level, text, asn, sub_name, options_.most_datagram_bytes));
  } catch (...) {  // no memory: the exception must not leave the host's trace call
    sender_->CountDrop();
    return false;
  }
}

// An engine decides by itself which records it wants. This one does as the manager would: the caller's flags,
// or the module's sets, or those of "debug" for a module that is not registered.
bool SyslogEngine::IsWanted(std::string const& module, VeltLogLevel level, bool print, bool log) const {
  if (!options_.follow_module_sets || print || log) return true;
  VeltDebugMgr* const manager = VeltDebugMgr::Instance();
  std::bitset<32> levels;
  std::bitset<32> outputs;
  if (manager == nullptr || level < 0 || static_cast<std::size_t>(level) >= levels.size()) return false;
  bool const found = manager->GetSubModuleInfo(module, levels, outputs) ||
                     manager->GetSubModuleInfo("debug", levels, outputs);
  return found && levels[static_cast<std::size_t>(level)] && (outputs[0] || outputs[1]);
}

void SyslogEngine::Stop() {
  if (!sender_->IsInherited()) sender_->Stop();
}

SyslogCounters SyslogEngine::Counters() const {
  return sender_->IsInherited() ? SyslogCounters{} : sender_->Counters();
}

}  // namespace velt::examples
