// The archive writer of builds with VELT_GZIP=zlib.
#include <unistd.h>

#include <new>

#include <zlib.h>

#include "debug/channel/archive_writer.h"

namespace velt {

char const* ArchiveWriterName() { return "zlib"; }

struct ArchiveWriter::State {
  State() = default;
  ~State() {
    if (file != nullptr) (void)gzclose(file);
  }
  State(State const&) = delete;
  State& operator=(State const&) = delete;

  gzFile_s* file = nullptr;
};

ArchiveWriter::ArchiveWriter() = default;
ArchiveWriter::~ArchiveWriter() = default;

bool ArchiveWriter::Start(int descriptor) {
  state_.reset(new (std::nothrow) State);
  if (state_ != nullptr) state_->file = gzdopen(descriptor, "wb");
  if (state_ != nullptr && state_->file != nullptr) return true;
  (void)close(descriptor);  // the caller removes the file
  return false;
}

unsigned ArchiveWriter::Write(char const* bytes, unsigned count) {
  int const taken = gzwrite(state_->file, bytes, count);
  return taken > 0 ? static_cast<unsigned>(taken) : 0;
}

bool ArchiveWriter::Close() {
  if (state_ == nullptr || state_->file == nullptr) return false;
  int const closed = gzclose(state_->file);
  state_->file = nullptr;
  return closed == Z_OK;
}

}  // namespace velt
