// What a host does across the edge of the shared library: linking, casts, run-time types, exceptions.
#include <cstddef>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include <gtest/gtest.h>

#include "velt/channel.h"
#include "velt/config.h"
#include "velt/manager.h"
#include "velt/process.h"
#include "velt/types.h"

#include "tests/support/files.h"

namespace {

class HostError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class ThrowingValue : public AsnType {
 public:
  AsnType* Clone() const override { throw HostError("clone"); }
  void Print(std::ostream& /*out*/, int /*first*/, int /*second*/) const override {
    throw HostError("print");
  }
};

class HostEngine : public VeltDebugEngine {
 public:
  bool Trace(std::string const& /*module*/, VeltLogLevel level, char const* /*text*/, AsnType const* /*asn*/,
             bool /*bPrint*/, bool /*bLog*/) override {
    if (level == 7) throw HostError("engine");
    return level == 3;
  }
  bool AppTrace(std::string const& /*module*/, VeltLogLevel /*level*/, char const* /*text*/,
                AsnType const* /*asn*/, bool /*bPrint*/, bool /*bLog*/,
                std::string const& /*subName*/) override {
    return true;
  }
};

class HostModInfo : public VeltDebugSubModInfo {
 public:
  explicit HostModInfo(bool& gone)
      : VeltDebugSubModInfo(std::bitset<32>(1), std::bitset<32>(1)), gone_(gone) {}
  ~HostModInfo() override { gone_ = true; }
  HostModInfo(HostModInfo const&) = delete;
  HostModInfo& operator=(HostModInfo const&) = delete;

 private:
  bool& gone_;
};

// A silent manager: only an engine gets its records.
VeltDebugMgr* SilentManager() {
  VeltDebugMgr* const manager = VeltDebugMgr::Instance();
  EXPECT_TRUE(manager->Init("host_", "", "", "", false, true));
  return manager;
}

VeltDebugInfo MakeChannel(std::string const& directory) {
  return VeltDebugInfo(directory, "host_", "", false, true, 0, 1 << 20, 3, 10, false);
}

// How many of the entries are not null. Naming one here makes the linker look for it in the library.
template <typename... Entities>
std::size_t CountOfPresent(Entities... entities) {
  return (std::size_t{0} + ... + (entities != nullptr ? 1U : 0U));
}

TEST(BoundaryTest, TheFunctionsOfConfigurationAndProcessLink) {
  std::size_t const config = CountOfPresent(
      &TrimString, &VeltGetNameValue, &VeltGetLine, &VeltStrTrim, &VeltGetCfgString, &VeltGetCfgInt,
      &VeltAllCfgItem, &VeltGetRootPath, &VeltGetLogPath, &VeltGetDefaultTempPath, &VeltGetTraceDir,
      &VeltGetDefaultLogPath, &VeltGetDefaultCfgPath, &VeltGetConfFullPath, &VeltGetDefaultCfgFile,
      &VeltGetDefaultDebugCfgFile, &VeltGetDefaultSslPath, &VELTreplaceEnvValue, &VeltMakeDirEx);
  std::size_t const process = CountOfPresent(
      &SetVeltAppExit, &VeltAppIsExit, &VELTGetStaticLock, &BaseUtilInternal::Instance,
      &BaseUtilInternal::Destroy, &BaseUtilInternal::ServiceWait, &BaseUtilInternal::ServiceExit,
      &VeltsvcdServiceExit, &VeltGetMsgTypeString, &VeltFrameGetNStr, &VeltFrameSetBody, &VeltFrameResetBody,
      &VeltFrameGetStr, &VeltMrbTraceSatus, &VeltMrbTrace, &VeltOutputFrmtString, &VeltOutputMrbLog,
      &VeltOutputString_i);

  EXPECT_EQ(config, 19U);
  EXPECT_EQ(process, 18U);
}

TEST(BoundaryTest, TheFunctionsOfChannelsLink) {
  using Info = VeltDebugInfo;
  std::size_t const free_functions =
      CountOfPresent(&VELTIsGlobalVersion, static_cast<void (*)(std::ofstream&)>(&VELTInsertBOM),
                     static_cast<void (*)(FILE*)>(&VELTInsertBOM));
  std::size_t const channel = CountOfPresent(
      &Info::Init, &Info::DequeueMsg, &Info::Trace, &Info::TraceInner, &Info::FmtTrace,
      static_cast<void (Info::*)(AsnType const*, bool, bool)>(&Info::ASNTrace),
      static_cast<void (Info::*)(AsnType const*, std::string&) const>(&Info::ASNTrace), &Info::OutputString,
      &Info::OutputDiscardQueue, &Info::HandleOutputStringLoop, &Info::OpenNewFile, &Info::WriteFile,
      &Info::CloseFile, &Info::CheckFileLength, &Info::GetFileType, &Info::GZCompress, &Info::ZipLogFiles,
      &Info::RemoveSpilthFile, &Info::ProcessLogFileBeforeCreateNew, &Info::LogPath);

  EXPECT_EQ(free_functions, 3U);
  EXPECT_EQ(channel, 20U);
}

TEST(BoundaryTest, TheFunctionsOfTheManagerLink) {
  using Mgr = VeltDebugMgr;
  std::size_t const module =
      CountOfPresent(&VeltDebugSubModInfo::SetLevel, &VeltDebugSubModInfo::SetOutput,
                     &VeltDebugSubModInfo::SetLevelSet, &VeltDebugSubModInfo::SetOutputSet);
  std::size_t const manager = CountOfPresent(
      &Mgr::Instance, &Mgr::Destroy, &Mgr::Init, &Mgr::IsInit, &Mgr::RegSubModuleInfo, &Mgr::GetSubModuleInfo,
      &Mgr::SetAllModuleInfo, &Mgr::GetAllModuleInfo, &Mgr::SetLogLevel, &Mgr::SetLogOutput,
      &Mgr::RegDebugEngine, &Mgr::UnRegDebugEngine, &Mgr::GetDebugEngine, &Mgr::system, &Mgr::Trace,
      &Mgr::AppTrace, static_cast<void (Mgr::*)(VeltLogLevel, char const*, ...)>(&Mgr::Printf),
      static_cast<void (Mgr::*)(VeltLogLevel, VeltInterString const&, char const*, ...)>(&Mgr::Printf),
      static_cast<void (Mgr::*)(char const*, ...)>(&Mgr::Printf), &Mgr::GetCfgItem, &Mgr::GetFiltLogBufSize,
      &Mgr::GetMaxFileNum, &Mgr::GetMaxFileSize, &Mgr::GetEachProcessMaxZipNum,
      &Mgr::GetZipFileIncludeFileNum, &Mgr::GetStrlevel, &Mgr::GetStroutput, &Mgr::GetParams);

  EXPECT_EQ(module, 4U);
  EXPECT_EQ(manager, 28U);
}

TEST(BoundaryTest, TheDataLink) {
  EXPECT_STREQ(VELT_DEBUG_FILE_NAME_TIME_PATTERN, "%Y%m%d_%H%M%S.log");
  EXPECT_STREQ(LOGFILETAIL, ".log");
  EXPECT_STREQ(GZFILETAIL, ".gz");
  EXPECT_STREQ(TARFILETAIL, ".tar");
  EXPECT_STREQ(ZIPFILETAIL, ".tar.gz");
  EXPECT_STREQ(DEBUGLEVELITEM, "debug_level");
  EXPECT_STREQ(DEBUGOUPUTTITEM, "debug_output");
  EXPECT_STREQ(MAXLOGSIZEITEM, "nEachFileMaxSize");
  EXPECT_STREQ(MAXFILENUMITEM, "nMaxFileNum");
  EXPECT_STREQ(NFILTLOGBUFSIZE, "nFiltLogBufSize");
  EXPECT_STREQ(MAXZIPNUMINPROCITEM, "nEachProcessMaxZipNum");
  EXPECT_STREQ(FILENUMINZIPITEM, "nZipFileIncludeFileNum");
  EXPECT_STREQ(g_vecVeltMsgTypeString[34], VeltGetMsgTypeString(34));
  EXPECT_FALSE(g_VeltAppExitFlag.load());
  EXPECT_EQ(g_bVeltOnlyTraceSomeMSG, 0);
  EXPECT_EQ(VELTGetStaticLock(), &g_mutexVeltStaticLock);
  EXPECT_NE(&g_oVELTInit, nullptr);
}

TEST(BoundaryTest, AKeyThatTheHostReplacesIsTheOneTheLibraryReads) {
  velt::test::ScratchDir const scratch;
  velt::test::WriteFile(scratch / "debug.cfg", "channels = 7\n");
  char const* const before = MAXFILENUMITEM;
  int number = 0;

  MAXFILENUMITEM = "channels";
  bool const found = VeltDebugMgr::GetMaxFileNum(number, scratch / "debug.cfg", "", true);
  MAXFILENUMITEM = before;

  EXPECT_TRUE(found);
  EXPECT_EQ(number, 7);
}

TEST(BoundaryTest, AnEngineOfTheHostIsFoundAgainByItsOwnType) {
  VeltDebugMgr* const manager = SilentManager();
  auto* const engine = new HostEngine;  // the manager's from here on
  ASSERT_TRUE(manager->RegDebugEngine(engine));

  VeltDebugEngine* const registered = manager->GetDebugEngine();

  EXPECT_EQ(dynamic_cast<HostEngine*>(registered), engine);
  EXPECT_TRUE(manager->Trace("net", VeltLogLevel{3}, "text", nullptr, false, false));
  EXPECT_EQ(VeltDebugMgr::Destroy(), 0);
}

TEST(BoundaryTest, AnExceptionOfTheHostsEngineReachesTheHostAsItself) {
  VeltDebugMgr* const manager = SilentManager();
  ASSERT_TRUE(manager->RegDebugEngine(new HostEngine));

  EXPECT_THROW(manager->Trace("net", VeltLogLevel{7}, "text", nullptr, false, false), HostError);

  EXPECT_EQ(VeltDebugMgr::Destroy(), 0);
}

TEST(BoundaryTest, ExceptionsOfAnAsnValueReachTheHostAsThemselves) {
  velt::test::ScratchDir const scratch;
  VeltDebugInfo channel = MakeChannel(scratch.Path());
  ThrowingValue const value;
  std::string text;

  EXPECT_THROW(channel.Trace("net", VeltLogLevel{3}, "text", &value, false, true), HostError);
  EXPECT_THROW(channel.ASNTrace(&value, text), HostError);
}

TEST(BoundaryTest, AnExceptionOfTheStandardLibraryReachesTheHostAsItself) {
  VeltDebugSubModInfo info(std::bitset<32>(1), std::bitset<32>(1));

  EXPECT_THROW(info.SetLevel(32, true), std::out_of_range);
  EXPECT_THROW(info.SetOutput(32, true), std::out_of_range);
}

TEST(BoundaryTest, AnObjectOfTheLibraryHasTheTypeThatTheHostKnows) {
  BaseUtilInternal* const service = BaseUtilInternal::Instance();

  bool const same = typeid(*service) == typeid(BaseUtilInternal);

  EXPECT_TRUE(same);
  EXPECT_EQ(dynamic_cast<void*>(service), service);
  BaseUtilInternal::Destroy();
}

TEST(BoundaryTest, AModuleClassOfTheHostIsCastAndDeletedThroughItsBase) {
  bool gone = false;
  std::unique_ptr<VeltDebugSubModInfo> info = std::make_unique<HostModInfo>(gone);

  EXPECT_NE(dynamic_cast<HostModInfo*>(info.get()), nullptr);
  EXPECT_TRUE(info->SetLevel(3, true));

  info.reset();
  EXPECT_TRUE(gone);
}

TEST(BoundaryTest, AFormatThatTheHostBuildsMayCountWhatWasWritten) {
  // Not a literal: for %n in it, checked functions of the C library would end the process.
  std::string format = "abc%n def";
  char text[32] = {};
  int count = 0;

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  int const length = VeltFrameGetStr(text, sizeof text, format.c_str(), &count);
#pragma GCC diagnostic pop

  EXPECT_EQ(length, 7);
  EXPECT_EQ(count, 3);
  EXPECT_STREQ(text, "abc def");
}

TEST(BoundaryTest, ARecordIsMadeAndFreedByTheHostInEachForm) {
  auto const plain = std::make_unique<OutDataUnit>();
  std::unique_ptr<OutDataUnit> const quiet(new (std::nothrow) OutDataUnit);
  OutDataUnit on_the_stack;

  EXPECT_EQ(plain->m_nLevel, 3);
  ASSERT_NE(quiet, nullptr);
  EXPECT_EQ(quiet->m_pText, nullptr);
  EXPECT_EQ(on_the_stack.m_pAsn, nullptr);
}

}  // namespace
