// Wraps the system's functions for a program, and makes chosen calls fail, write less than asked, wait or
// stop.
//
// Linked into a program, its functions take the place of the system's for the whole program, the C++ library
// and zlib included: this works under the sanitizers too. libfault_shim.so is the same for LD_PRELOAD, in
// builds without sanitizers, and has the memory functions as well; its rules come from the environment:
//
//   VELT_SHIM='write,first=3,count=1,errno=ENOSPC,path=*/logs/*.log;remove,action=stop,path=*.gz'
//
// Threads: rules are added and cleared by one thread while others call; clearing only when no call that a
// rule meets is on its way, but for calls that kStall holds. A call of a kind without rules costs one relaxed
// read.
#ifndef VELT_TESTS_FAULTS_SHIM_SHIM_H
#define VELT_TESTS_FAULTS_SHIM_SHIM_H

#include <atomic>
#include <cstddef>

namespace velt::shim {

enum class Call {
  kCreate,  // open of a log file that is to be written; every other open is kOpen
  kOpen,    // open64 and open, which zlib opens with
  kWrite,   // write and writev, by the name of the open file
  kClose,
  kRename,
  kRemove,
  kUnlink,
  kMkdir,
  kOpendir,
  kGzwrite,  // no path
  kGzclose,  // no path
  kPthreadCreate,
  kMalloc,  // malloc, calloc, realloc; only with the memory part
  kNew,     // operator new; only with the memory part
  kCalls
};

enum class Action {
  kFail,   // the call is not made; errno is `error`
  kShort,  // kWrite: half of the bytes are written, and the result says so
  kDelay,  // `delay_ms` before the call
  kStop,   // SIGSTOP to the process before the call, which is made when it goes on
  kStall,  // the call waits until the rules are cleared, and is then made
};

// Applies to the first-th matching call since it was set and to `count` - 1 after it.
struct Rule {
  Call call = Call::kWrite;
  Action action = Action::kFail;
  unsigned first = 1;
  unsigned count = 1;  // 0: for ever
  int error = 0;       // for kFail
  unsigned delay_ms = 0;
  char const* path = nullptr;  // fnmatch pattern over the whole path; null or "": every call
  bool own_thread = false;     // only calls of the thread that adds the rule
};

// Adds a rule and returns its number; at most 16 at a time (std::abort beyond).
int AddRule(Rule const& rule);
void ClearRules();                // also forgets the counts
unsigned MatchedCalls(int rule);  // calls that the rule's kind and path met since it was added
unsigned AppliedCalls(int rule);  // those that it was applied to

// Opens that succeeded for reading or writing, of paths that match the pattern given last.
struct Opens {
  unsigned all = 0;
  unsigned inheritable = 0;  // without O_CLOEXEC at the open itself
};
void WatchOpens(char const* pattern);  // fnmatch pattern over the whole path, kept by the caller; null: none
Opens WatchedOpens();                  // since then

// Called by the wrappers for each open.
void NoteOpen(char const* path, bool close_on_exec);

// What a wrapper is to do with its call.
struct Verdict {
  bool fail = false;
  bool half = false;
  int error = 0;
};
extern std::atomic<unsigned> watched_calls;  // bit set of the kinds that have rules
inline bool Watched(Call call) {
  return (watched_calls.load(std::memory_order_relaxed) & (1U << static_cast<unsigned>(call))) != 0;
}
Verdict Ask(Call call, char const* path);  // delays and stops here
Verdict AskDescriptor(Call call, int descriptor);

// Adds the rules of VELT_SHIM, once; the preloaded library does so when it is loaded.
void ReadEnvironment();

}  // namespace velt::shim

#endif
