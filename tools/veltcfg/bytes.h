// Makes any bytes safe to print on a terminal or to put into JSON.
#ifndef VELT_TOOLS_VELTCFG_BYTES_H
#define VELT_TOOLS_VELTCFG_BYTES_H

#include <string>
#include <string_view>

namespace velt::tools::cfg {

// `text` as UTF-8 without control characters: each byte of a control character, and each byte that is not
// valid UTF-8, becomes \xNN. The result cannot control the terminal and stays on one line.
std::string Printable(std::string_view text);

// `text` as UTF-8: each byte that is not valid UTF-8 becomes U+FFFD.
std::string AsUtf8(std::string_view text);

}  // namespace velt::tools::cfg

#endif
