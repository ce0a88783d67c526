// Writes one gzip archive. Which compressor does it is settled when the library is built (VELT_GZIP).
#ifndef VELT_DEBUG_CHANNEL_ARCHIVE_WRITER_H
#define VELT_DEBUG_CHANNEL_ARCHIVE_WRITER_H

#include <memory>

namespace velt {

char const* ArchiveWriterName();  // "isal" or "zlib"

// One gzip member, streamed: memory does not grow with the text. Used by one thread.
class ArchiveWriter {
 public:
  ArchiveWriter();
  ~ArchiveWriter();  // closes without a look at the result; what was not closed before is not whole
  ArchiveWriter(ArchiveWriter const&) = delete;
  ArchiveWriter& operator=(ArchiveWriter const&) = delete;

  // Takes `descriptor` over, which is open for writing, whatever the result. False without memory.
  bool Start(int descriptor);

  // Compresses `count` bytes, more than none; what comes of them may be held back until Close. Returns how
  // many it took, 0 when the device refused a write.
  unsigned Write(char const* bytes, unsigned count);

  // Ends the archive and closes the descriptor. False when any of it could not be written, the close
  // included.
  bool Close();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace velt

#endif
