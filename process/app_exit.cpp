// The exit flag of the process and the lock that hosts share.
#include "velt/process.h"

std::atomic<bool> g_VeltAppExitFlag{false};
int g_bVeltOnlyTraceSomeMSG = 0;

void SetVeltAppExit(bool exit) {
  try {
    VeltOutputFrmtString("===================SetVeltAppExit (%d)==================", exit ? 1 : 0);
  } catch (...) {
    g_VeltAppExitFlag.store(exit);  // the flag is set even when the banner cannot be traced
    throw;
  }
  g_VeltAppExitFlag.store(exit);
}

bool VeltAppIsExit() { return g_VeltAppExitFlag.load(); }

ACE_Recursive_Thread_Mutex* VELTGetStaticLock() { return &g_mutexVeltStaticLock; }
