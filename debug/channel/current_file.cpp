#include "debug/channel/current_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <string>

#include "velt/channel.h"

#include "debug/channel/byte_order_mark.h"
#include "debug/channel/channel_state.h"
#include "platform/bounded.h"
#include "platform/local_time.h"

namespace velt {
namespace {

constexpr mode_t kDirectoryMode = 0755;
constexpr mode_t kLogFileMode = 0640;

using TimeBuffer = std::array<char, 512>;

// An array: the output thread has nobody to pass an allocation failure to.
TimeBuffer TimeText(std::tm const& local, char const* pattern) {
  TimeBuffer text{};
  (void)FormatLocalTime(text.data(), text.size(), pattern, local);  // the three patterns fit
  return text;
}

void WriteFirstLines(ChannelState& state, std::tm const& created) {
  if (VELTIsGlobalVersion()) (void)AppendToFile(state, kByteOrderMark.data(), kByteOrderMark.size());
  std::array<char, 512> creation{};
  snprintf_s(creation.data(), creation.size(), creation.size() - 1,
             "File create at %s. Current ospid is %d\n", TimeText(created, "time %Y-%m-%d %H:%M:%S").data(),
             getpid());
  WriteFile(state, creation.data());
  WriteFile(state, state.m_strFileHeader.c_str());
}

}  // namespace

bool OpenNewFile(ChannelState& state) {
  try {
    std::tm const local = LocalTime(std::time(nullptr));
    std::string const name =
        state.m_strFilePrefix + TimeText(local, VELT_DEBUG_FILE_NAME_TIME_PATTERN).data();
    struct stat info {};
    if (stat(state.m_strLogPath.c_str(), &info) != 0) {
      (void)mkdir(state.m_strLogPath.c_str(),
                  kDirectoryMode);  // a failure shows as a file that cannot be opened
    }
    state.m_strCurFileName = state.m_strLogPath + name;
    state.m_pFile = std::make_unique<LogFile>();
    if (!state.m_pFile->Open(state.m_strCurFileName)) {
      state.m_pFile.reset();
      return false;
    }
    if (state.m_strFirstFileName.empty()) state.m_strFirstFileName = name;
    WriteFirstLines(state, local);
    (void)chmod(state.m_strCurFileName.c_str(), kLogFileMode);  // the file is written either way
    return true;
  } catch (std::bad_alloc const&) {
    state.m_pFile.reset();
    return false;  // the caller tries again in a second
  }
}

bool WriteFile(ChannelState& state, char const* text) {
  if (text == nullptr || state.m_pFile == nullptr) return false;
  return AppendToFile(state, text, strnlen(text, kLongestWrite));
}

bool AppendToFile(ChannelState& state, char const* text, std::size_t length) {
  return state.m_pFile->Append(text, length);
}

void CloseFile(ChannelState& state) {
  if (state.m_pFile == nullptr) return;
  std::array<char, 512> trailer{};
  snprintf_s(trailer.data(), trailer.size(), trailer.size() - 1, "File close at %s\n",
             TimeText(LocalTime(std::time(nullptr)), "%Z %Y-%m-%d %H:%M:%S").data());
  WriteFile(state, trailer.data());
  state.m_pFile.reset();
}

}  // namespace velt
