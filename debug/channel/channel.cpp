// The public operations of a channel. Each one calls a function of one of the included files.
#include "velt/channel.h"

#include <array>
#include <chrono>
#include <cstdarg>
#include <memory>
#include <string>

#include "velt/config.h"

#include "debug/channel/channel_state.h"
#include "debug/channel/counts.h"
#include "debug/channel/current_file.h"
#include "debug/channel/family.h"
#include "debug/channel/flush.h"
#include "debug/channel/gzip.h"
#include "debug/channel/housekeeping.h"
#include "debug/channel/line.h"
#include "debug/channel/output.h"
#include "debug/channel/output_thread.h"
#include "debug/channel/ring.h"
#include "debug/channel/shutdown.h"
#include "debug/channel/trace.h"
#include "platform/message_format.h"

namespace {

constexpr std::size_t kQueueBytes = 10'240'000;  // high and low water mark of both queues
constexpr std::size_t kFormatCapacity = 2047;

std::string DirectoryFor(std::string const& log_path) {
  if (log_path.empty()) return VeltGetDefaultLogPath();
  return log_path.back() == '/' ? log_path : log_path + '/';
}

}  // namespace

velt::ChannelState::ChannelState(std::string const& logPath, std::string const& filePrefix,
                                 std::string const& fileHeader, bool bPrint, bool bLog,
                                 unsigned int nFiltLogBufSize, unsigned int nEachFileMaxSize,
                                 unsigned int nEachProcessMaxZipNum, unsigned int nZipFileIncludeFileNum)
    : m_strFilePrefix(filePrefix),
      m_strLogPath(DirectoryFor(logPath)),
      m_strFileHeader(fileHeader),
      m_bPrint(bPrint),
      m_bLog(bLog),
      m_nFiltLogBufSize(nFiltLogBufSize),
      m_nEachFileMaxSize(nEachFileMaxSize),
      m_nEachProcessMaxZipNum(nEachProcessMaxZipNum),
      m_nZipFileIncludeFileNum(nZipFileIncludeFileNum),
      m_nForkGeneration(ForkGeneration()) {
  m_OutputQueue.high_water_mark(kQueueBytes);
  m_OutputQueue.low_water_mark(kQueueBytes);
  m_DiscardQueue.high_water_mark(kQueueBytes);
  m_DiscardQueue.low_water_mark(kQueueBytes);
}

VeltDebugInfo::VeltDebugInfo(std::string const& logPath, std::string const& filePrefix,
                             std::string const& fileHeader, bool bPrint, bool bLog,
                             unsigned int nFiltLogBufSize, unsigned int nEachFileMaxSize,
                             unsigned int nEachProcessMaxZipNum, unsigned int nZipFileIncludeFileNum,
                             bool /*ignored*/) {
  auto state =
      std::make_unique<velt::ChannelState>(logPath, filePrefix, fileHeader, bPrint, bLog, nFiltLogBufSize,
                                           nEachFileMaxSize, nEachProcessMaxZipNum, nZipFileIncludeFileNum);
  m_pState = state.get();
  velt::ReadProblemSetting();
  (void)Init();  // a channel without a thread refuses records; a host may call Init again
  velt::EnterLiveChannel(*m_pState);
  (void)state.release();
}

VeltDebugInfo::~VeltDebugInfo() {
  if (m_pState->InheritedByFork()) {
    m_pState->m_pFile.reset();  // closes the descriptor only: the file has no buffer that must be written
    velt::KeepInherited(m_pState->m_inherited, m_pState);
    return;
  }
  velt::EndChannel(*m_pState);
  velt::LeaveLiveChannel(*m_pState);
  delete m_pState;
}

bool VeltDebugInfo::Init() { return velt::StartOutputThread(*m_pState, this); }

void VeltDebugInfo::DequeueMsg() { velt::ClearRing(*m_pState); }

bool VeltDebugInfo::Trace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn,
                          bool bPrint, bool bLog) {
  return velt::TraceText(*m_pState, module, level, text, std::string::npos, asn, bPrint, bLog);
}

bool VeltDebugInfo::TraceInner(OutDataUnit*& rec) { return velt::TraceRecord(*m_pState, rec); }

void VeltDebugInfo::FmtTrace(char const* fmt, ...) {
  std::array<char, kFormatCapacity> message;
  std::va_list args;
  va_start(args, fmt);
  int const length = velt::FormatMessage(message.data(), message.size(), fmt, args);
  va_end(args);
  if (length <= 0) {
    velt::CountRefused(*m_pState);
    return;
  }
  Trace(velt::kUnnamedModule, VeltLogLevel{velt::kDefaultLevel}, message.data(), nullptr, true, true);
}

void VeltDebugInfo::ASNTrace(AsnType const* value, bool bPrint, bool bLog) {
  if (value == nullptr) return;
  std::string text;
  try {
    text = velt::AsnText(value);
  } catch (...) {
    velt::CountRefused(*m_pState);
    throw;
  }
  Trace(velt::kUnnamedModule, VeltLogLevel{velt::kDefaultLevel}, text.c_str(), nullptr, bPrint, bLog);
}

void VeltDebugInfo::ASNTrace(AsnType const* value, std::string& out) const { out += velt::AsnText(value); }

bool VeltDebugInfo::OutputString(OutDataUnit const* rec, bool fromDiscard) {
  return rec != nullptr && velt::OutputString(*m_pState, *rec, fromDiscard);
}

void VeltDebugInfo::OutputDiscardQueue() { velt::OutputDiscardQueue(*m_pState); }

void* VeltDebugInfo::HandleOutputStringLoop(void* channel) {
  if (channel != nullptr) velt::RunOutputThread(*static_cast<VeltDebugInfo*>(channel)->m_pState);
  return nullptr;
}

bool VeltDebugInfo::OpenNewFile() { return velt::OpenNewFile(*m_pState); }

bool VeltDebugInfo::WriteFile(char const* text) { return velt::WriteFile(*m_pState, text); }

void VeltDebugInfo::CloseFile() { velt::CloseFile(*m_pState); }

bool VeltDebugInfo::CheckFileLength(std::string const& name, int type) const {
  return velt::CheckFileLength(*m_pState, name, type);
}

int VeltDebugInfo::GetFileType(std::string const& name) const { return velt::GetFileType(*m_pState, name); }

int VeltDebugInfo::GZCompress(std::string const& source, std::string const& destination) const {
  return velt::GZCompress(source, destination, nullptr);
}

void VeltDebugInfo::ZipLogFiles(std::string const& name) const { velt::ZipLogFiles(*m_pState, name); }

void VeltDebugInfo::RemoveSpilthFile() const { velt::RemoveSpilthFile(*m_pState); }

void VeltDebugInfo::ProcessLogFileBeforeCreateNew() const { velt::ProcessLogFileBeforeCreateNew(*m_pState); }

VeltTraceCounts VeltDebugInfo::Counts() const { return velt::CountsOf(*m_pState); }

bool VeltDebugInfo::Flush(unsigned milliseconds) {
  return velt::Flush({m_pState}, std::chrono::milliseconds(milliseconds));
}

void VeltDebugInfo::SetQueueWait(unsigned milliseconds) {
  if (m_pState->InheritedByFork()) return;  // the locks of the queues may have been taken at the fork
  m_pState->m_OutputQueue.SetWait(std::chrono::milliseconds(milliseconds));
  m_pState->m_DiscardQueue.SetWait(std::chrono::milliseconds(milliseconds));
}

std::string const& VeltDebugInfo::LogPath() const { return m_pState->m_strLogPath; }
