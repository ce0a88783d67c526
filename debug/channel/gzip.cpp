#include "debug/channel/gzip.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <new>

#include <zlib.h>

#include "debug/channel/archive_writer.h"
#include "platform/descriptor.h"

namespace velt {
namespace {

constexpr unsigned kBlockBytes = 65'535;
constexpr mode_t kNewArchiveMode = 0666;  // less the umask; housekeeping narrows it once the archive is whole

struct CloseGzip {
  void operator()(gzFile_s* file) const { gzclose(file); }
};
using GzipFile = std::unique_ptr<gzFile_s, CloseGzip>;

// A source that is gzip data is unpacked, any other one read as it is.
GzipFile OpenSource(char const* path) {
  int const descriptor = OpenAboveStandard(path, O_RDONLY);
  if (descriptor == -1) return nullptr;
  GzipFile source(gzdopen(descriptor, "rb"));
  if (source == nullptr) (void)close(descriptor);
  return source;
}

enum class Copied { kAll, kNothing, kWriteFailed };

Copied CopyAll(gzFile_s* in, ArchiveWriter& out, char* block, std::atomic<std::uint64_t>* blocks) {
  int got = gzread(in, block, kBlockBytes);
  if (got == 0) return Copied::kNothing;
  // A read that fails ends the copy like the end of the file, the very first one too: a source that cannot be
  // read is given up for good instead of being met again at every rotation.
  for (; got > 0; got = gzread(in, block, kBlockBytes)) {
    unsigned const put = out.Write(block, static_cast<unsigned>(got));
    if (put == 0) return Copied::kWriteFailed;
    if (put != static_cast<unsigned>(got)) break;
    if (blocks != nullptr) blocks->fetch_add(1, std::memory_order_relaxed);  // a sign of life, no more
  }
  return Copied::kAll;
}

}  // namespace

int GZCompress(std::string const& source, std::string const& destination,
               std::atomic<std::uint64_t>* blocks) {
  GzipFile const in = OpenSource(source.c_str());
  if (in == nullptr) return -1;
  int const archive = OpenAboveStandard(destination.c_str(), O_WRONLY | O_CREAT | O_TRUNC, kNewArchiveMode);
  if (archive == -1) return -1;
  errno = 0;  // what an empty source leaves
  ArchiveWriter out;
  bool complete = out.Start(archive);
  if (complete) {
    std::unique_ptr<char[]> const block(new (std::nothrow) char[kBlockBytes]);
    if (block == nullptr) errno = ENOMEM;
    complete = block != nullptr && CopyAll(in.get(), out, block.get(), blocks) == Copied::kAll;
    // What the archive still holds back is written by its close, so a full device may show only there.
    if (!out.Close()) complete = false;
  }
  if (complete) return 0;
  int const reason = errno;
  (void)std::remove(destination.c_str());  // a broken archive that stays is overwritten at the next rotation
  errno = reason;
  return -1;
}

}  // namespace velt
