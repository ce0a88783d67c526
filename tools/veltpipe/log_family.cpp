// The files of one log family, as its directory shows them.
#include "tools/veltpipe/log_family.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <utility>

#include "velt/channel.h"

namespace velt::tools {
namespace {

constexpr std::size_t kTimeLength = 15;  // "20261115_085213"

struct DirectoryCloser {
  void operator()(DIR* directory) const { closedir(directory); }
};

// The end of a log file name for the current second, "20261115_085213.log". Uses time(), as the library does:
// other clocks may show the next second a little earlier.
std::string LogNameEndNow() {
  std::time_t const now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  std::array<char, kTimeLength + 1> text{};
  (void)std::strftime(text.data(), text.size(), "%Y%m%d_%H%M%S", &local);  // fails only after the year 9999
  return std::string(text.data()) + LOGFILETAIL;
}

std::int64_t SizeOf(std::string const& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 ? static_cast<std::int64_t>(info.st_size) : -1;
}

bool IsLogName(std::string const& name, std::string const& prefix) {
  std::size_t const tail_length = std::strlen(LOGFILETAIL);
  return name.size() == prefix.size() + kTimeLength + tail_length &&
         name.compare(0, prefix.size(), prefix) == 0 &&
         name.compare(name.size() - tail_length, tail_length, LOGFILETAIL) == 0;
}

}  // namespace

LogFamily::LogFamily(std::string const& directory, std::string const& prefix)
    : directory_(directory.back() == '/' ? directory : directory + "/"), prefix_(prefix) {
  known_logs_ = LogNames();
}

bool LogFamily::SecondIsTaken() const {
  std::string const log = directory_ + prefix_ + LogNameEndNow();
  return access(log.c_str(), F_OK) == 0 || access((log + GZFILETAIL).c_str(), F_OK) == 0;
}

bool LogFamily::FindNewerLog() {
  std::set<std::string> names = LogNames();
  bool found = false;
  for (auto const& name : names) {
    if (known_logs_.count(name) != 0) continue;
    current_log_ = name;
    found = true;
  }
  known_logs_ = std::move(names);
  return found;
}

LogFamily::Footprint LogFamily::Measure() {
  if (current_log_.empty()) return {};
  std::string const log = directory_ + current_log_;
  Footprint const now{SizeOf(log), SizeOf(log + GZFILETAIL)};
  if (now.log_bytes < 0) known_logs_.erase(current_log_);
  return now;
}

// Tries it with a file without a name, which disappears when it is closed.
std::string LogFamily::WhyNoFile() const {
  constexpr mode_t kMode = 0600;
  int const file = open(directory_.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, kMode);
  if (file < 0) return errno == EOPNOTSUPP || errno == EISDIR ? "" : std::strerror(errno);
  std::string reason = write(file, "\n", 1) == 1 ? "" : std::strerror(errno);
  close(file);
  return reason;
}

std::set<std::string> LogFamily::LogNames() const {
  std::set<std::string> names;
  std::unique_ptr<DIR, DirectoryCloser> const open(opendir(directory_.c_str()));
  if (open == nullptr) return names;
  while (dirent const* const entry = readdir(open.get())) {
    std::string name = entry->d_name;
    if (IsLogName(name, prefix_)) names.insert(std::move(name));
  }
  return names;
}

}  // namespace velt::tools
