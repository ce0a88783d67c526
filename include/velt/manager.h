// The process-wide trace manager: modules with their levels and outputs, channels, and the routing of trace
// calls.
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
// thread; every look-up uses the text that the pointer has then. With a null key nothing is found.
VELT_EXPORT extern char const* DEBUGLEVELITEM;       // "debug_level", level set of module "debug"
VELT_EXPORT extern char const* DEBUGOUPUTTITEM;      // "debug_output", output set of module "debug"
VELT_EXPORT extern char const* MAXLOGSIZEITEM;       // "nEachFileMaxSize", MB in the file
VELT_EXPORT extern char const* MAXFILENUMITEM;       // "nMaxFileNum", cap on channels
VELT_EXPORT extern char const* NFILTLOGBUFSIZE;      // "nFiltLogBufSize", filtered records kept in the ring
VELT_EXPORT extern char const* MAXZIPNUMINPROCITEM;  // "nEachProcessMaxZipNum", archives kept
VELT_EXPORT extern char const* FILENUMINZIPITEM;     // "nZipFileIncludeFileNum", read, without effect

namespace velt {
struct ManagerState;
struct SubModInfoState;
}  // namespace velt

// One module's level set and output set.
//
// Threads: any; the setters take the module's lock. The manager reads the sets under its own lock.
// Errors:  a setter returns false, with errno set, when the lock cannot be taken.
class VELT_EXPORT VeltDebugSubModInfo {
 public:
  // A module with these sets.
  VeltDebugSubModInfo(std::bitset<32> const& levels, std::bitset<32> const& outputs);
  virtual ~VeltDebugSubModInfo();
  VeltDebugSubModInfo(VeltDebugSubModInfo const&) = delete;
  VeltDebugSubModInfo& operator=(VeltDebugSubModInfo const&) = delete;

  // Sets or clears one bit of the level set and returns true. Changes nothing and returns false for an index
  // above 32; changes nothing and throws std::out_of_range for exactly 32.
  bool SetLevel(unsigned int level, bool on);
  // The same for a bit of the output set.
  bool SetOutput(unsigned int direction, bool on);

  // Replaces the whole level set and returns true.
  bool SetLevelSet(std::bitset<32> const& levels);
  // Replaces the whole output set and returns true.
  bool SetOutputSet(std::bitset<32> const& outputs);

 private:
  friend struct velt::SubModInfoState;

  velt::SubModInfoState* m_pState = nullptr;  // owned; never null
};

// What a host implements to take over all tracing of the process. A registered engine receives every call on
// the caller's thread, with the caller's unchecked arguments (a null text, a level of 99), while no lock of
// the library is held. What it returns or throws is what the caller gets.
class VELT_EXPORT VeltDebugEngine {
 public:
  virtual ~VeltDebugEngine() = default;

  // Receives every VeltDebugMgr::Trace and Printf, from several threads at once.
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
// Threads: every operation may be called from any thread; Destroy only once the host has stopped tracing.
// Errors:  when a lock cannot be taken, operations return false (null, -1) with errno set. An allocation
//          failure is thrown. A negative level and level 32 throw std::out_of_range when they are looked up
//          in a level set.
// Fork:    in a child of an initialised process, calls that would need a lock or a channel of the parent
//          return false, but Init returns true. Destroy leaves the inherited manager untouched; after it the
//          child may initialise a manager of its own.
class VELT_EXPORT VeltDebugMgr {
 public:
  // Modules by name, each with its level and its output set.
  using ModuleSets = std::map<std::string, std::pair<std::bitset<32>, std::bitset<32>>>;

  VeltDebugMgr(VeltDebugMgr const&) = delete;
  VeltDebugMgr& operator=(VeltDebugMgr const&) = delete;

  // The process's manager, made on first use; the library owns it. Null only when there is none yet and the
  // lock could not be taken.
  static VeltDebugMgr* Instance();

  // Deletes the engine, the channels (each first writes what it accepted) and the modules. Returns 0, also
  // when there is no manager; -1 when the lock could not be taken or released. On an output thread (in a
  // problem handler or in an ASN value's Print) it does nothing and returns -1 with errno EDEADLK. A later
  // Instance makes a new manager.
  static int Destroy();

  // Reads the debug configuration, registers its modules and opens the main channel.
  //
  // - `name`: the prefix of the channel's file names.
  // - `cfgFile`: the path of the configuration; if empty or missing, the installation's own file is read.
  // - `logDir`: the channel's directory, with or without a '/' at its end, created if missing (one level,
  //   0755); empty means VeltGetDefaultLogPath().
  // - `fileHeader`: written at the top of every file.
  // - `channelFlag`: no effect.
  // - `silent`: opens no channel. Trace then returns false, AppTrace true.
  //
  // Returns true when initialised; at once, whatever the arguments, if it already was. Returns false for an
  // empty `name`, and when directory and name give no usable path; what was stored until then (name, silent
  // flag, limits, modules) is kept.
  bool Init(std::string const& name, std::string const& cfgFile, std::string const& logDir,
            std::string const& fileHeader, bool channelFlag, bool silent);

  // Whether Init has succeeded.
  bool IsInit() const;

  // Sets the sets of module `name`, and registers it if it is new; a new module gets the sets of "debug"
  // instead if `inheritDebug`. Returns false before Init, for an empty name, and when the sets of "debug" are
  // needed and it is not registered.
  bool RegSubModuleInfo(std::string const& name, std::bitset<32> const& levels,
                        std::bitset<32> const& outputs, bool inheritDebug);

  // Copies the sets of module `name` out. Returns false with both untouched when there is no such module.
  bool GetSubModuleInfo(std::string const& name, std::bitset<32>& levels, std::bitset<32>& outputs);

  // Gives every module these sets, or those of "debug" if `useDebug`. Returns false before Init, and when the
  // sets of "debug" are needed and it is not registered.
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

  // Reads the modules of the configuration file again, while other threads may trace. The file is the one
  // that Init read, or that a later GetCfgItem read in place of a missing one. Every module that it names
  // gets the sets that Init would give it now, all in one step: no trace call sees some of them changed and
  // others not. Modules that it does not name keep their sets, and the limits of the log files do not change.
  //
  // Returns true when the file was read and applied. Returns false and changes nothing
  // - before Init, and in a forked child;
  // - when there is no file, or it cannot be read or names no module;
  // - when a set in it has a character other than 0 and 1;
  // - when it keeps changing while it is read.
  //
  // Of two calls at the same time the one that is applied last counts. Must not be called in a signal
  // handler. Cost: reads the file several times, then takes the module table's lock as a writer.
  bool ReloadModules();

  // Passes all trace calls to `engine` from now on, and owns it. Returns false for null. An engine that was
  // registered before is neither deleted nor notified: the host owns it again.
  bool RegDebugEngine(VeltDebugEngine* engine);

  // Deletes `engine` and returns true if it is the registered one; also returns true for null if none is
  // registered. Returns false otherwise. The host must stop tracing first.
  bool UnRegDebugEngine(VeltDebugEngine* engine);

  // The registered engine or null; the manager still owns it.
  VeltDebugEngine* GetDebugEngine();

  // Runs a shell command with every signal unblocked in the calling thread, and waits for it. Returns
  // pclose's status. Returns -1 when the command could not be started; all signals then stay unblocked.
  // Returns -1 and changes nothing for null.
  static int system(char const* command);

  // Traces one record to the main channel. `text` is not a format; null is refused.
  //
  // If the module's level set has `level`, the outputs of its output set are added to those that `bPrint` and
  // `bLog` ask for; a module that is not registered has the sets of "debug". With both flags true the sets
  // are not looked at. A record that goes to neither output is filtered: it goes into the ring.
  //
  // Returns the result of the channel's Trace; false before Init, when silent, and for a level above 32.
  // Cost: may wait up to one second for room in a full queue.
  bool Trace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn, bool bPrint,
             bool bLog);

  // The same to the channel of `subName`, whose file names begin with <name><subName>_. The first record
  // opens that channel, in the main channel's directory; that record's module is the file header. An empty
  // `subName` means the main channel. Unlike Trace it returns true when silent, and false for a `subName`
  // over 128 characters and for every call once there are more channels than nMaxFileNum.
  bool AppTrace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn,
                bool bPrint, bool bLog, std::string const& subName);

  // Whether an engine, an output or the ring would take a record of this module and level, traced now with
  // neither flag. A caller can ask it before it makes a costly text.
  //
  // With a registered engine: true for every level. Without one: true for levels 0 to 31 if there is a ring,
  // or if the module's sets (those of "debug" for a module that is not registered) let the level through to
  // an output; false before Init, when silent, in a forked child, and for any other level, without throwing.
  // A sub-name makes no difference. Cost: no lock, except the table's as a reader when this thread has not
  // asked for the module since the last change.
  bool IsWanted(std::string const& module, VeltLogLevel level);

  // Formats a message of at most 2046 characters (the rest is cut) and traces it with neither flag, under the
  // empty module name, which has the sets of "debug". If the expansion fails or is empty, it traces nothing
  // and prints "Printf failed. errno:" and the number on standard output.
  void Printf(VeltLogLevel level, char const* fmt, ...) VELT_PRINTF_FORMAT(3, 4);

  // The same under `module`. If the expansion fails or is empty, it traces and prints nothing.
  void Printf(VeltLogLevel level, VeltInterString const& module, char const* fmt, ...)
      VELT_PRINTF_FORMAT(4, 5);

  // The same at level 3 under the empty module name. If the expansion fails or is empty, it traces and prints
  // nothing.
  void Printf(char const* fmt, ...) VELT_PRINTF_FORMAT(2, 3);
  void Printf(int, ...) = delete;  // Printf(0, "x") would otherwise take 0 as a null format

  // Adds the counts of every channel to `out`, by file name prefix; overwrites entries of the same name.
  // Calls that are refused before they reach a channel (for their level, text or sub-name) are counted as
  // refused by the main channel. Returns false before Init, in a forked child, and when a lock cannot be
  // taken.
  bool GetCounts(std::map<std::string, VeltTraceCounts>& out);

  // Waits until every record that any channel accepted before the call is written, printed or lost. Returns
  // true then; false when that takes longer than `milliseconds` in all, before Init, in a forked child, and
  // on an output thread that has records left. Any thread; may be called in a terminate handler.
  bool Flush(unsigned milliseconds);

  // Sets how long a trace call waits for room in a full queue, for all present and future channels. The
  // default is 1000; with 0 a full queue refuses at once. Any thread; also before Init. Has no effect in a
  // forked child of an initialised process.
  void SetQueueWait(unsigned milliseconds);

  // Reads the debug configuration, without the bounds that Init applies. Sizes are returned in bytes. Adds
  // module "debug" and every module of the file to `modules`. When no file is found the numbers are the
  // defaults, and `modules` is untouched.
  void GetCfgItem(std::string const& cfgFile, int& filtLogBufSize, int& maxFileNum, int& maxFileSize,
                  int& eachProcessMaxZipNum, int& zipFileIncludeFileNum, ModuleSets& modules);

  // Looks nFiltLogBufSize up in the primary file and then, unless `primaryOnly`, in the secondary one.
  // Returns true when it was found; else false with the default, 100, in `value`.
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

  // Looks debug_level up in the same way, into `buffer`, whose capacity is `bufferLength`. It must have at
  // least 2048 bytes, since the look-up in the secondary file assumes that many. `text` becomes the value of
  // the primary file, or the default, "1100", when neither file has one. A value of the secondary file is
  // only put into `buffer`, and `text` is untouched: module "debug" then gets the empty set.
  static void GetStrlevel(std::string& text, char* buffer, int& bufferLength, std::string const& primary,
                          std::string const& secondary, bool primaryOnly);

  // The same for debug_output; the default is "0100".
  static void GetStroutput(std::string& text, char* buffer, int& bufferLength, std::string const& primary,
                           std::string const& secondary, bool primaryOnly);

  // Adds module "debug", with the given sets, and the modules of every "_level" and "_output" item of
  // `primary` to `modules`. Afterwards the sets and texts passed in have the values that were used last.
  static void GetParams(std::bitset<32>& levels, std::bitset<32>& outputs, std::string& levelText,
                        std::string& outputText, std::string& primary, ModuleSets& modules);

 private:
  friend struct velt::ManagerState;

  VeltDebugMgr();
  ~VeltDebugMgr();

  velt::ManagerState* m_pState;  // owned; never null
};

#endif
