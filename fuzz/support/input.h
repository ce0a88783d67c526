// An input as text: read line by line or character by character, and never past its end.
#ifndef VELT_FUZZ_SUPPORT_INPUT_H
#define VELT_FUZZ_SUPPORT_INPUT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace velt::fuzz {

class Input {
 public:
  Input(std::uint8_t const* data, std::size_t size) : rest_(reinterpret_cast<char const*>(data), size) {}
  explicit Input(std::string_view text) : rest_(text) {}

  bool AtEnd() const { return rest_.empty(); }
  std::string_view Rest() const { return rest_; }

  // '\0' at the end.
  char Character() {
    if (rest_.empty()) return '\0';
    char const first = rest_.front();
    rest_.remove_prefix(1);
    return first;
  }
  unsigned Byte() { return static_cast<unsigned char>(Character()); }

  // Up to and without the next `end`, which is dropped.
  std::string_view Until(char end) {
    std::string_view const piece = rest_.substr(0, rest_.find(end));
    rest_.remove_prefix(piece.size() < rest_.size() ? piece.size() + 1 : piece.size());
    return piece;
  }
  std::string_view Line() { return Until('\n'); }

  // The next digits and what ends them; `most` at most.
  int Number(int most) {
    int value = 0;
    while (!rest_.empty() && rest_.front() >= '0' && rest_.front() <= '9') {
      int const digit = Character() - '0';
      value = value > most ? value : value * 10 + digit;
    }
    Character();
    return value < most ? value : most;
  }

 private:
  std::string_view rest_;
};

// A text with each '`' made long, so that a short input reaches the limits of lines and messages. The first
// few only: they cost time.
inline std::string Lengthened(std::string_view text) {
  constexpr std::size_t kLength = 500;
  constexpr int kMost = 10;
  std::string result;
  int lengthened = 0;
  for (char const character : text) {
    bool const is_long = character == '`' && ++lengthened <= kMost;
    result.append(is_long ? kLength : 1, character);
  }
  return result;
}

// One of `choices`, picked by a character: itself when it is among them, some other one by its value.
inline char Choose(char picked, std::string_view choices) {
  if (choices.find(picked) != std::string_view::npos) return picked;
  return choices[static_cast<unsigned char>(picked) % choices.size()];
}

}  // namespace velt::fuzz

#endif
