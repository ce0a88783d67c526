// The caller's side of a channel: makes a record and queues it.
#ifndef VELT_DEBUG_CHANNEL_TRACE_H
#define VELT_DEBUG_CHANNEL_TRACE_H

#include <cstdarg>
#include <cstddef>
#include <string>

#include "velt/channel.h"

namespace velt {

struct ChannelState;

inline constexpr int kDefaultLevel = 3;
inline constexpr char const* kUnnamedModule = " ";

// VeltDebugInfo::Trace. `length` is strlen(text) if known, else npos.
bool TraceText(ChannelState& state, std::string const& module, VeltLogLevel level, char const* text,
               std::size_t length, AsnType const* asn, bool print, bool log);

// Whether the channel takes records: its thread was started, by this process.
bool TakesRecords(ChannelState const& state);

// Whether the channel keeps filtered records, or has an output for every record.
bool KeepsFiltered(ChannelState const& state);

enum class Printed {
  kTraced,
  kRefused,      // TraceText would return false
  kNotExpanded,  // nothing was traced: the text is empty, or errno says why
};

// Expands `fmt` to at most 2046 characters and traces it, as ExpandMessage and TraceText do. A message of
// usual length is expanded in its record's array, without a copy. The channel must take records.
Printed TraceFormat(ChannelState& state, std::string const& module, VeltLogLevel level, char const* fmt,
                    std::va_list args, bool print, bool log) VELT_PRINTF_FORMAT(4, 0);

// VeltDebugInfo::TraceInner.
bool TraceRecord(ChannelState& state, OutDataUnit*& rec);

}  // namespace velt

#endif
