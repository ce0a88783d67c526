// The process-wide trace manager: modules with their levels and outputs, channels, and the routing of every
// trace.
#ifndef VELT_MANAGER_H
#define VELT_MANAGER_H

#include <bitset>
#include <map>
#include <string>
#include <utility>

#include "velt/channel.h"
#include "velt/export.h"
#include "velt/types.h"

// The keys of the debug configuration file. A host may point them at other texts before Init, from one
// thread; every look-up reads through them, and a null key is found nowhere.
VELT_EXPORT extern char const* DEBUGLEVELITEM;   // "debug_level", level set of module "debug"
VELT_EXPORT extern char const* DEBUGOUPUTTITEM;  // "debug_output", output set of module "debug"
VELT_EXPORT extern char const* MAXLOGSIZEITEM;   // "nEachFileMaxSize", MB in the file
VELT_EXPORT extern char const* MAXFILENUMITEM;   // "nMaxFileNum", cap on channels
VELT_EXPORT extern char const* NFILTLOGBUFSIZE;  // "nFiltLogBufSize", records in the ring of filtered ones
VELT_EXPORT extern char const* MAXZIPNUMINPROCITEM;  // "nEachProcessMaxZipNum", archives kept
VELT_EXPORT extern char const* FILENUMINZIPITEM;     // "nZipFileIncludeFileNum", kept and unused

namespace velt {
struct ManagerState;
struct SubModInfoState;
}  // namespace velt

// One module's level set and output set.
//
// Threads: the setters exclude each other; the manager reads the sets under its own lock.
// Errors:  a lock that cannot be taken gives false with errno set.
class VELT_EXPORT VeltDebugSubModInfo {
 public:
  // A module with these sets.
  VeltDebugSubModInfo(std::bitset<32> const& levels, std::bitset<32> const& outputs);
  virtual ~VeltDebugSubModInfo();
  VeltDebugSubModInfo(VeltDebugSubModInfo const&) = delete;
  VeltDebugSubModInfo& operator=(VeltDebugSubModInfo const&) = delete;

  // Sets or clears one bit and returns true. An index above 32 changes nothing and returns false; exactly 32
  // throws std::out_of_range and changes nothing.
  bool SetLevel(unsigned int level, bool on);
  // The same for a bit of the output set.
  bool SetOutput(unsigned int direction, bool on);

  // Replaces the whole level set and returns true.
  bool SetLevelSet(std::bitset<32> const& levels);
  // Replaces the whole output set and returns true.
  bool SetOutputSet(std::bitset<32> const& outputs);

 private:
  friend struct velt::SubModInfoState;

  velt::SubModInfoState* m_pState;  // owned; never null
};

// What a host implements to take over all tracing of the process. Once registered it receives every call with
// the caller's arguments before any check, a null text and a level of 99 included, on the caller's thread and
// with no lock of the library held; its answer, or its exception, is the caller's.
class VELT_EXPORT VeltDebugEngine {
 public:
  virtual ~VeltDebugEngine() = default;

  // Receives every VeltDebugMgr::Trace and Printf, from several threads at once. The answer is the caller's.
  virtual bool Trace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn,
                     bool bPrint, bool bLog) = 0;

  // Receives every VeltDebugMgr::AppTrace in the same way.
  virtual bool AppTrace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn,
                        bool bPrint, bool bLog, std::string const& subName) = 0;
};

// VeltDebugMgr decides for each trace call which channel receives it and whether it is printed, logged or
// only kept in the ring of filtered records.
//
// Use:     Instance, Init, RegSubModuleInfo for each module, trace from any thread, Destroy.
// Threads: every operation may be called from any thread, Destroy only once the host has stopped tracing.
// Errors:  a lock that cannot be taken gives false (null, -1) with errno set. An allocation failure is
//          thrown. A level of 32, or a negative one, throws std::out_of_range where it is tested against a
//          level set.
// Fork:    in a child of an initialised process every call that would need a lock or a channel of the
//          parent answers false (Init, true); after Destroy, which leaves all that untouched, the child may
//          initialise a manager of its own.
class VELT_EXPORT VeltDebugMgr {
 public:
  // Modules by name, each with its level and its output set.
  using ModuleSets = std::map<std::string, std::pair<std::bitset<32>, std::bitset<32>>>;

  VeltDebugMgr(VeltDebugMgr const&) = delete;
  VeltDebugMgr& operator=(VeltDebugMgr const&) = delete;

  // The process's manager, made on first use; the library owns it. Null only when it was to be made and the
  // lock could not be taken.
  static VeltDebugMgr* Instance();

  // Deletes the engine, the channels (each stops in order) and the modules. Returns 0, also when there is no
  // manager; -1 when the lock could not be taken or released. A later Instance gives a fresh manager.
  static int Destroy();

  // Reads the debug configuration (`cfgFile`, or the installation's own when that is empty or missing),
  // registers the configured modules and, unless `silent`, opens the main channel: prefix `name`, in `logDir`
  // (created, one level, 0755; empty means VeltGetDefaultLogPath()), with `fileHeader` at the top of every
  // file. `channelFlag` is handed to the channel and changes nothing. Returns true when initialised, at once
  // when it already was, whatever the arguments. Returns false for an empty `name`, or when directory and
  // name together make no usable path; what was stored until then (name, silent flag, limits, modules) stays.
  // `silent` initialises without a channel: Trace then answers false, AppTrace true.
  bool Init(std::string const& name, std::string const& cfgFile, std::string const& logDir,
            std::string const& fileHeader, bool channelFlag, bool silent);

  // Whether Init has succeeded.
  bool IsInit() const;

  // Gives module `name` its sets, or the sets of "debug" when it is new and `inheritDebug`. Returns false
  // before Init, for an empty name, and when "debug" is to be inherited and absent.
  bool RegSubModuleInfo(std::string const& name, std::bitset<32> const& levels,
                        std::bitset<32> const& outputs, bool inheritDebug);

  // Copies the sets of module `name` out. Returns false with both untouched when there is no such module.
  bool GetSubModuleInfo(std::string const& name, std::bitset<32>& levels, std::bitset<32>& outputs);

  // Gives every module these sets, or those of "debug" when `useDebug`. Returns false before Init, and when
  // "debug" is to be used and absent.
  bool SetAllModuleInfo(std::bitset<32> const& levels, std::bitset<32> const& outputs, bool useDebug);

  // Adds every module with its sets to `out`, overwriting entries of the same name. Returns false before
  // Init.
  bool GetAllModuleInfo(ModuleSets& out);

  // Sets or clears one bit of a module's sets; an empty module means "debug". Returns true when done; false
  // for an index above 32, a negative one, or a module that is not registered. Exactly 32 throws
  // std::out_of_range.
  bool SetLogLevel(std::string const& module, VeltLogLevel level, bool on);

  // The same for a bit of the module's output set.
  bool SetLogOutput(std::string const& module, VeltOutputDirection direction, bool on);

  // Reads the modules of the configuration file again, while other threads trace: of the file that Init took,
  // or of the installation's own when that was missing. Every module that the file names gets the sets that
  // Init would give it now, all in one step: no trace call finds some changed and others not. Other modules
  // (registered by the host, or named by the file no longer) keep their sets, and the limits of the files
  // stay. Returns true when the file was read and applied. Returns false, and nothing is changed, before
  // Init, in a forked child, and when there is no file, it cannot be read, it names no module, a set in it
  // has a character other than 0 and 1, or it goes on changing while it is read. Of two calls at once the one
  // that is applied last holds. Not for signal handlers. Cost: reads the file several times; the table's
  // lock, as the writer, only to apply.
  bool ReloadModules();

  // Hands all tracing to `engine`, which the manager owns from then on. Returns false for null. An engine
  // that was registered before is neither deleted nor told: it is the host's again.
  bool RegDebugEngine(VeltDebugEngine* engine);

  // Deletes `engine` and returns true when it is the registered one (null counts when none is); false
  // otherwise. The host stops tracing first.
  bool UnRegDebugEngine(VeltDebugEngine* engine);

  // The registered engine or null; it stays the manager's.
  VeltDebugEngine* GetDebugEngine();

  // Runs a shell command with every signal unblocked in the calling thread, and waits for it. Returns
  // pclose's status; -1 when it could not be started: the signal mask then stays empty. A null command is -1
  // and changes nothing.
  static int system(char const* command);

  // Trace one record to the main channel. `text` is never read as a format; null is refused. A level that the
  // module's set does not hold (a module that is not registered has the sets of "debug") leaves the caller's
  // own flags, and a record with neither flag goes into the ring. Returns the channel's answer; false before
  // Init, when silent, and for a level above 32. Both caller's flags true skip the module's sets. Cost: may
  // wait up to one second for room in a full queue.
  bool Trace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn, bool bPrint,
             bool bLog);

  // The same to the channel of `subName`, prefix <name><subName>_, which its first record opens beside the
  // main channel with that record's module as file header; an empty `subName` is the main channel. Differs
  // from Trace when silent (true), and returns false for a `subName` over 128 characters and for every call
  // once there are more channels than nMaxFileNum.
  bool AppTrace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn,
                bool bPrint, bool bLog, std::string const& subName);

  // Whether an engine, an output or the ring would take such a record if it were traced now with neither
  // flag; for a caller that would rather not make what nobody takes. A registered engine takes every level.
  // Without one: true for levels 0 to 31 when there is a ring, or when the module's sets (a module that is
  // not registered has those of "debug") let the level through to an output. False before Init, when silent,
  // in a forked child, and for a level outside 0 to 31; it never throws for one. A sub-name changes nothing
  // here. Cost: no lock, except the table's as a reader when this thread has not asked for the module since
  // the last change.
  bool IsWanted(std::string const& module, VeltLogLevel level);

  // Formats a message of at most 2046 characters (the rest is cut) and traces it with neither flag, under the
  // empty module name, which has the sets of "debug". An expansion that fails or is empty traces nothing and
  // says "Printf failed. errno:" and the number on standard output.
  void Printf(VeltLogLevel level, char const* fmt, ...) VELT_PRINTF_FORMAT(3, 4);

  // The same under a module of its own; an expansion that fails or is empty traces nothing and says nothing.
  void Printf(VeltLogLevel level, VeltInterString const& module, char const* fmt, ...)
      VELT_PRINTF_FORMAT(4, 5);

  // The same at level 3 under the empty module name; it says nothing either.
  void Printf(char const* fmt, ...) VELT_PRINTF_FORMAT(2, 3);
  void Printf(int, ...) = delete;  // Printf(0, "x") would otherwise take 0 as a null format

  // Reads the debug configuration without applying the bounds of Init. Sizes come back in bytes. `modules`
  // gets the module "debug" and every module of the file; it stays untouched when no file is to be found at
  // all.
  void GetCfgItem(std::string const& cfgFile, int& filtLogBufSize, int& maxFileNum, int& maxFileSize,
                  int& eachProcessMaxZipNum, int& zipFileIncludeFileNum, ModuleSets& modules);

  // Looks nFiltLogBufSize up in the primary file, then, unless `primaryOnly`, in the secondary one. Returns
  // true when it was found; else false with the default, 100, in `value`.
  static bool GetFiltLogBufSize(int& value, std::string const& primary, std::string const& secondary,
                                bool primaryOnly);

  // The same for nMaxFileNum; the default is 50.
  static bool GetMaxFileNum(int& value, std::string const& primary, std::string const& secondary,
                            bool primaryOnly);

  // The same for nEachFileMaxSize, in bytes; the default is 5242880.
  static bool GetMaxFileSize(int& value, std::string const& primary, std::string const& secondary,
                             bool primaryOnly);

  // The same for nEachProcessMaxZipNum; the default is 30.
  static bool GetEachProcessMaxZipNum(int& value, std::string const& primary, std::string const& secondary,
                                      bool primaryOnly);

  // The same for nZipFileIncludeFileNum; the default is 10.
  static bool GetZipFileIncludeFileNum(int& value, std::string const& primary, std::string const& secondary,
                                       bool primaryOnly);

  // Looks debug_level up the same way, through `buffer` with the capacity `bufferLength`; `buffer` has 2048
  // bytes at least, for the look-up in the secondary file uses that many. `text` becomes the value of the
  // primary file, or the default, "1100", when neither file has it. A value of the secondary
  // file stays in `buffer`, and `text` as it was: module "debug" then has the empty set.
  static void GetStrlevel(std::string& text, char* buffer, int& bufferLength, std::string const& primary,
                          std::string const& secondary, bool primaryOnly);

  // The same for debug_output; the default is "0100".
  static void GetStroutput(std::string& text, char* buffer, int& bufferLength, std::string const& primary,
                           std::string const& secondary, bool primaryOnly);

  // Enters "debug" with the given sets and every "_level" and "_output" item of `primary` into `modules`. The
  // sets and texts passed in are left holding the last values worked with.
  static void GetParams(std::bitset<32>& levels, std::bitset<32>& outputs, std::string& levelText,
                        std::string& outputText, std::string& primary, ModuleSets& modules);

 private:
  friend struct velt::ManagerState;

  VeltDebugMgr();
  ~VeltDebugMgr();

  velt::ManagerState* m_pState;  // owned; never null
};

#endif
