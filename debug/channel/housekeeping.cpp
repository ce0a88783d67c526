#include "debug/channel/housekeeping.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "velt/channel.h"

#include "debug/channel/channel_problems.h"
#include "debug/channel/channel_state.h"
#include "debug/channel/family.h"
#include "debug/channel/gzip.h"

namespace velt {
namespace {

constexpr std::size_t kLongestDirectory = 4097;
constexpr mode_t kArchiveMode = 0440;

// Its end is stored with release: a thread that sees it also sees the finished archives.
class HousekeepingMark {
 public:
  explicit HousekeepingMark(ChannelState& state) : state_(state) {
    state_.m_bHousekeeping.store(true, std::memory_order_relaxed);
  }
  ~HousekeepingMark() { state_.m_bHousekeeping.store(false, std::memory_order_release); }
  HousekeepingMark(HousekeepingMark const&) = delete;
  HousekeepingMark& operator=(HousekeepingMark const&) = delete;

 private:
  ChannelState& state_;
};

}  // namespace

void ZipLogFiles(ChannelState& state, std::string const& name) {
  if (name.empty() || state.m_strLogPath.size() > kLongestDirectory) return;
  std::array<char, PATH_MAX + 1> resolved{};
  bool const found = realpath(state.m_strLogPath.c_str(), resolved.data()) != nullptr;
  std::string const source = (found ? std::string(resolved.data()) + '/' : state.m_strLogPath) + name;
  std::string const archive = source + GZFILETAIL;
  if (GZCompress(source, archive, &state.m_counts.archiveBlocks) == -1) {
    if (errno != 0) {  // 0: the file is empty, which is left and is not a failure
      state.m_counts.archivesFailed.Add();
      FileNotArchived(state, source, errno);
    }
    return;
  }
  state.m_counts.archivesMade.Add();
  (void)chmod(archive.c_str(), kArchiveMode);  // after a failure the archive is still complete
  (void)std::remove(source.c_str());           // after a failure the next rotation compresses it again
}

void RemoveSpilthFile(ChannelState& state) {
  std::vector<std::string> archives;
  bool const opened = ForEachName(state.m_strLogPath, [&](std::string_view name, unsigned char kind) {
    if (FileTypeListed(state, name, kind) == kLogArchive) archives.emplace_back(name);
  });
  if (!opened || archives.size() <= state.m_nEachProcessMaxZipNum) return;

  std::size_t const dot = state.m_strFirstFileName.find('.');
  std::string const kept_stem =
      dot == std::string::npos ? std::string() : state.m_strFirstFileName.substr(0, dot);
  // The time in the name makes this the order of creation. A heap, since mostly one of many is deleted.
  std::make_heap(archives.begin(), archives.end(), std::greater<>());
  std::size_t surplus = archives.size() - state.m_nEachProcessMaxZipNum;
  while (surplus > 0 && !archives.empty()) {
    std::pop_heap(archives.begin(), archives.end(), std::greater<>());
    std::string const oldest = std::move(archives.back());
    archives.pop_back();
    if (!kept_stem.empty() && oldest.find(kept_stem) != std::string::npos) continue;
    if (std::remove((state.m_strLogPath + oldest).c_str()) == 0) state.m_counts.archivesRemoved.Add();
    --surplus;  // even if it could not be removed: no newer one must be deleted in its place
  }
}

void ProcessLogFileBeforeCreateNew(ChannelState& state) {
  HousekeepingMark const mark(state);
  try {
    std::vector<std::string> finished;
    bool const opened = ForEachName(state.m_strLogPath, [&](std::string_view name, unsigned char /*kind*/) {
      // Only log files are looked at, of which there are few: archives may be thousands.
      if (FileTypeByName(state, name) != kLogFile) return;
      std::string file(name);
      if (GetFileType(state, file) == kLogFile) finished.push_back(std::move(file));
    });
    if (!opened) return;
    for (std::string const& name : finished) ZipLogFiles(state, name);
    RemoveSpilthFile(state);
  } catch (std::bad_alloc const&) {
    return;  // the next rotation tries again
  }
}

}  // namespace velt
