// A plug-in as its author would write it: linked with the library, and loaded by a program that is not.
#include <bitset>
#include <string>

#include "velt/manager.h"

// Traces in a destructor at the thread's end; the record must be in the log.
struct LastWord {
  int thread = 0;
  ~LastWord() { VeltDebugMgr::Instance()->Printf(VeltLogLevel{3}, "thread %d ends", thread); }
};

// -1 begins, -2 ends, any other number traces from the calling thread. Returns 0 when that was done.
extern "C" __attribute__((visibility("default"))) int TraceIntoPlugin(char const* directory, int thread) {
  VeltDebugMgr* const manager = VeltDebugMgr::Instance();
  if (thread == -2) return VeltDebugMgr::Destroy();
  if (thread == -1) {
    if (!manager->Init("plugin", "", directory, "", true, false)) return 1;
    return manager->RegSubModuleInfo("debug", std::bitset<32>(15), std::bitset<32>(2), false) ? 0 : 1;
  }
  thread_local LastWord last_word;
  last_word.thread = thread;
  for (int i = 0; i < 1000; ++i) {
    if (!manager->Trace("plugin", VeltLogLevel{3}, "traced by a thread of the program", nullptr, false,
                        false))
      return 1;
  }
  return 0;
}
