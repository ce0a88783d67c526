// Makes any bytes safe to print on a terminal or to put into JSON.
#include "tools/veltcfg/bytes.h"

namespace velt::tools::cfg {
namespace {

// The length of a UTF-8 sequence and the range of its second byte. The range excludes overlong forms,
// surrogates and characters above U+10FFFF.
struct Sequence {
  std::size_t length;
  unsigned char second_low;
  unsigned char second_high;
};

Sequence SequenceOf(unsigned char lead) {
  if (lead < 0x80) return {1, 0, 0};
  if (lead >= 0xC2 && lead <= 0xDF) return {2, 0x80, 0xBF};
  if (lead == 0xE0) return {3, 0xA0, 0xBF};
  if (lead == 0xED) return {3, 0x80, 0x9F};
  if (lead >= 0xE1 && lead <= 0xEF) return {3, 0x80, 0xBF};
  if (lead == 0xF0) return {4, 0x90, 0xBF};
  if (lead >= 0xF1 && lead <= 0xF3) return {4, 0x80, 0xBF};
  if (lead == 0xF4) return {4, 0x80, 0x8F};
  return {0, 0, 0};
}

// The length of the UTF-8 character that `text` begins with; 0 when it does not begin with a valid one.
std::size_t CharacterLength(std::string_view text) {
  auto const byte = [text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
  Sequence const sequence = SequenceOf(byte(0));
  if (sequence.length > text.size()) return 0;
  if (sequence.length > 1 && (byte(1) < sequence.second_low || byte(1) > sequence.second_high)) return 0;
  for (std::size_t at = 2; at < sequence.length; ++at) {
    if ((byte(at) & 0xC0U) != 0x80U) return 0;
  }
  return sequence.length;
}

// `prefix` and the byte as two hexadecimal digits.
std::string Hexadecimal(char const* prefix, char byte) {
  constexpr char const* kDigits = "0123456789abcdef";
  auto const value = static_cast<unsigned char>(byte);
  return std::string(prefix) + kDigits[value >> 4U] + kDigits[value & 0xFU];
}

// Terminals also obey U+0080 to U+009F: they mean the same as ESC and a letter.
bool IsControl(std::string_view character) {
  auto const first = static_cast<unsigned char>(character[0]);
  if (character.size() == 1) return first < 0x20 || first == 0x7F;
  return first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
}

}  // namespace

std::string Printable(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    std::size_t const length = CharacterLength(text);
    std::string_view const character = text.substr(0, length == 0 ? 1 : length);
    if (length != 0 && !IsControl(character)) {
      shown += character;
    } else {
      for (char const byte : character) shown += Hexadecimal("\\x", byte);
    }
    text.remove_prefix(character.size());
  }
  return shown;
}

std::string AsUtf8(std::string_view text) {
  std::string utf8;
  while (!text.empty()) {
    std::size_t const length = CharacterLength(text);
    utf8 += length == 0 ? "\xEF\xBF\xBD" : text.substr(0, length);
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return utf8;
}

}  // namespace velt::tools::cfg
