#include "tests/load/pacer.h"

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <set>
#include <stdexcept>
#include <thread>
#include <utility>

namespace velt::load {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::minutes kLongestWait(5);
constexpr std::size_t kTimeLength = 15;
constexpr std::size_t kTailLength = kTimeLength + 4;  // "20261121_140720.log"

// The second in which a file was opened, by its name.
std::time_t SecondOf(std::string const& name) {
  std::tm local{};
  if (strptime(name.c_str() + name.size() - kTailLength, "%Y%m%d_%H%M%S", &local) == nullptr)
    throw std::runtime_error("no log file: " + name);
  local.tm_isdst = -1;
  return std::mktime(&local);
}

}  // namespace

Pacer::Pacer(std::string directory, std::size_t file_bytes, std::size_t window_bytes)
    : directory_(std::move(directory)),
      file_bytes_(file_bytes),
      window_bytes_(window_bytes),
      events_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  // With removals: inotify reports two creations of one name as one event unless another event is between
  // them.
  if (events_ == -1 || inotify_add_watch(events_, directory_.c_str(), IN_CREATE | IN_DELETE) == -1)
    throw std::runtime_error("cannot watch " + directory_);
  for (auto& family : families_) family.room = window_bytes_;
}

Pacer::~Pacer() { close(events_); }

void Pacer::Admit(unsigned which, std::size_t bytes) {
  Family& family = families_[which];
  auto const start = Clock::now();
  // Relaxed: these are only figures.
  while (family.admitted.load(std::memory_order_relaxed) > family.room.load(std::memory_order_relaxed)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    // No file has grown for minutes: an error is better than a wait for ever.
    if (Clock::now() - start > kLongestWait)
      throw std::runtime_error(directory_ + ": no room for five minutes");
    auto const held_back = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start).count();
    std::int64_t longest = longest_held_back_s_;
    while (held_back > longest && !longest_held_back_s_.compare_exchange_weak(longest, held_back)) {
    }
  }
  family.admitted.fetch_add(bytes, std::memory_order_relaxed);
}

void Pacer::Look() {
  ReadEvents();
  for (auto& family : families_) MakeRoom(family);
}

void Pacer::ReadEvents() {
  alignas(inotify_event) std::array<char, 16'384> buffer;
  ssize_t length = 0;
  while ((length = read(events_, buffer.data(), buffer.size())) > 0) {
    for (char const* at = buffer.data(); at < buffer.data() + length;) {
      auto const* const event = reinterpret_cast<inotify_event const*>(at);
      if ((event->mask & IN_Q_OVERFLOW) != 0) throw std::runtime_error("events of files were lost");
      if ((event->mask & IN_CREATE) != 0) NoteCreated(event->name);
      at += sizeof(inotify_event) + event->len;
    }
  }
}

void Pacer::NoteCreated(std::string const& name) {
  if (name.size() < kTailLength || name.compare(name.size() - 4, 4, ".log") != 0) return;  // an archive
  std::string const prefix = name.substr(0, name.size() - kTailLength);
  for (unsigned i = 0; i < kFamilies; ++i) {
    if (prefix != PrefixOf(i)) continue;
    families_[i].opened.push_back(name);
    families_[i].last_opened = Clock::now();
  }
}

// A finished file counts as its limit, though it is a few bytes longer. Ring records, a megabyte of each
// family in the long run, are in the files without having been admitted. Both only make the window a little
// larger.
void Pacer::MakeRoom(Family& family) const {
  if (family.opened.empty()) return;
  struct stat info {};
  bool const there = stat((directory_ + "/" + family.opened.back()).c_str(), &info) == 0;
  std::size_t const in_file = there ? static_cast<std::size_t>(info.st_size) : file_bytes_;
  std::uint64_t const finished = (family.opened.size() - 1) * std::uint64_t{file_bytes_};
  std::uint64_t room = finished + std::min(in_file, file_bytes_) + window_bytes_;
  bool const same_second = Clock::now() - family.last_opened < std::chrono::milliseconds(1'100);
  if (same_second) room = std::min(room, finished + file_bytes_ / 2);
  family.room.store(room, std::memory_order_relaxed);
}

bool Pacer::AllOpened() const {
  return std::none_of(families_.begin(), families_.end(), [](auto const& f) { return f.opened.empty(); });
}

unsigned Pacer::Rotations() const {
  std::size_t rotations = 0;
  for (auto const& family : families_) rotations += family.opened.empty() ? 0 : family.opened.size() - 1;
  return static_cast<unsigned>(rotations);
}

unsigned Pacer::SharedNames() const {
  std::size_t shared = 0;
  for (auto const& family : families_)
    shared += family.opened.size() - std::set<std::string>(family.opened.begin(), family.opened.end()).size();
  return static_cast<unsigned>(shared);
}

long Pacer::LeastSecondsBetweenFiles() const {
  long least = -1;
  for (auto const& family : families_) {
    for (std::size_t i = 1; i < family.opened.size(); ++i) {
      long const seconds = SecondOf(family.opened[i]) - SecondOf(family.opened[i - 1]);
      least = least == -1 ? seconds : std::min(least, seconds);
    }
  }
  return least;
}

std::chrono::seconds Pacer::LongestHeldBack() const {
  return std::chrono::seconds(longest_held_back_s_.load());
}

}  // namespace velt::load
