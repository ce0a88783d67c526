// Wrappers of what writes and closes.
#include <sys/uio.h>
#include <unistd.h>
#include <zlib.h>

#include <cerrno>

#include "tests/faults/shim/next.h"
#include "tests/faults/shim/shim.h"

using velt::shim::Ask;
using velt::shim::AskDescriptor;
using velt::shim::Call;
using velt::shim::Next;
using velt::shim::Verdict;
using velt::shim::Watched;

VELT_SHIM_EXPORT ssize_t write(int descriptor, void const* bytes, size_t count) {
  static auto* const next = Next<ssize_t(int, void const*, size_t)>("write");
  if (!Watched(Call::kWrite)) return next(descriptor, bytes, count);
  Verdict const verdict = AskDescriptor(Call::kWrite, descriptor);
  if (!verdict.fail) return next(descriptor, bytes, verdict.half ? (count + 1) / 2 : count);
  errno = verdict.error;
  return -1;
}

VELT_SHIM_EXPORT ssize_t writev(int descriptor, iovec const* parts, int count) {
  static auto* const next = Next<ssize_t(int, iovec const*, int)>("writev");
  if (!Watched(Call::kWrite)) return next(descriptor, parts, count);
  Verdict const verdict = AskDescriptor(Call::kWrite, descriptor);
  if (verdict.fail) {
    errno = verdict.error;
    return -1;
  }
  if (!verdict.half) return next(descriptor, parts, count);
  int first = 0;
  while (first + 1 < count && parts[first].iov_len == 0) ++first;
  iovec const half{parts[first].iov_base, (parts[first].iov_len + 1) / 2};
  return next(descriptor, &half, 1);
}

VELT_SHIM_EXPORT int close(int descriptor) {
  static auto* const next = Next<int(int)>("close");
  if (!Watched(Call::kClose)) return next(descriptor);
  Verdict const verdict = AskDescriptor(Call::kClose, descriptor);
  int const closed = next(descriptor);  // a close that fails has closed all the same
  if (!verdict.fail) return closed;
  errno = verdict.error;
  return -1;
}

VELT_SHIM_EXPORT int gzwrite(gzFile file, voidpc bytes, unsigned count) {
  static auto* const next = Next<int(gzFile, voidpc, unsigned)>("gzwrite");
  if (!Watched(Call::kGzwrite)) return next(file, bytes, count);
  Verdict const verdict = Ask(Call::kGzwrite, nullptr);
  if (!verdict.fail) return next(file, bytes, count);
  errno = verdict.error;
  return 0;
}

VELT_SHIM_EXPORT int gzclose(gzFile file) {
  static auto* const next = Next<int(gzFile)>("gzclose");
  if (!Watched(Call::kGzclose)) return next(file);
  Verdict const verdict = Ask(Call::kGzclose, nullptr);
  int const closed = next(file);
  if (!verdict.fail) return closed;
  errno = verdict.error;
  return Z_ERRNO;
}
