// What happens between two log files: finished ones are compressed, the oldest archives deleted.
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "velt/channel.h"

char const* const LOGFILETAIL = ".log";
char const* const GZFILETAIL = ".gz";
char const* const TARFILETAIL = ".tar";
char const* const ZIPFILETAIL = ".tar.gz";

namespace {

constexpr int kTarArchive = 0;  // compressed
constexpr int kLogFile = 1;
constexpr int kTar = 2;
constexpr int kLogArchive = 3;
constexpr int kForeign = 4;

constexpr std::size_t kTimeLength = 15;  // "20240305_140709"
constexpr std::size_t kTimeAndLogLength = kTimeLength + 4;
constexpr std::size_t kLongestDirectory = 4097;
constexpr mode_t kRegularFileBit = 0100000;  // one bit, not the whole file type: a socket has it as well
constexpr mode_t kArchiveMode = 0440;

bool EndsWith(std::string const& name, char const* suffix) {
  std::size_t const length = std::strlen(suffix);
  return name.size() >= length && name.compare(name.size() - length, length, suffix) == 0;
}

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};

// Calls `take` with every name of the directory. False when it cannot be opened.
template <typename Take>
bool ForEachName(std::string const& path, Take take) {
  std::unique_ptr<DIR, CloseDirectory> const directory(opendir(path.c_str()));
  if (directory == nullptr) return false;
  while (dirent const* const entry = readdir(directory.get())) take(std::string(entry->d_name));
  return true;
}

}  // namespace

bool VeltDebugInfo::CheckFileLength(std::string const& name, int type) const {
  std::size_t const prefix = m_strFilePrefix.size();
  switch (type) {
    case kTarArchive:
      return name.size() == prefix + kTimeLength + std::strlen(ZIPFILETAIL);
    case kLogFile:
      return name.size() == prefix + kTimeLength + std::strlen(LOGFILETAIL);
    case kTar:
      return name.size() == prefix + kTimeLength + std::strlen(TARFILETAIL);
    case kLogArchive:
      return name.size() == prefix + kTimeAndLogLength + std::strlen(GZFILETAIL);
    default:
      return false;
  }
}

int VeltDebugInfo::GetFileType(std::string const& name) const {
  // The name first: a directory may hold any number of foreign files, and asking the system about each is
  // slow.
  if (name.compare(0, m_strFilePrefix.size(), m_strFilePrefix) != 0) return kForeign;
  int type = kForeign;
  // Archives of both kinds have names of one length, so the longer suffix is asked for first.
  if (EndsWith(name, LOGFILETAIL) && CheckFileLength(name, kLogFile)) {
    type = kLogFile;
  } else if (EndsWith(name, ZIPFILETAIL) && CheckFileLength(name, kTarArchive)) {
    type = kTarArchive;
  } else if (EndsWith(name, TARFILETAIL) && CheckFileLength(name, kTar)) {
    type = kTar;
  } else if (EndsWith(name, GZFILETAIL) && CheckFileLength(name, kLogArchive)) {
    type = kLogArchive;
  }
  if (type == kForeign) return kForeign;
  struct stat info {};
  std::string const path = m_strLogPath + name;
  bool const regular = stat(path.c_str(), &info) == 0 && (info.st_mode & kRegularFileBit) != 0;
  return regular ? type : kForeign;
}

void VeltDebugInfo::ZipLogFiles(std::string const& name) const {
  if (name.empty() || m_strLogPath.size() > kLongestDirectory) return;
  std::array<char, PATH_MAX + 1> resolved{};
  bool const found = realpath(m_strLogPath.c_str(), resolved.data()) != nullptr;
  std::string const source = (found ? std::string(resolved.data()) + '/' : m_strLogPath) + name;
  std::string const archive = source + GZFILETAIL;
  if (GZCompress(source, archive) == -1) return;
  (void)chmod(archive.c_str(), kArchiveMode);  // the archive is whole whatever its mode
  (void)std::remove(source.c_str());           // one that stays is compressed again at the next rotation
}

void VeltDebugInfo::RemoveSpilthFile() const {
  std::vector<std::string> archives;
  bool const opened = ForEachName(m_strLogPath, [&](std::string const& name) {
    if (GetFileType(name) == kLogArchive) archives.push_back(name);
  });
  if (!opened || archives.size() <= m_nEachProcessMaxZipNum) return;

  std::size_t const dot = m_strFirstFileName.find('.');
  std::string const kept_stem = dot == std::string::npos ? std::string() : m_strFirstFileName.substr(0, dot);
  std::sort(archives.begin(), archives.end());  // the time in the name makes this the order of creation
  std::size_t surplus = archives.size() - m_nEachProcessMaxZipNum;
  for (auto archive = archives.begin(); archive != archives.end() && surplus > 0; ++archive) {
    if (!kept_stem.empty() && archive->find(kept_stem) != std::string::npos) continue;
    (void)std::remove((m_strLogPath + *archive).c_str());
    --surplus;  // also when it stays: one that cannot be removed must not cost the life of a newer one
  }
}

void VeltDebugInfo::ProcessLogFileBeforeCreateNew() const {
  try {
    std::vector<std::string> finished;
    bool const opened = ForEachName(m_strLogPath, [&](std::string const& name) {
      if (GetFileType(name) == kLogFile) finished.push_back(name);
    });
    if (!opened) return;
    for (std::string const& name : finished) ZipLogFiles(name);
    RemoveSpilthFile();
  } catch (std::bad_alloc const&) {
    return;  // the next rotation meets the same files again
  }
}
