#include "debug/channel/gzip.h"

#include <fcntl.h>
#include <sys/stat.h>
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
constexpr mode_t kNewArchiveMode = 0666;  // less the umask; housekeeping makes a complete archive 0440

struct CloseGzip {
  void operator()(gzFile_s* file) const { gzclose(file); }
};
using GzipFile = std::unique_ptr<gzFile_s, CloseGzip>;

// Opens a file for reading: gzip data is unpacked, any other content is read as it is.
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
  // A failed read, even the first, counts as the end of the file: otherwise a source that cannot be read
  // would be tried again at every rotation.
  for (; got > 0; got = gzread(in, block, kBlockBytes)) {
    unsigned const put = out.Write(block, static_cast<unsigned>(got));
    if (put == 0) return Copied::kWriteFailed;
    if (put != static_cast<unsigned>(got)) break;
    if (blocks != nullptr) blocks->fetch_add(1, std::memory_order_relaxed);  // only shows that work goes on
  }
  return Copied::kAll;
}

// If that fails, the next rotation overwrites the incomplete archive. A device or a pipe is the host's own
// and stays: a process of root could remove /dev/full.
void RemoveIncomplete(char const* path) {
  struct stat status {};
  bool const ours = lstat(path, &status) == 0 && (S_ISREG(status.st_mode) || S_ISLNK(status.st_mode));
  if (ours) (void)std::remove(path);
}

}  // namespace

int GZCompress(std::string const& source, std::string const& destination,
               std::atomic<std::uint64_t>* blocks) {
  GzipFile const in = OpenSource(source.c_str());
  if (in == nullptr) return -1;
  int const archive = OpenAboveStandard(destination.c_str(), O_WRONLY | O_CREAT | O_TRUNC, kNewArchiveMode);
  if (archive == -1) return -1;
  errno = 0;  // the value for an empty source
  ArchiveWriter out;
  bool complete = out.Start(archive);
  if (complete) {
    std::unique_ptr<char[]> const block(new (std::nothrow) char[kBlockBytes]);
    if (block == nullptr) errno = ENOMEM;
    complete = block != nullptr && CopyAll(in.get(), out, block.get(), blocks) == Copied::kAll;
    // Close writes the rest of the archive, so a full device may be noticed only here.
    if (!out.Close()) complete = false;
  }
  if (complete) return 0;
  int const reason = errno;
  RemoveIncomplete(destination.c_str());
  errno = reason;
  return -1;
}

}  // namespace velt
