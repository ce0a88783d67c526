#include "debug/channel/output.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <iostream>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>

#include <ace/OS_NS_unistd.h>

#include "debug/channel/channel_problems.h"
#include "debug/channel/channel_state.h"
#include "debug/channel/current_file.h"
#include "debug/channel/housekeeping.h"
#include "debug/channel/line.h"
#include "debug/channel/ring.h"
#include "platform/bounded.h"

namespace velt {
namespace {

constexpr std::size_t kUsualLineBytes = 4096;
constexpr unsigned kSecondsBetweenAttempts = 1;

// Output threads print one at a time, since std::cout's state has no lock of its own.
std::mutex print_lock;

// std::cout throws if the host has enabled its exceptions.
void PrintRecord(OutDataUnit const& rec, RecordLine const& line_of_rec) try {
  std::string line(line_of_rec.head);
  std::string const& asn_text = line_of_rec.asn_text;
  bool const ends_in_newline = rec.m_pText == nullptr || EndsInNewline(rec.m_pText);
  if (rec.m_pText != nullptr) {
    line += rec.m_pText;
    if (!ends_in_newline) line += '\n';
    if (!asn_text.empty()) line += asn_text + '\n';
  }
  std::lock_guard<std::mutex> const lock(print_lock);
  std::cout.write(line.data(), static_cast<std::streamsize>(line.size()));
  if (rec.m_pText == nullptr) {
    std::cout.setstate(std::ios_base::badbit);  // what inserting a null text does
    return;
  }
  if (!ends_in_newline || !asn_text.empty()) std::cout.flush();
} catch (std::exception const&) {
  return;  // only the printed copy of the record is lost
}

// Writes a record of usual length with one write; a very long one in parts, without a copy. If the device
// refuses a part, the rest is not written, since its beginning would be missing.
template <std::size_t kCount>
bool AppendTogether(ChannelState& state, std::array<std::string_view, kCount> const& pieces) {
  std::array<char, kUsualLineBytes> line;
  std::size_t length = 0;
  for (std::string_view const piece : pieces) {
    if (piece.size() > line.size() - length) {
      if (!AppendToFile(state, line.data(), length)) return false;
      length = 0;
    }
    if (piece.size() > line.size()) {
      if (!AppendToFile(state, piece.data(), piece.size())) return false;
    } else if (!piece.empty()) {
      std::memcpy(line.data() + length, piece.data(), piece.size());
      length += piece.size();
    }
  }
  return AppendToFile(state, line.data(), length);
}

// Returns whether the whole record is in the file.
bool LogRecord(ChannelState& state, OutDataUnit const& rec, RecordLine const& line) {
  std::array<char, kLineHeadCapacity> day_line;
  day_line[0] = '\0';
  if (IsNewDay(rec)) {
    snprintf_s(day_line.data(), day_line.size(), day_line.size() - 1, "Current date&time:%s\n", StampOf(rec));
  }
  std::string_view const text = rec.m_pText == nullptr ? std::string_view() : rec.m_pText;
  std::string_view const asn_text = line.asn_text;
  std::array<std::string_view, 6> const pieces = {day_line.data(),
                                                  line.head,
                                                  text.substr(0, kLongestWrite),
                                                  EndsInNewline(text) ? "" : "\n",
                                                  asn_text.substr(0, kLongestWrite),
                                                  asn_text.empty() ? "" : "\n"};
  bool const whole = AppendTogether(state, pieces);
  if (whole) {
    RecordWritten(state);
  } else {
    RecordNotWritten(state, errno);
  }
  return whole;
}

bool RotateWhenOutgrown(ChannelState& state) {
  // Compared as signed: a limit of 4294967295 is -1 here, and the file is rotated after every record.
  if (static_cast<std::int32_t>(state.m_nEachFileMaxSize) >=
      static_cast<std::int32_t>(state.m_pFile->Size())) {
    return true;
  }
  state.m_inHand.GiveBack();  // compression takes as long as thousands of records
  CloseFile(state);
  ProcessLogFileBeforeCreateNew(state);
  return OpenFileUntilExit(state);
}

}  // namespace

void RemakePrintLock() { new (&print_lock) std::mutex; }

bool OpenFileUntilExit(ChannelState& state) {
  while (!OpenNextFile(state)) {
    FileNotOpened(state, errno);
    if (state.m_bExit.load(std::memory_order_acquire)) return false;
    ACE_OS::sleep(kSecondsBetweenAttempts);
  }
  FileOpened(state);
  return true;
}

// Recursive: a record of level 0 writes the ring's records through here, with `fromDiscard` set.
// NOLINTNEXTLINE(misc-no-recursion): one level deep, as fromDiscard sees to
bool OutputRecord(ChannelState& state, OutDataUnit const& rec, bool fromDiscard, DealtWith dealtWith) {
  if (state.m_pFile != nullptr && rec.m_nLevel == 0 && !fromDiscard) OutputDiscardQueue(state);
  if (state.m_pFile == nullptr) {  // none was open, or the channel ended while the ring was written
    dealtWith(state, rec, false);
    return false;
  }

  // The value's Print and the stream buffer of std::cout are the host's code and may trace.
  if (rec.m_pAsn != nullptr || rec.m_bPrint) state.m_inHand.GiveBack();
  RecordLine line;
  MakeLine(rec, line);
  bool whole = true;
  bool has_file = true;
  if (rec.m_bLog) {
    whole = LogRecord(state, rec, line);
    // Before a rotation, which may take long, so that a flush need not wait for it.
    if (!rec.m_bPrint) dealtWith(state, rec, whole);
    has_file = RotateWhenOutgrown(state);
  }
  if (has_file) {
    StoreDay(rec);
    if (rec.m_bPrint) PrintRecord(rec, line);
  }
  if (rec.m_bPrint) dealtWith(state, rec, whole);
  return has_file;
}

bool OutputString(ChannelState& state, OutDataUnit const& rec, bool fromDiscard) {
  // A record that a host hands in here was not accepted by the queue, so it does not count.
  return OutputRecord(state, rec, fromDiscard, [](ChannelState&, OutDataUnit const&, bool) {});
}

void CountDealtWith(ChannelState& state, OutDataUnit const& rec, bool whole) {
  ChannelCounts& counts = state.m_counts;
  if (!whole) {
    counts.lost.Add();
  } else if (rec.m_bLog) {
    counts.written.Add();
  } else {
    counts.printedOnly.Add();
  }
  counts.dealtWith.Add();
}

// NOLINTNEXTLINE(misc-no-recursion): see OutputString
void OutputDiscardQueue(ChannelState& state) {
  // Only the records that are there now: later ones came after the record of level 0, and busy threads could
  // add them faster than they are written.
  for (std::size_t left = RecordsInRing(state); left > 0; --left) {
    std::unique_ptr<OutDataUnit> rec;
    if (!TakeFromRing(state, rec)) return;
    state.m_counts.fromRing.Add();
    if (rec == nullptr) {
      state.m_counts.lost.Add();
      state.m_counts.dealtWith.Add();
      continue;
    }
    rec->m_bPrint = true;
    rec->m_bLog = true;
    (void)OutputRecord(state, *rec, true, &CountDealtWith);  // the next one meets the same file
  }
}

}  // namespace velt
