#include "debug/channel/family.h"

#include <sys/stat.h>

#include <cstring>

#include "velt/channel.h"

#include "debug/channel/channel_state.h"

char const* const VELT_DEBUG_FILE_NAME_TIME_PATTERN = "%Y%m%d_%H%M%S.log";
char const* const LOGFILETAIL = ".log";
char const* const GZFILETAIL = ".gz";
char const* const TARFILETAIL = ".tar";
char const* const ZIPFILETAIL = ".tar.gz";

namespace velt {
namespace {

constexpr std::size_t kTimeLength = 15;  // "20240305_140709"
constexpr std::size_t kTimeAndLogLength = kTimeLength + 4;
constexpr mode_t kRegularFileBit = 0100000;  // one bit of the file type, which a socket has too

bool EndsWith(std::string_view name, std::string_view suffix) {
  return name.size() >= suffix.size() && name.substr(name.size() - suffix.size()) == suffix;
}

bool IsRegular(ChannelState const& state, std::string_view name) {
  struct stat info {};
  std::string const path = state.m_strLogPath + std::string(name);
  return stat(path.c_str(), &info) == 0 && (info.st_mode & kRegularFileBit) != 0;
}

}  // namespace

bool CheckFileLength(ChannelState const& state, std::string_view name, int type) {
  std::size_t const prefix = state.m_strFilePrefix.size();
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

FileType FileTypeByName(ChannelState const& state, std::string_view name) {
  if (name.compare(0, state.m_strFilePrefix.size(), state.m_strFilePrefix) != 0) return kForeign;
  if (EndsWith(name, LOGFILETAIL) && CheckFileLength(state, name, kLogFile)) return kLogFile;
  // Names of both kinds of archives have the same length, so the longer suffix is checked first.
  if (EndsWith(name, ZIPFILETAIL) && CheckFileLength(state, name, kTarArchive)) return kTarArchive;
  if (EndsWith(name, TARFILETAIL) && CheckFileLength(state, name, kTar)) return kTar;
  if (EndsWith(name, GZFILETAIL) && CheckFileLength(state, name, kLogArchive)) return kLogArchive;
  return kForeign;
}

FileType FileTypeListed(ChannelState const& state, std::string_view name, unsigned char kind) {
  FileType const type = FileTypeByName(state, name);
  if (type == kForeign || kind == DT_REG) return type;
  return IsRegular(state, name) ? type : kForeign;
}

int GetFileType(ChannelState const& state, std::string const& name) {
  // The name first: a directory may have many other files, and stat is slow.
  FileType const type = FileTypeByName(state, name);
  return type != kForeign && IsRegular(state, name) ? type : kForeign;
}

}  // namespace velt
