// The UTF-8 byte order mark at the top of every log file.
#ifndef VELT_DEBUG_CHANNEL_BYTE_ORDER_MARK_H
#define VELT_DEBUG_CHANNEL_BYTE_ORDER_MARK_H

#include <string_view>

namespace velt {

inline constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

}  // namespace velt

#endif
