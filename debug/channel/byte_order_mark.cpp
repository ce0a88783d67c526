// The UTF-8 byte order mark at the top of every log file.
#include <cstdio>
#include <fstream>

#include "velt/channel.h"

namespace {

constexpr char const* kByteOrderMark = "\xEF\xBB\xBF";

}  // namespace

bool VELTIsGlobalVersion() { return true; }

void VELTInsertBOM(std::ofstream& out) {
  if (VELTIsGlobalVersion() && out.is_open()) out.write(kByteOrderMark, 3);
}

void VELTInsertBOM(FILE* out) {
  if (VELTIsGlobalVersion() && out != nullptr) std::fputs(kByteOrderMark, out);
}
