// Compresses one finished log file.
#include <cstdio>
#include <memory>
#include <new>

#include <zlib.h>

#include "velt/channel.h"

namespace {

constexpr unsigned kBlockBytes = 65'535;

struct CloseGzip {
  void operator()(gzFile_s* file) const { gzclose(file); }
};
using GzipFile = std::unique_ptr<gzFile_s, CloseGzip>;

enum class Copied { kAll, kNothing, kWriteFailed };

Copied CopyAll(gzFile_s* in, gzFile_s* out, char* block) {
  int got = gzread(in, block, kBlockBytes);
  if (got == 0) return Copied::kNothing;
  // A read that fails ends the copy like the end of the file, the very first one too: a source that cannot be
  // read is given up for good instead of being met again at every rotation.
  for (; got > 0; got = gzread(in, block, kBlockBytes)) {
    int const put = gzwrite(out, block, static_cast<unsigned>(got));
    if (put == 0) return Copied::kWriteFailed;
    if (put != got) break;
  }
  return Copied::kAll;
}

}  // namespace

int VeltDebugInfo::GZCompress(std::string const& source, std::string const& destination) const {
  GzipFile const in(gzopen(source.c_str(), "rb"));
  if (in == nullptr) return -1;
  GzipFile out(gzopen(destination.c_str(), "wb"));
  if (out == nullptr) return -1;
  std::unique_ptr<char[]> const block(new (std::nothrow) char[kBlockBytes]);

  bool complete = block != nullptr && CopyAll(in.get(), out.get(), block.get()) == Copied::kAll;
  // What the archive still holds back is written by its close, so a full device may show only there.
  if (gzclose(out.release()) != Z_OK) complete = false;
  if (complete) return 0;
  (void)std::remove(destination.c_str());  // a broken archive that stays is overwritten at the next rotation
  return -1;
}
