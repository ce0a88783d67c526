// Turns a record into the bytes of its lines.
#ifndef VELT_DEBUG_CHANNEL_LINE_H
#define VELT_DEBUG_CHANNEL_LINE_H

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "velt/channel.h"

namespace velt {

inline constexpr std::size_t kLineHeadCapacity = 512;

// The part of a line before the record's text, and the text of its ASN value. Parts of the record are not
// copied: the line must not outlive the record.
struct RecordLine {
  std::array<char, kLineHeadCapacity> head_buffer;
  std::string_view head;  // "11-15 08:52:13.123456.T4711"
  std::string asn_text;   // empty without a value
};

// Fills `line` from `rec`. Calls Print of the record's value; if that throws, its text ends there.
void MakeLine(OutDataUnit const& rec, RecordLine& line);

// "ASN Trace:\n" and what `value` prints, up to the first NUL. Empty for null. Passes on what Print throws.
std::string AsnText(AsnType const* value);

bool EndsInNewline(std::string_view text);

// The record's stamp; the empty text when it has none.
char const* StampOf(OutDataUnit const& rec);

// Whether the day of `rec` is not the day of the record that any channel wrote last.
bool IsNewDay(OutDataUnit const& rec);

// Remembers the day of `rec` for IsNewDay.
void StoreDay(OutDataUnit const& rec);

}  // namespace velt

#endif
