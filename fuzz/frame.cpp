// Frame helpers against their contract: a field has guard bytes on both sides, and behind a source no byte
// may be read.
//
// An input is the letter of the operation, three bytes (capacity, count, value or place), and a text.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "velt/process.h"

#include "fuzz/support/check.h"
#include "fuzz/support/input.h"

namespace velt::fuzz {
namespace {

constexpr std::size_t kMargin = 256;
constexpr std::size_t kLargestField = 256;

// A field in the middle of a frame, and how the frame should look afterwards.
class Frame {
 public:
  Frame() {
    for (std::size_t at = 0; at < bytes_.size(); ++at) bytes_[at] = static_cast<char>('A' + at % 23);
    expected_ = bytes_;
  }
  char* Field() { return bytes_.data() + kMargin; }
  char* Place(std::size_t offset) { return bytes_.data() + offset % bytes_.size(); }
  std::size_t PlacesFrom(std::size_t offset) const { return bytes_.size() - offset % bytes_.size(); }
  char& Expected(std::size_t at) { return expected_[kMargin + at]; }
  // The bytes behind the NUL of a text may have any value.
  void ExpectText(std::string_view text, std::size_t capacity) {
    for (std::size_t at = 0; at < capacity; ++at) {
      Expected(at) = at < text.size() ? text[at] : at == text.size() ? '\0' : Field()[at];
    }
  }
  void CheckBytes(char const* what) const { Check(bytes_ == expected_, what); }

 private:
  std::array<char, kMargin + kLargestField + kMargin> bytes_;
  std::array<char, kMargin + kLargestField + kMargin> expected_;
};

// Sizes of a field; the last ones are negative numbers that became unsigned.
std::size_t SizeOf(unsigned byte) {
  constexpr std::array<std::size_t, 4> kNegative = {SIZE_MAX, SIZE_MAX - 1, SIZE_MAX - 255, SIZE_MAX / 2 + 1};
  return byte < 250 ? byte : byte < 252 ? kLargestField - 251 + byte : kNegative[byte - 252];
}

bool IsNegative(std::size_t size) { return size > SIZE_MAX / 2; }

// A copy of a text in memory of exactly its length, so that a sanitizer reports a read behind it.
std::unique_ptr<char[]> Exactly(std::string_view text) {
  std::unique_ptr<char[]> bytes(new char[text.size()]);
  std::copy(text.begin(), text.end(), bytes.get());
  return bytes;
}

void CheckText(std::size_t capacity, std::size_t count, std::string text, bool from_null) {
  Frame frame;
  bool const has_end = text.find('\0') != std::string::npos;
  if (!has_end && count > text.size()) text.push_back('\0');  // it is read up to there
  std::unique_ptr<char[]> const source = Exactly(text);
  std::string_view const wanted = std::string_view(text).substr(0, count);
  std::string_view const taken = wanted.substr(0, wanted.find('\0'));

  char* const answer = VeltFrameGetNStr(frame.Field(), capacity, from_null ? nullptr : source.get(), count);

  bool const fits = !from_null && !IsNegative(count) && taken.size() < capacity;
  if (capacity > 0 && !IsNegative(capacity)) frame.ExpectText(fits ? taken : std::string_view(), capacity);
  Check(answer == frame.Field(), "VeltFrameGetNStr returns its field");
  frame.CheckBytes("VeltFrameGetNStr");
}

void CheckBody(std::size_t size, std::string const& text, bool from_null) {
  if (!from_null && size > text.size()) return;  // a source of that size is the caller's promise
  Frame frame;
  std::unique_ptr<char[]> const source = Exactly(text);
  bool const writes = !IsNegative(size);
  for (std::size_t at = 0; writes && at < size; ++at) frame.Expected(at) = from_null ? '\0' : text[at];

  Check(VeltFrameSetBody(frame.Field(), from_null ? nullptr : source.get(), size) == frame.Field(),
        "VeltFrameSetBody returns its field");

  frame.CheckBytes("VeltFrameSetBody");
}

// A source within the frame itself: one that overlaps the field counts as an error.
void CheckBodyWithin(std::size_t size, std::size_t offset) {
  Frame frame;
  if (size > std::min(kLargestField, frame.PlacesFrom(offset))) return;
  char const* const source = frame.Place(offset);
  bool const overlaps = source < frame.Field() + size && frame.Field() < source + size;
  for (std::size_t at = 0; at < size; ++at) frame.Expected(at) = overlaps ? '\0' : source[at];

  VeltFrameSetBody(frame.Field(), source, size);

  frame.CheckBytes("VeltFrameSetBody within a frame");
}

void CheckReset(std::size_t size, unsigned value) {
  Frame frame;
  for (std::size_t at = 0; !IsNegative(size) && at < size; ++at)
    frame.Expected(at) = static_cast<char>(value);

  Check(VeltFrameResetBody(frame.Field(), static_cast<int>(value), size) == frame.Field(),
        "VeltFrameResetBody returns its field");

  frame.CheckBytes("VeltFrameResetBody");
}

std::string Padded(std::string const& text, std::size_t width, bool left) {
  std::string const blanks(width > text.size() ? width - text.size() : 0, ' ');
  return left ? text + blanks : blanks + text;
}

void CheckFormat(std::size_t capacity, unsigned form, std::string const& with_nul) {
  if (IsNegative(capacity)) return;
  Frame frame;
  char* const field = frame.Field();
  std::string const text = with_nul.substr(0, with_nul.find('\0'));
  int const number = static_cast<int>(text.size() * 2654435761U);
  std::string const digits = std::to_string(number);
  char const* const nothing = with_nul.data() == nullptr ? "" : nullptr;  // the compiler need not know
  std::string full;
  int result = 0;
  switch (form % 7) {
    case 0:
      full = text;
      result = VeltFrameGetStr(field, capacity, "%s", text.c_str());
      break;
    case 1:
      full = digits + "%" + text + "|";
      result = VeltFrameGetStr(field, capacity, "%d%%%s|", number, text.c_str());
      break;
    case 2:
      full = Padded(digits, 14, false) + Padded(text, 9, true) + text.substr(0, 3);
      result = VeltFrameGetStr(field, capacity, "%14d%-9s%.3s", number, text.c_str(), text.c_str());
      break;
    case 3:
      full = "(null) " + std::to_string(text.size());
      result = VeltFrameGetStr(field, capacity, "%s %zu", nothing, text.size());
      break;
    case 4:
      result = VeltFrameGetStr(field, capacity, "%s", "");
      break;
    case 5:
      Check(VeltFrameGetStr(nullptr, capacity, "%s", "x") < 0, "a null field");
      return;
    default:
      Check(VeltFrameGetStr(field, capacity, nullptr) < 0, "a null format");
      frame.CheckBytes("VeltFrameGetStr of a null format");
      return;
  }
  if (full.size() < capacity) {
    CheckEqual(result, static_cast<int>(full.size()), "result of VeltFrameGetStr");
  } else {
    Check(result < 0, "VeltFrameGetStr reports what it cuts");
  }
  if (capacity > 0) frame.ExpectText(std::string_view(full).substr(0, capacity - 1), capacity);
  frame.CheckBytes("VeltFrameGetStr");
}

// The names that have one; the others of the table are empty.
std::string_view NameOf(unsigned type) {
  constexpr std::array<std::string_view, 35> kNames = {"",
                                                       "REQUESTBC",
                                                       "RESPONSEBC",
                                                       "REGISTER",
                                                       "RESTART",
                                                       "ANSFRAME",
                                                       "REQUESTNBC",
                                                       "RESPONSENBC",
                                                       "TIMER",
                                                       "EXIT",
                                                       "SVCTYPEINFO_REQ_V3",
                                                       "",
                                                       "",
                                                       "",
                                                       "",
                                                       "",
                                                       "SHAKEHAND",
                                                       "RECONNECT",
                                                       "GET_COUNTER_REQ",
                                                       "GET_COUNTER_RSP",
                                                       "INQUIRE",
                                                       "GET_SVR_STATE",
                                                       "GET_TASKMGR_STATE",
                                                       "CORE_DUMP_CMD",
                                                       "MULTCMD_REG",
                                                       "HEARTBEAT_REQ",
                                                       "HEARTBEAT_RSP",
                                                       "DISPFAIL_RSP",
                                                       "SVCTYPEINFO_REQ",
                                                       "QUERY_REQ",
                                                       "QUERY_RSP",
                                                       "",
                                                       "",
                                                       "",
                                                       "MSG_TRNING_MSG"};
  return type < kNames.size() ? kNames[type] : "unknow";
}

}  // namespace
}  // namespace velt::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  using namespace velt::fuzz;
  Input input(data, size);
  char const operation = Choose(input.Character(), "nNbBwrft");
  std::size_t const capacity = SizeOf(input.Byte());
  std::size_t const count = SizeOf(input.Byte());
  unsigned const value = input.Byte();
  std::string const text(input.Rest().substr(0, 2 * kLargestField));

  if (operation == 'n' || operation == 'N') CheckText(capacity, count, text, operation == 'N');
  if (operation == 'b' || operation == 'B') CheckBody(capacity, text, operation == 'B');
  if (operation == 'w') CheckBodyWithin(capacity, count + value);
  if (operation == 'r') CheckReset(capacity, value);
  if (operation == 'f') CheckFormat(capacity, value, text);
  if (operation == 't') {
    CheckEqual(std::string_view(VeltGetMsgTypeString(static_cast<unsigned char>(value))), NameOf(value),
               "VeltGetMsgTypeString");
  }
  return 0;
}
