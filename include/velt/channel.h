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

// Writes the bytes EF BB BF to `out` if VELTIsGlobalVersion(); does nothing for null or a stream that is not
// open. Reports no result. The caller owns the stream; no other thread may use it meanwhile.
VELT_EXPORT void VELTInsertBOM(std::ofstream& out);
VELT_EXPORT void VELTInsertBOM(FILE* out);

// One trace record on its way from a caller to an output thread.
//
// Ownership: owns its two arrays (array new) and its ASN value. Created with new, destroyed with delete. A
//            channel that is given a record owns it. A host may make records itself, with plain arrays of any
//            size. Final, since the destructor is not virtual.
// Threads:   belongs to one thread at a time.
//
// A record whose two arrays and ASN value are all null is the stop marker: it ends the output thread that
// takes it from the queue.
class VELT_EXPORT OutDataUnit final {
 public:
  OutDataUnit();
  ~OutDataUnit();
  OutDataUnit(OutDataUnit const&) = delete;
  OutDataUnit& operator=(OutDataUnit const&) = delete;

  // Takes recycled memory if there is some: allocators are slow when one thread allocates what another frees,
  // as a queue of records does. Throws std::bad_alloc.
  static void* operator new(std::size_t size);
  // The same; returns null instead of throwing.
  static void* operator new(std::size_t size, std::nothrow_t const&) noexcept;
  // The usual placement new.
  static void* operator new(std::size_t, void* at) noexcept { return at; }
  // Gives memory of the first two back; does nothing for null.
  static void operator delete(void* memory) noexcept;
  // Matches placement new, for a constructor that throws.
  static void operator delete(void*, void*) noexcept {}

  char* m_pTimeStamp = nullptr;  // "2026-11-15 08:52:13.123456" and a NUL
  int64_t m_nThreadId = 0;       // kernel thread id of the tracing thread
  int32_t m_nLevel = 3;          // a VeltLogLevel
  std::string m_strModule;       // the module name; "default" if the caller gave one space
  char* m_pText = nullptr;       // module, tag and message, NUL-terminated
  AsnType* m_pAsn = nullptr;     // printed after the text
  bool m_bPrint = false;         // write to standard output
  bool m_bLog = false;           // write to the log file

 private:
  friend struct velt::RecordNode;

  bool m_bLent = false;  // the arrays belong to the library's memory and are not freed with the record
};

// Counts of a channel's records and files since it was made. All but `queued` and `inRing` only grow. While
// no thread traces: accepted = written + printedOnly + lost + queued.
struct VeltTraceCounts {
  uint64_t accepted;  // queued for the output thread, or taken out of the ring to be written
  uint64_t refused;  // the call returned false: queue full, not started, forked child, bad input; or it threw
  uint64_t written;  // whole in a log file
  uint64_t printedOnly;  // handed to standard output, whatever that does with it, and to no file, as asked
  uint64_t lost;    // accepted, but refused by the device, dealt with while no file was open, or without text
  uint64_t queued;  // accepted and not yet dealt with
  uint64_t inRing;  // kept in the ring now
  uint64_t displaced;     // left the ring unwritten: newer ones took their place, or DequeueMsg deleted them
  uint64_t filesOpened;   // log files opened
  uint64_t archivesMade;  // log files compressed
  uint64_t archivesFailed;   // failed attempts to compress; the log file stays
  uint64_t archivesRemoved;  // deleted above the limit
  uint64_t bytesWritten;     // to log files, heads and trailers included
};

// VeltDebugInfo writes the log files <directory>/<prefix><YYYYMMDD_HHMMSS>.log from a thread of its own. A
// file that has grown past its limit is closed, compressed to <name>.gz, and the oldest archives are
// deleted.
//
// Threads:   Trace, TraceInner, FmtTrace, ASNTrace, Init, LogPath, Counts, Flush, SetQueueWait,
//            GetFileType, CheckFileLength and GZCompress may be called from any thread at any time between
//            construction and destruction. The other operations are for the output thread, or for a caller
//            that knows that this thread has ended.
// Errors:    only an allocation failure, and an ASN value's own copy or print, throw. A fault of a queue
//            becomes a line in the log file. A file that cannot be opened is tried again at the next rotation
//            or after one second.
// Capacity:  the output queue accepts records while it holds less than 10,240,000 bytes, counted as
//            sizeof(OutDataUnit) for each record (128,000 records). A caller waits for room for at most one
//            second unless SetQueueWait says otherwise.
// Fork:      a child has no output thread. A channel that was made before the fork refuses every record in
//            the child and can be destroyed there; the child never writes into the parent's files.
// Names:     the running channel uses no name twice, and names sort in the order of creation. They may be
//            ahead of the clock, by an hour at most: while a family opens more than one file a second, after
//            a quick restart, and at the end of summer time. The creation line in a file has the true time.
// Exit:      when the process ends by exit or by a return from main, accepted records are written first. The
//            library stops waiting when the device has taken nothing for one second. Nothing is written after
//            _exit, abort or a signal.
class VELT_EXPORT VeltDebugInfo {
 public:
  // Starts the output thread.
  //
  // - `logPath`: the directory; a missing '/' at the end is added; empty means VeltGetDefaultLogPath().
  //   It need not be writable: the output thread tries every second.
  // - `filePrefix`: what the file names begin with.
  // - `fileHeader`: written at the top of every file.
  // - `bPrint`, `bLog`: print, or log, every record, even one whose caller did not ask for it.
  // - `nFiltLogBufSize`: how many filtered records the ring keeps. Beyond 128,000 the ring meets the output
  //   queue's limit, and then refuses records as a full queue does.
  // - `nEachFileMaxSize`: the size in bytes after which a file is rotated.
  // - `nEachProcessMaxZipNum`: how many archives are kept.
  // - `nZipFileIncludeFileNum` and the last argument have no effect.
  VeltDebugInfo(std::string const& logPath, std::string const& filePrefix, std::string const& fileHeader,
                bool bPrint, bool bLog, unsigned int nFiltLogBufSize, unsigned int nEachFileMaxSize,
                unsigned int nEachProcessMaxZipNum, unsigned int nZipFileIncludeFileNum, bool);

  // Writes what was accepted, discards the ring of filtered records, and ends the output thread. Waits for
  // that thread without limit (polling every 100 ms), even when writing to the file blocks. No other thread
  // may still use the channel.
  ~VeltDebugInfo();

  VeltDebugInfo(VeltDebugInfo const&) = delete;
  VeltDebugInfo& operator=(VeltDebugInfo const&) = delete;

  // Starts the output thread unless it was started. The constructor calls it; a host calls it to try again.
  // Returns whether the thread was started: false when it could not be created, when the lock failed, and in
  // a forked child. Until a later Init succeeds, Trace refuses every record, and what TraceInner takes stays
  // queued.
  bool Init();

  // Deletes every record of the ring of filtered ones, unwritten.
  void DequeueMsg();

  // Makes one record and queues it. `text` is cut at 2048 characters and is not a format. A module of one
  // space becomes "default". A copy of `asn`, unless it is null, goes with the record.
  //
  // Returns true when the record was queued, or when it was filtered (neither print nor log) and there is no
  // ring. Returns false, and the record is lost, for a null text, before the output thread was started, in a
  // forked child, and when the queue stayed full for one second.
  bool Trace(std::string const& module, VeltLogLevel level, char const* text, AsnType const* asn, bool bPrint,
             bool bLog);

  // Queues a finished record, and owns it whatever the result. Returns true with `rec` untouched when it was
  // queued; true with `rec` null when it was filtered and there is no ring; false with `rec` null otherwise.
  // A null record is refused. A stop marker with m_bPrint or m_bLog set ends the output thread.
  bool TraceInner(OutDataUnit*& rec);

  // Traces a printf-style message of at most 2046 characters (the rest is cut) at level 3, printed and
  // logged. An expansion that fails or is empty traces nothing.
  void FmtTrace(char const* fmt, ...) VELT_PRINTF_FORMAT(2, 3);

  // Traces "ASN Trace:\n" and the printed value, up to its first NUL, at level 3. Null traces nothing.
  void ASNTrace(AsnType const* value, bool bPrint, bool bLog);

  // Appends "ASN Trace:\n" and the printed value, up to its first NUL, to `out`; null appends nothing.
  void ASNTrace(AsnType const* value, std::string& out) const;

  // Writes one record to the log file and standard output as its flags say, and rotates a file that has grown
  // past its limit. A record of level 0 first writes the ring, unless `fromDiscard`. Returns false when no
  // file is open, and when a rotation found no file to open until the channel ended.
  bool OutputString(OutDataUnit const* rec, bool fromDiscard);

  // Writes the records that are in the ring when the call begins to standard output and the log file, and
  // deletes them. Records that are filtered meanwhile stay in the ring.
  void OutputDiscardQueue();

  // The output thread's main function; `channel` is a VeltDebugInfo. Returns null; at once if `channel` is
  // null.
  static void* HandleOutputStringLoop(void* channel);

  // Creates or truncates <directory>/<prefix><local time>.log (mode 0640) with its header, and the directory
  // (0755, one level) when it is missing. Returns false, with no file open, when the file cannot be opened.
  bool OpenNewFile();

  // Appends at most 2,097,152 bytes of `text` to the file. Returns false for null, when no file is open, and
  // when the stream was or became bad; the stream's error is cleared, so that the next call can write.
  bool WriteFile(char const* text);

  // Writes the trailer line and closes the file; does nothing when none is open.
  void CloseFile();

  // Whether `name` has the length of a file of this channel of kind `type` (0 to 3, see GetFileType); false
  // for any other kind.
  bool CheckFileLength(std::string const& name, int type) const;

  // The kind of `name`, a file of the log directory: 0 ".tar.gz", 1 ".log", 2 ".tar", 3 ".log.gz", all with
  // this channel's prefix; 4 for any other file. Prefix, suffix, length and one mode bit decide; the
  // characters of the time are not checked.
  int GetFileType(std::string const& name) const;

  // Compresses `source` into `destination`. Returns 0 when done, and also when the first read fails (the
  // archive is then empty). Returns -1, and leaves no archive, when either file cannot be opened, the source
  // is empty, or a write or the final close fails.
  int GZCompress(std::string const& source, std::string const& destination) const;

  // Replaces the file `name` of the log directory by its archive <name>.gz (mode 0440). After a failure the
  // file is still there.
  void ZipLogFiles(std::string const& name) const;

  // Deletes the oldest archives beyond the limit, but never that of the first file that this channel opened.
  void RemoveSpilthFile() const;

  // Compresses every log file of the channel in its directory, then calls RemoveSpilthFile.
  void ProcessLogFileBeforeCreateNew() const;

  // The counts of the channel's records and files until now. Never waits. Any thread; also in a forked child.
  VeltTraceCounts Counts() const;

  // Waits until every record that was accepted before the call is written, printed or lost. Returns true
  // then; false when that takes longer than `milliseconds`; false at once in a forked child, and on the
  // output thread itself while it has records left. Any thread.
  bool Flush(unsigned milliseconds);

  // Sets how long a trace call waits for room in a full queue. The default is 1000; with 0 a full queue
  // refuses at once. A call that waits already waits no longer than that from then on. Any thread. Has no
  // effect in a forked child.
  void SetQueueWait(unsigned milliseconds);

  // The directory of the channel's files, ending in '/'. Never changes.
  std::string const& LogPath() const;

 private:
  friend struct velt::ChannelState;

  velt::ChannelState* m_pState = nullptr;  // owned; never null
};

#endif
