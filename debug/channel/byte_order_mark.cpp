#include "debug/channel/byte_order_mark.h"

#include <cstdio>
#include <fstream>

#include "velt/channel.h"

bool VELTIsGlobalVersion() { return true; }

void VELTInsertBOM(std::ofstream& out) {
  if (VELTIsGlobalVersion() && out.is_open()) out << velt::kByteOrderMark;
}

void VELTInsertBOM(FILE* out) {
  if (VELTIsGlobalVersion() && out != nullptr) std::fputs(velt::kByteOrderMark.data(), out);
}
