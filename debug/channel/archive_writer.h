// Writes one gzip archive. The compressor is chosen when the library is built (VELT_GZIP).
#ifndef VELT_DEBUG_CHANNEL_ARCHIVE_WRITER_H
#define VELT_DEBUG_CHANNEL_ARCHIVE_WRITER_H

#include <memory>

namespace velt {

char const* ArchiveWriterName();  // "isal" or "zlib"

// Writes one gzip member piece by piece, so that memory does not grow with the text. Used by one thread.
class ArchiveWriter {
 public:
  ArchiveWriter();
  ~ArchiveWriter();  // closes the descriptor; without a Close before, the archive is incomplete
  ArchiveWriter(ArchiveWriter const&) = delete;
  ArchiveWriter& operator=(ArchiveWriter const&) = delete;

  // Takes over `descriptor`, which is open for writing, whatever the result. Returns false when memory runs
  // out.
  bool Start(int descriptor);

  // Compresses `count` bytes, at least one; the output may be buffered until Close. Returns how many bytes it
  // took, 0 when the device refused a write.
  unsigned Write(char const* bytes, unsigned count);

  // Ends the archive and closes the descriptor. Returns false when a write or the close failed.
  bool Close();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace velt

#endif
