#include "platform/thread_id.h"

#include <sys/syscall.h>
#include <unistd.h>

#include "platform/fork_generation.h"

namespace velt {
namespace {

struct CachedId {
  std::int64_t id = 0;  // 0: not asked yet; no thread has that id
  std::uint32_t fork_generation = 0;
};
[[gnu::tls_model("initial-exec")]] thread_local CachedId cached;

}  // namespace

std::int64_t ThreadId() {
  // The system call costs as much as the rest of a filtered record.
  if (cached.id == 0 || cached.fork_generation != ForkGeneration()) {
    cached.id = syscall(SYS_gettid);
    cached.fork_generation = ForkGeneration();
  }
  return cached.id;
}

}  // namespace velt
