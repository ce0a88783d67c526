// Bytes of unknown origin, made fit for a terminal or for JSON.
#ifndef VELT_TOOLS_VELTCFG_BYTES_H
#define VELT_TOOLS_VELTCFG_BYTES_H

#include <string>
#include <string_view>

namespace velt::tools::cfg {

// `text` as UTF-8 without control characters: each byte of one, or of what is no UTF-8, becomes \xNN. What is
// shown cannot steer the terminal, nor begin a line of its own.
std::string Printable(std::string_view text);

// `text` as a JSON string with its quotes. A byte that is no UTF-8 becomes U+FFFD.
std::string JsonString(std::string_view text);

}  // namespace velt::tools::cfg

#endif
