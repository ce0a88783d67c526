// Bytes of unknown origin, made fit for a terminal or for JSON.
#ifndef VELT_TOOLS_VELTCFG_BYTES_H
#define VELT_TOOLS_VELTCFG_BYTES_H

#include <string>
#include <string_view>

namespace velt::tools::cfg {

// `text` as UTF-8 without control characters: each byte of one, or of what is no UTF-8, becomes \xNN. What is
// shown cannot steer the terminal, nor begin a line of its own.
std::string Printable(std::string_view text);

// `text` as UTF-8: each byte that is none becomes U+FFFD.
std::string AsUtf8(std::string_view text);

}  // namespace velt::tools::cfg

#endif
