#include "tests/checker/record_text.h"

#include <zlib.h>

#include <charconv>
#include <cstdint>
#include <cstdio>

namespace velt::checker {
namespace {

constexpr std::size_t kChecksumPart = 10;  // " C" and 8 digits

std::uint32_t ChecksumOf(std::string_view text) {
  return static_cast<std::uint32_t>(
      crc32(0, reinterpret_cast<Bytef const*>(text.data()), static_cast<uInt>(text.size())));
}

// Letters that differ from record to record and from place to place.
std::string MakePayload(RecordId const& id, std::size_t length) {
  std::string payload(length, ' ');
  std::uint32_t state = id.run * 7919U + id.producer * 104'729U + id.sequence * 1'299'709U + 1U;
  for (char& letter : payload) {
    state = state * 1'664'525U + 1'013'904'223U;
    letter = static_cast<char>('a' + (state >> 16) % 26);
  }
  return payload;
}

// Removes "<mark><number> " from the beginning of `text`.
bool TakeNumber(std::string_view& text, char mark, unsigned& number) {
  if (text.empty() || text.front() != mark) return false;
  auto const [end, error] = std::from_chars(text.data() + 1, text.data() + text.size(), number);
  if (error != std::errc() || end == text.data() + text.size() || *end != ' ') return false;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()) + 1);
  return true;
}

}  // namespace

std::string MakeRecord(RecordId const& id, std::size_t length) {
  std::string text = "R" + std::to_string(id.run) + " P" + std::to_string(id.producer) + " S" +
                     std::to_string(id.sequence) + " L" + std::to_string(length) + " " +
                     MakePayload(id, length);
  char checksum[kChecksumPart + 1];
  std::snprintf(checksum, sizeof checksum, " C%08x", ChecksumOf(text));
  return text + checksum;
}

std::size_t MixedLength(unsigned sequence) {
  if (sequence % 97 == 13) return 1'900;
  if (sequence % 31 == 7) return 700;
  if (sequence % 17 == 5) return 0;
  return 10 + sequence * 37 % 121;
}

ParsedRecord ParseRecord(std::string_view text) {
  ParsedRecord parsed;
  std::string_view rest = text;
  unsigned length = 0;
  if (!TakeNumber(rest, 'R', parsed.id.run) || !TakeNumber(rest, 'P', parsed.id.producer) ||
      !TakeNumber(rest, 'S', parsed.id.sequence) || !TakeNumber(rest, 'L', length)) {
    return parsed;
  }
  if (rest.size() < kChecksumPart || rest.size() - kChecksumPart < length) return parsed;
  std::string_view const body = text.substr(0, text.size() - kChecksumPart);
  std::string_view const mark = text.substr(body.size(), 2);
  std::string_view const digits = text.substr(body.size() + 2);
  std::uint32_t checksum = 0;
  auto const [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), checksum, 16);
  bool const right = rest.size() - kChecksumPart == length && mark == " C" && error == std::errc() &&
                     end == digits.data() + digits.size() && checksum == ChecksumOf(body);
  parsed.state = right ? TextState::kWhole : TextState::kWrongChecksum;
  return parsed;
}

}  // namespace velt::checker
