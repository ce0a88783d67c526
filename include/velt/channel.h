// A log channel: one family of bounded, rotated, compressed log files and the background thread that writes
// it.
#ifndef VELT_CHANNEL_H
#define VELT_CHANNEL_H

#include <cstdint>
#include <cstdio>
#include <iosfwd>
#include <new>
#include <string>

#include "velt/export.h"
#include "velt/types.h"

namespace velt {
struct ChannelState;
struct RecordNode;
}  // namespace velt

// The time part of a log file name, for strftime: 15 characters of local time and ".log".
VELT_EXPORT extern char const* const VELT_DEBUG_FILE_NAME_TIME_PATTERN;
VELT_EXPORT extern char const* const LOGFILETAIL;  // ".log", a log file
VELT_EXPORT extern char const* const GZFILETAIL;   // ".gz", a compressed log file
VELT_EXPORT extern char const* const TARFILETAIL;  // ".tar", recognised, never made
VELT_EXPORT extern char const* const ZIPFILETAIL;  // ".tar.gz", recognised, never made

// Whether log files begin with a UTF-8 byte order mark: always true. Any thread.
VELT_EXPORT bool VELTIsGlobalVersion();

// Write the bytes EF BB BF to `out` when VELTIsGlobalVersion(); a stream that is not open, or null, is left
// alone. Neither reports a result. The caller owns the stream and keeps other threads from it.
VELT_EXPORT void VELTInsertBOM(std::ofstream& out);
VELT_EXPORT void VELTInsertBOM(FILE* out);

// One trace record on its way from a caller to an output thread.
//
// Ownership: owns its two arrays (array new) and its ASN value. Created with new, destroyed with delete; a
//            channel that is handed one owns it. A host may fill one by itself, with plain arrays of any
//            size. Not to be derived from: it is deleted as what it is, and without a virtual destructor.
// Threads:   belongs to one thread at a time.
//
// A record whose two arrays and ASN value are all null is the stop marker: the output thread that takes it
// ends.
class VELT_EXPORT OutDataUnit final {
 public:
  OutDataUnit();
  ~OutDataUnit();
  OutDataUnit(OutDataUnit const&) = delete;
  OutDataUnit& operator=(OutDataUnit const&) = delete;

  // The memory of records is recycled: one thread fills a queue and another empties it, which allocators are
  // slow at. Throws std::bad_alloc.
  static void* operator new(std::size_t size);
  // The same; null instead of an exception.
  static void* operator new(std::size_t size, std::nothrow_t const&) noexcept;
  // Placement, as everywhere.
  static void* operator new(std::size_t, void* at) noexcept { return at; }
  // Takes memory of the first two back; null is nothing to do.
  static void operator delete(void* memory) noexcept;
  // Placement's, for a constructor that throws.
  static void operator delete(void*, void*) noexcept {}

  char* m_pTimeStamp = nullptr;  // "2026-11-15 08:52:13.123456" and a NUL
  int64_t m_nThreadId = 0;       // kernel thread id of the tracing thread
  int32_t m_nLevel = 3;          // a VeltLogLevel
  std::string m_strModule;       // the caller's, or "default" for one space
  char* m_pText = nullptr;       // module, tag and message, NUL-terminated
  AsnType* m_pAsn = nullptr;     // printed after the text
  bool m_bPrint = false;         // write to standard output
  bool m_bLog = false;           // write to the log file

 private:
  friend struct velt::RecordNode;

  bool m_bLent = false;  // the record was made with arrays that are not its own to free
};

// VeltDebugInfo writes the log files <directory>/<prefix><YYYYMMDD_HHMMSS>.log from a thread of its own. A
// file that has grown past its limit is closed, compressed to <name>.gz, and the oldest archives are
// deleted.
//
// Threads:   Trace, TraceInner, FmtTrace, ASNTrace, Init and LogPath may be called from any thread at any
//            time between construction and destruction. Everything else belongs to the output thread, or to
//            a caller that knows that thread to be gone; GetFileType, CheckFileLength and GZCompress touch
//            nothing of the channel that changes and may be called from anywhere.
// Errors:    nothing throws but an allocation failure and an ASN value's own copy or print. Faults of the
//            queues are lines in the log file; faults of the files are retried at the next rotation or
//            after one second.
// Capacity:  the output queue admits records while it holds less than 10,240,000 bytes of them, at
//            sizeof(OutDataUnit) each (128,000 records); a caller waits for room for at most one second.
// Fork:      a child has no output thread. A channel that was made before the fork refuses every record in
//            the child and can be destroyed there; it never writes into the parent's files.
// Limits:    two files of one channel that are opened within one second share a name, and the older is
//            lost.
class VELT_EXPORT VeltDebugInfo {
 public:
  // Starts the output thread. `logPath` gets a '/' at its end where it lacks one; empty means
  // VeltGetDefaultLogPath(). `fileHeader` is written at the top of every file as it is. `bPrint` and `bLog`
  // are used for records whose caller did not ask for that output. Sizes are bytes; `nFiltLogBufSize` counts
  // records kept in the ring of filtered ones (at most 128,000: the ring has the queue's bound, and one that
  // meets it refuses as a full queue does), `nEachProcessMaxZipNum` archives kept.
  // `nZipFileIncludeFileNum` and the last argument change nothing. A directory that cannot be written is no
  // error here: the thread tries every second.
  VeltDebugInfo(std::string const& logPath, std::string const& filePrefix, std::string const& fileHeader,
                bool bPrint, bool bLog, unsigned int nFiltLogBufSize, unsigned int nEachFileMaxSize,
                unsigned int nEachProcessMaxZipNum, unsigned int nZipFileIncludeFileNum, bool);

  // Stops in order: what was accepted is written, the ring of filtered records is not. Waits for the output
  // thread without limit (polling every 100 ms), so for a stalled file too. No other thread may still use the
  // channel.
  ~VeltDebugInfo();

  VeltDebugInfo(VeltDebugInfo const&) = delete;
  VeltDebugInfo& operator=(VeltDebugInfo const&) = delete;

  // Starts the output thread unless it was started; the constructor has called it. Returns whether it was
  // started; false when no thread could be created, when the lock failed, and in a forked child. Until a
  // later Init succeeds Trace then refuses every record, and what TraceInner takes stays queued.
  bool Init();

  // Deletes every record of the ring of filtered ones, unwritten.
  void DequeueMsg();

  // Makes one record and queues it. `text` is cut at 2048 characters and never read as a format; a module of
  // one space is filed as "default". A copy of `asn` travels with the record when it is not null. Returns
  // true when the record was queued, or was filtered (neither print nor log) and there is no ring; false for
  // a null text, before the output thread was started, in a forked child, or when the queue stayed full for
  // one second: the record is then lost.
  bool Trace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn, bool bPrint,
             bool bLog);

  // Queues a finished record and owns it from then on, whatever the result. Returns true with `rec` untouched
  // when it was queued, true with `rec` null when it was filtered and there is no ring; false with `rec` null
  // otherwise. A null record is refused; a stop marker that is to be printed or logged stops the output
  // thread.
  bool TraceInner(OutDataUnit*& rec);

  // Traces a printf-style message of at most 2046 characters (the rest is cut) at level 3, printed and
  // logged. An expansion that fails or is empty traces nothing.
  void FmtTrace(char const* fmt, ...) VELT_PRINTF_FORMAT(2, 3);

  // Traces "ASN Trace:\n" and the printed value, up to its first NUL, at level 3. Null traces nothing.
  void ASNTrace(AsnType const* value, bool bPrint, bool bLog);

  // Appends "ASN Trace:\n" and the printed value, up to its first NUL, to `out`; null appends nothing.
  void ASNTrace(AsnType const* value, std::string& out) const;

  // Writes one record to the log file and standard output as its flags say, and rotates a file that has
  // outgrown its limit. Returns false when no file is open, or when none could be opened after a rotation
  // before the channel's end. A record of level 0 that is not `fromDiscard` brings the ring out first.
  bool OutputString(OutDataUnit const* rec, bool fromDiscard);

  // Writes the records that the ring holds when the call begins, printed and logged, and deletes them. At
  // most that many: records that are filtered meanwhile stay in the ring.
  void OutputDiscardQueue();

  // The output thread's entry; `channel` is a VeltDebugInfo. Returns null, at once for a null channel.
  static void* HandleOutputStringLoop(void* channel);

  // Creates <directory>/<prefix><local time>.log (mode 0640) with its header, and the directory (0755, one
  // level) when it is missing. Returns false, with no file open, when the file cannot be opened.
  bool OpenNewFile();

  // Appends at most 2,097,152 bytes of `text` to the file. Returns false for null, with no file open, and
  // when the stream was or became bad; the stream is then good again for the next call.
  bool WriteFile(char const* text);

  // Writes the trailer line and closes the file; nothing when none is open.
  void CloseFile();

  // Whether `name` has the length of a file of this channel of kind `type` (0 to 3, see GetFileType); false
  // for any other kind.
  bool CheckFileLength(std::string const& name, int type) const;

  // What `name`, a file of the log directory, is to this channel: 0 ".tar.gz", 1 ".log", 2 ".tar", 3
  // ".log.gz", 4 not its file. Prefix, suffix, length and one mode bit decide; the time characters are not
  // looked at.
  int GetFileType(std::string const& name) const;

  // Compresses `source` into `destination`. Returns 0 when done, and when the very first read fails (the
  // archive is then empty); -1 when either cannot be opened, the source is empty, or a write or the final
  // close fails: no archive is left behind then.
  int GZCompress(std::string const& source, std::string const& destination) const;

  // Replaces the file `name` of the log directory by its archive <name>.gz (mode 0440); a failure leaves it
  // alone.
  void ZipLogFiles(std::string const& name) const;

  // Deletes the oldest archives above the limit, sparing that of the first file this channel opened.
  void RemoveSpilthFile() const;

  // Compresses every log file of the channel in its directory, then prunes.
  void ProcessLogFileBeforeCreateNew() const;

  // The directory of the channel's files, ending in '/'. Never changes.
  std::string const& LogPath() const;

 private:
  friend struct velt::ChannelState;

  velt::ChannelState* m_pState;  // owned; never null
};

#endif
