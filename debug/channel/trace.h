// The caller's side of a channel: makes a record and queues it.
#ifndef VELT_DEBUG_CHANNEL_TRACE_H
#define VELT_DEBUG_CHANNEL_TRACE_H

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

// VeltDebugInfo::TraceInner.
bool TraceRecord(ChannelState& state, OutDataUnit*& rec);

}  // namespace velt

#endif
