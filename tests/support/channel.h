// Channels, records and ASN values for tests.
#ifndef VELT_TESTS_SUPPORT_CHANNEL_H
#define VELT_TESTS_SUPPORT_CHANNEL_H

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "velt/channel.h"

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

// While it lives, no thread can be created in this process: each would get a stack larger than the address space.
class NoNewThreads {
 public:
  NoNewThreads() {
    pthread_attr_t huge;
    pthread_getattr_default_np(&before_);
    pthread_attr_init(&huge);
    pthread_attr_setstacksize(&huge, std::size_t{1} << 47);
    if (pthread_setattr_default_np(&huge) != 0) throw std::runtime_error("cannot change the default stack size");
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

// A channel whose output thread could not be created: what belongs to that thread belongs to the test.
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

// Prints a text, and counts itself.
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

// What a file of this process begins with; its name gives the time.
inline std::string HeadOf(std::string const& name, ChannelSetup const& setup) {
  std::string const t = name.substr(setup.prefix.size(), 15);
  return "\xEF\xBB\xBF" "File create at time " + t.substr(0, 4) + "-" + t.substr(4, 2) + "-" + t.substr(6, 2) + " " +
         t.substr(9, 2) + ":" + t.substr(11, 2) + ":" + t.substr(13, 2) + ". Current ospid is " +
         std::to_string(getpid()) + "\n" + setup.header;
}

// The kernel's ids of this process's threads that bear `name`.
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

// Private members of a channel: an explicit instantiation may name what other code may not.
namespace reach {

template <typename Tag, typename Tag::Type Member>
struct Private {
  friend typename Tag::Type Get(Tag /*which*/) { return Member; }
};

struct OutputQueue {
  using Type = VeltRecordQueue VeltDebugInfo::*;
  friend Type Get(OutputQueue which);
};
struct DiscardQueue {
  using Type = VeltRecordQueue VeltDebugInfo::*;
  friend Type Get(DiscardQueue which);
};
template struct Private<OutputQueue, &VeltDebugInfo::m_OutputQueue>;
template struct Private<DiscardQueue, &VeltDebugInfo::m_DiscardQueue>;

}  // namespace reach

inline VeltRecordQueue& OutputQueueOf(VeltDebugInfo& channel) { return channel.*Get(reach::OutputQueue{}); }
inline VeltRecordQueue& RingOf(VeltDebugInfo& channel) { return channel.*Get(reach::DiscardQueue{}); }

// Takes the oldest record out of a queue; null when it is empty.
inline std::unique_ptr<OutDataUnit> TakeFrom(VeltRecordQueue& queue) {
  if (queue.is_empty()) return nullptr;
  ACE_Message_Block* block = nullptr;
  if (queue.dequeue_head(block) == -1) return nullptr;
  std::unique_ptr<OutDataUnit> rec(reinterpret_cast<OutDataUnit*>(block->base()));
  block->release();
  return rec;
}

}  // namespace velt::test

#endif
