// The text form of level and output sets.
#ifndef VELT_DEBUG_MANAGER_BIT_SET_TEXT_H
#define VELT_DEBUG_MANAGER_BIT_SET_TEXT_H

#include <bitset>
#include <string>

namespace velt {

// Reads a text of '0' and '1' whose first character is bit 0. Of a text over 32 characters the last 32 count.
// Reverses `text`. Returns false, with `set` untouched, when a character that counts is neither '0' nor '1'.
bool BitSetFromText(std::string& text, std::bitset<32>& set);

}  // namespace velt

#endif
