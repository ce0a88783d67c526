// The open file of a channel: create, append, close.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <new>
#include <string>

#include "velt/channel.h"

#include "platform/bounded.h"
#include "platform/local_time.h"

char const* const VELT_DEBUG_FILE_NAME_TIME_PATTERN = "%Y%m%d_%H%M%S.log";

namespace {

constexpr mode_t kDirectoryMode = 0755;
constexpr mode_t kLogFileMode = 0640;
constexpr std::size_t kLongestWrite = 2'097'152;

using TimeBuffer = std::array<char, 512>;

// An array: the output thread has nobody to pass an allocation failure to.
TimeBuffer TimeText(std::tm const& local, char const* pattern) {
  TimeBuffer text{};
  (void)velt::FormatLocalTime(text.data(), text.size(), pattern, local);  // the three patterns fit
  return text;
}

// The way to the descriptor of a file stream, which the library's own streams do not offer.
struct OpenedFile : std::filebuf {
  static int DescriptorOf(std::filebuf& buffer) { return (buffer.*(&OpenedFile::_M_file)).fd(); }
};

// Creates or truncates `path` in `stream`. Returns the descriptor, which stays the stream's; -1 on failure.
//
// Lines go to the descriptor and not through the stream: one write(2) each instead of a writev, and a line
// that the device refused is not kept back by the stream to come a second time.
int OpenInto(std::ofstream& stream, std::string const& path) {
  stream.rdbuf()->pubsetbuf(nullptr, 0);
  stream.open(path, std::ios_base::out | std::ios_base::trunc);
  if (!stream.is_open() || !stream.good()) return -1;
  int const file = OpenedFile::DescriptorOf(*stream.rdbuf());
  (void)fcntl(file, F_SETFD, FD_CLOEXEC);  // programs that the host runs need not hold a log file open
  return file;
}

}  // namespace

bool VeltDebugInfo::OpenNewFile() {
  try {
    std::tm const local = velt::LocalTime(std::time(nullptr));
    std::string const time_in_name = TimeText(local, VELT_DEBUG_FILE_NAME_TIME_PATTERN).data();
    struct stat info {};
    if (stat(m_strLogPath.c_str(), &info) != 0) {
      (void)mkdir(m_strLogPath.c_str(), kDirectoryMode);  // a failure shows as a file that cannot be opened
    }
    m_strCurFileName = m_strLogPath + m_strFilePrefix + time_in_name;
    m_nCurFileSize = 0;

    m_pFile = std::make_unique<std::ofstream>();
    m_nFileDescriptor = OpenInto(*m_pFile, m_strCurFileName);
    if (m_nFileDescriptor == -1) {
      m_pFile.reset();
      return false;
    }
    if (m_strFirstFileName.empty()) m_strFirstFileName = m_strFilePrefix + time_in_name;

    VELTInsertBOM(*m_pFile);
    m_nCurFileSize = static_cast<uint32_t>(lseek(m_nFileDescriptor, 0, SEEK_CUR));
    std::array<char, 512> creation{};
    velt::snprintf_s(creation.data(), creation.size(), creation.size() - 1,
                     "File create at %s. Current ospid is %d\n",
                     TimeText(local, "time %Y-%m-%d %H:%M:%S").data(), getpid());
    WriteFile(creation.data());
    WriteFile(m_strFileHeader.c_str());
    (void)chmod(m_strCurFileName.c_str(), kLogFileMode);  // the file is written either way
    return true;
  } catch (std::bad_alloc const&) {
    m_pFile.reset();
    return false;  // the caller tries again in a second
  }
}

bool VeltDebugInfo::WriteFile(char const* text) {
  if (text == nullptr || m_pFile == nullptr) return false;
  return Append(text, strnlen(text, kLongestWrite));
}

bool VeltDebugInfo::Append(char const* text, std::size_t length) {
  while (length > 0) {
    ssize_t const written = write(m_nFileDescriptor, text, length);
    if (written == -1 && errno == EINTR) continue;
    if (written <= 0)
      return false;  // the rest of this text is given up; the next one is tried in its own right
    m_nCurFileSize += static_cast<uint32_t>(written);
    text += written;
    length -= static_cast<std::size_t>(written);
  }
  return true;
}

void VeltDebugInfo::CloseFile() {
  if (m_pFile == nullptr) return;
  std::array<char, 512> trailer{};
  velt::snprintf_s(trailer.data(), trailer.size(), trailer.size() - 1, "File close at %s\n",
                   TimeText(velt::LocalTime(std::time(nullptr)), "%Z %Y-%m-%d %H:%M:%S").data());
  WriteFile(trailer.data());
  m_pFile.reset();  // nothing is buffered, so closing has nothing to lose
}
