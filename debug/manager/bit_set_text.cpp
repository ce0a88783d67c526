#include "debug/manager/bit_set_text.h"

#include <algorithm>
#include <stdexcept>

bool velt::BitSetFromText(std::string& text, std::bitset<32>& set) {
  std::reverse(text.begin(), text.end());
  try {
    set = std::bitset<32>(text);
    return true;
  } catch (std::invalid_argument const&) {
    return false;
  }
}
