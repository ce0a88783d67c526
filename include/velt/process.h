// Process-wide services: message-type names, frame helpers, exit flag, service wait, and the short trace
// functions.
#ifndef VELT_PROCESS_H
#define VELT_PROCESS_H

#include <atomic>

#include "velt/export.h"
#include "velt/types.h"

class ACE_Recursive_Thread_Mutex;  // a host that locks one includes <ace/Recursive_Thread_Mutex.h>

namespace velt {
struct ServiceWaitState;
}

// The names of the one-byte message types 0 to 34. Types without a name have the empty text, never null.
VELT_EXPORT extern char const* const g_vecVeltMsgTypeString[35];

// Set by SetVeltAppExit; any thread may poll it.
VELT_EXPORT extern std::atomic<bool> g_VeltAppExitFlag;

// For hosts; 0 at load, and the library neither reads nor writes it.
VELT_EXPORT extern int g_bVeltOnlyTraceSomeMSG;

// For hosts; the library never locks it. A forked child gets it unlocked.
VELT_EXPORT extern ACE_Recursive_Thread_Mutex g_mutexVeltStaticLock;

// Initialises ACE when the library is loaded; nothing finalises it.
class VELT_EXPORT VELTInit {
 public:
  VELTInit();
};
VELT_EXPORT extern VELTInit g_oVELTInit;

// Traces the banner "===================SetVeltAppExit (%d)==================" with VeltOutputFrmtString,
// then sets the exit flag (sequentially consistent), even when the banner was lost or tracing threw. Any
// thread.
VELT_EXPORT void SetVeltAppExit(bool exit);

// The exit flag. Any thread.
VELT_EXPORT bool VeltAppIsExit();

// The address of g_mutexVeltStaticLock; never null.
VELT_EXPORT ACE_Recursive_Thread_Mutex* VELTGetStaticLock();

// Where a service's main thread sleeps until another thread tells it to end.
//
// Threads: every operation may be called from any thread; a pointer must not be used after Destroy.
// Errors:  a failing wait or signal leaves its code in errno.
class VELT_EXPORT BaseUtilInternal {
 public:
  // The single instance, made on first use; the library owns it. A forked child gets one of its own.
  static BaseUtilInternal* Instance();

  // Deletes the instance; nothing when there is none.
  static void Destroy();

  virtual ~BaseUtilInternal();
  BaseUtilInternal(BaseUtilInternal const&) = delete;
  BaseUtilInternal& operator=(BaseUtilInternal const&) = delete;

  // Blocks, without limit, until the next ServiceExit. It may also return without one (a spurious wake-up),
  // so a caller should test a flag of its own in a loop.
  void ServiceWait();

  // Wakes one thread in ServiceWait. When no thread waits, the signal is lost.
  void ServiceExit();

 private:
  friend struct velt::ServiceWaitState;

  BaseUtilInternal();

  velt::ServiceWaitState* m_pState;  // owned; never null
};

// BaseUtilInternal::Instance()->ServiceExit().
VELT_EXPORT void VeltsvcdServiceExit();

// The name of a message type: an entry of g_vecVeltMsgTypeString, or "unknow" for 35 to 255. Never null.
VELT_EXPORT char const* VeltGetMsgTypeString(unsigned char type);

// Fill a field of a message frame within its capacity and return `dst`, whether or not they could copy.
// Threads: any, each on its own field.
//
// VeltFrameGetNStr copies at most `count` characters of `src`, up to its NUL, and adds a NUL. A null pointer,
// a text that does not fit and ranges that overlap leave the field empty.
//
// VeltFrameSetBody copies `size` bytes. A null source and ranges that overlap leave the field zeroed.
//
// VeltFrameResetBody sets `size` bytes to `value`.
VELT_EXPORT char* VeltFrameGetNStr(char* dst, unsigned long dstMax, char const* src, unsigned long count);
VELT_EXPORT void* VeltFrameSetBody(void* dst, void const* src, unsigned long size);
VELT_EXPORT void* VeltFrameResetBody(void* dst, int value, unsigned long size);

// Formats into `dst` of `dstMax` bytes, its NUL included. Returns the number of characters; a negative value
// when the text was cut to dstMax - 1 characters, the format failed, or an argument is null, 0 or a negative
// size (nothing is written then).
VELT_EXPORT int VeltFrameGetStr(char* dst, unsigned long dstMax, char const* format, ...)
    VELT_PRINTF_FORMAT(3, 4);

// The short trace functions trace under the module "MRB" through VeltDebugMgr::Trace, which applies the
// module's sets. They print if "EnablePrint", and log if "EnableLog", is a number other than 0 in
// VeltGetDefaultCfgFile(); without the items they do not print and do log. The first of them reads the file,
// once. Messages are cut at 2047 characters; an empty message is traced.
//
// Threads: any.
// Errors:  none is reported; a std::out_of_range that VeltDebugMgr::Trace throws reaches the caller.

// Reads the two switches unless they have been read.
VELT_EXPORT void VeltMrbTraceSatus();

// Traces `text` at level 2 with the given switches (0 is off); does not read the configuration.
VELT_EXPORT void VeltMrbTrace(char const* text, int print, int log);

// Formats a message and traces it at level 2.
VELT_EXPORT void VeltOutputFrmtString(char const* format, ...) VELT_PRINTF_FORMAT(1, 2);

// Formats a message and traces it at `level`.
VELT_EXPORT void VeltOutputMrbLog(VeltLogLevel level, char const* format, ...) VELT_PRINTF_FORMAT(2, 3);

// Traces `text` at level 2 as it is: it is neither copied nor cut here.
VELT_EXPORT void VeltOutputString_i(char const* text);

#endif
