#include "debug/channel/current_file.h"

#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "velt/channel.h"

#include "debug/channel/byte_order_mark.h"
#include "debug/channel/channel_state.h"
#include "debug/channel/file_name_time.h"
#include "debug/channel/next_name.h"
#include "platform/bounded.h"
#include "platform/local_time.h"

namespace velt {
namespace {

constexpr mode_t kDirectoryMode = 0755;
constexpr mode_t kLogFileMode = 0640;

using TimeBuffer = std::array<char, 512>;

// Returns an array, not a string: on the output thread an allocation failure could not be handled.
TimeBuffer TimeText(std::tm const& local, char const* pattern) {
  TimeBuffer text{};
  (void)FormatLocalTime(text.data(), text.size(), pattern, local);  // all patterns of this file fit
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

void MakeDirectory(ChannelState const& state) {
  struct stat info {};
  if (stat(state.m_strLogPath.c_str(), &info) == 0) return;
  (void)mkdir(state.m_strLogPath.c_str(), kDirectoryMode);  // a failure shows as a file that cannot be opened
}

bool Exists(std::string const& path) {
  struct stat info {};
  return lstat(path.c_str(), &info) == 0;
}

// `name` is without the directory; the file is open.
void BeginFile(ChannelState& state, std::string const& name, std::tm const& created) {
  state.m_counts.filesOpened.Add();
  if (state.m_strFirstFileName.empty()) state.m_strFirstFileName = name;
  WriteFirstLines(state, created);
  (void)chmod(state.m_strCurFileName.c_str(), kLogFileMode);  // the file is written either way
}

// Does not change errno, which has the reason.
void ForgetFile(ChannelState& state) {
  int const reason = errno;
  state.m_pFile.reset();
  errno = reason;
}

void WaitForNextSecond() {
  timeval now{};
  (void)gettimeofday(&now, nullptr);
  timespec const rest{0, (1'000'000 - now.tv_usec) * 1000 - 1};
  (void)nanosleep(&rest, nullptr);  // if it ends early, the file is opened a little sooner
}

// OpenNextFile, which keeps exceptions from the output thread.
bool OpenUnusedName(ChannelState& state) {
  std::tm local = LocalTime(std::time(nullptr));
  MakeDirectory(state);
  std::int64_t time = NextNameTime(state, SecondsOf(local));
  if (IsTooFarAhead(time, SecondsOf(local))) {
    WaitForNextSecond();
    local = LocalTime(std::time(nullptr));
  }
  auto file = std::make_unique<LogFile>();
  for (;; ++time) {
    std::string const name = state.m_strFilePrefix + NameTimeOf(time) + LOGFILETAIL;
    state.m_strCurFileName = state.m_strLogPath + name;
    if (Exists(state.m_strCurFileName + GZFILETAIL)) continue;
    if (file->Create(state.m_strCurFileName)) {
      state.m_pFile = std::move(file);
      state.m_names.last_name = time;
      BeginFile(state, name, local);
      return true;
    }
    if (errno != EEXIST) return false;
  }
}

}  // namespace

bool OpenNewFile(ChannelState& state) {
  try {
    std::tm const local = LocalTime(std::time(nullptr));
    std::string const name =
        state.m_strFilePrefix + TimeText(local, VELT_DEBUG_FILE_NAME_TIME_PATTERN).data();
    MakeDirectory(state);
    state.m_strCurFileName = state.m_strLogPath + name;
    state.m_pFile = std::make_unique<LogFile>();
    if (!state.m_pFile->Open(state.m_strCurFileName)) {
      ForgetFile(state);
      return false;
    }
    BeginFile(state, name, local);
    return true;
  } catch (std::bad_alloc const&) {
    ForgetFile(state);
    errno = ENOMEM;
    return false;
  }
}

bool OpenNextFile(ChannelState& state) {
  try {
    return OpenUnusedName(state);
  } catch (std::bad_alloc const&) {
    ForgetFile(state);
    errno = ENOMEM;
    return false;
  }
}

bool WriteFile(ChannelState& state, char const* text) {
  if (text == nullptr || state.m_pFile == nullptr) return false;
  return AppendToFile(state, text, strnlen(text, kLongestWrite));
}

bool AppendToFile(ChannelState& state, char const* text, std::size_t length) {
  std::uint32_t const before = state.m_pFile->Size();
  bool const whole = state.m_pFile->Append(text, length);
  int const reason = errno;
  state.m_counts.bytesWritten.Add(state.m_pFile->Size() - before);
  if (!whole) errno = reason;
  return whole;
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
