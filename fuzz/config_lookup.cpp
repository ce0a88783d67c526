// Look-ups of one name against the model of a file: texts of every capacity, numbers, and the readers of the
// debug configuration over a first and a second file.
//
// An input is a line of the operation and its number, a line of the name, and the text of two files with a
// line "%%" between them, in which each "`" stands for 500 of them:
//
//   s7    as a text, with a capacity of 7; "s=" exactly too small, "s+" exactly right, "s-" negative
//   i     as a number
//   f x m z n   as the number of that reader: ring, largest file, channels, archives, files of an archive
//   l7 o7 as the level or output text, with a capacity of 7
//
// A "p" behind the letter leaves the second file out.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "velt/config.h"
#include "velt/manager.h"

#include "fuzz/model/config_file.h"
#include "fuzz/support/check.h"
#include "fuzz/support/input.h"
#include "fuzz/support/memory_file.h"

namespace velt::fuzz {
namespace {

using Found = std::optional<std::string>;

constexpr int kLargestCapacity = 2100;
constexpr int kTextCapacity = 2048;  // of what the readers of the debug configuration are handed
constexpr std::size_t kLongestNumber = 1791;
constexpr char kGuard = '\x5A';

// A buffer of a given capacity, with guard bytes on both sides.
class Field {
 public:
  explicit Field(int capacity) : end_(kGuardBytes + static_cast<std::size_t>(capacity < 0 ? 0 : capacity)) {
    std::memset(bytes_.data(), kGuard, end_ + kGuardBytes);
  }
  char* Data() { return bytes_.data() + kGuardBytes; }
  void CheckGuards() const {
    for (std::size_t at = 0; at < kGuardBytes; ++at) {
      Check(bytes_[at] == kGuard && bytes_[end_ + at] == kGuard, "a byte outside the buffer was written");
    }
  }

 private:
  static constexpr std::size_t kGuardBytes = 16;
  std::array<char, kLargestCapacity + 2 * kGuardBytes> bytes_;
  std::size_t end_;
};

struct Files {
  MemoryFile first;
  MemoryFile second;
};

struct Lookup {
  char operation;
  bool first_only;
  int capacity;
  std::string name;
  Found in_first;
  Found in_second;

  // A value of the first file that fits, as the text look-up of `size` bytes finds it.
  static bool Fits(Found const& value, int size) {
    return value.has_value() && static_cast<long>(value->size()) < size;
  }
};

int CapacityOf(std::string_view text, Found const& value) {
  Input input(text);
  int const length = value.has_value() ? static_cast<int>(value->size()) : 0;
  if (text == "=") return length;
  if (text == "+") return length + 1;
  bool const negative = !text.empty() && text.front() == '-';
  if (negative) input.Character();
  int const number = input.Number(kLargestCapacity);
  return negative ? -1 - number : number;
}

void CheckText(Lookup const& lookup, std::string const& path) {
  Field field(lookup.capacity);
  int length = lookup.capacity;
  bool const found = VeltGetCfgString(lookup.name.c_str(), field.Data(), length, path.c_str());

  CheckEqual(found, Lookup::Fits(lookup.in_first, lookup.capacity), "result of VeltGetCfgString");
  CheckEqual(length, found ? static_cast<int>(lookup.in_first->size()) : 0, "length of VeltGetCfgString");
  if (found) CheckEqual(std::string(field.Data()), *lookup.in_first, "value of VeltGetCfgString");
  field.CheckGuards();

  length = lookup.capacity;
  Check(!VeltGetCfgString(nullptr, field.Data(), length, path.c_str()) && length == 0, "a null name");
  length = lookup.capacity;
  Check(!VeltGetCfgString(lookup.name.c_str(), nullptr, length, path.c_str()) && length == 0,
        "a null buffer");
  length = lookup.capacity;
  Check(!VeltGetCfgString(lookup.name.c_str(), field.Data(), length, nullptr) && length == 0, "a null file");
}

Found NumberIn(Found const& value) {
  return value.has_value() && value->size() <= kLongestNumber ? value : std::nullopt;
}

void CheckNumber(Lookup const& lookup, std::string const& path) {
  Found const expected = NumberIn(lookup.in_first);
  int number = -77;
  CheckEqual(VeltGetCfgInt(lookup.name.c_str(), number, path.c_str()), expected.has_value(),
             "result of VeltGetCfgInt");
  CheckEqual(number, expected.has_value() ? ModelNumber(*expected) : -77, "value of VeltGetCfgInt");
}

struct Reader {
  char letter;
  char const** key;  // every reader looks for what its key points at
  bool (*read)(int&, std::string const&, std::string const&, bool);
  int otherwise;
};

constexpr std::array<Reader, 5> kReaders = {{
    {'f', &NFILTLOGBUFSIZE, &VeltDebugMgr::GetFiltLogBufSize, 100},
    {'x', &MAXLOGSIZEITEM, &VeltDebugMgr::GetMaxFileSize, 5242880},
    {'m', &MAXFILENUMITEM, &VeltDebugMgr::GetMaxFileNum, 50},
    {'z', &MAXZIPNUMINPROCITEM, &VeltDebugMgr::GetEachProcessMaxZipNum, 30},
    {'n', &FILENUMINZIPITEM, &VeltDebugMgr::GetZipFileIncludeFileNum, 10},
}};

void CheckReader(Lookup const& lookup, Files const& files) {
  for (Reader const& reader : kReaders) {
    if (reader.letter != lookup.operation) continue;
    Found value = NumberIn(lookup.in_first);
    if (!value.has_value() && !lookup.first_only) value = NumberIn(lookup.in_second);
    int expected = reader.otherwise;
    if (value.has_value()) {
      auto const megabytes = static_cast<unsigned>(ModelNumber(*value));
      expected = static_cast<int>(reader.letter == 'x' ? megabytes * 1048576U : megabytes);
    }
    *reader.key = lookup.name.c_str();
    int number = -77;
    CheckEqual(reader.read(number, files.first.Path(), files.second.Path(), lookup.first_only),
               value.has_value(), "result of a number reader");
    CheckEqual(number, expected, "value of a number reader");
  }
}

void CheckSetText(Lookup const& lookup, Files const& files) {
  bool const is_level = lookup.operation == 'l';
  int const capacity = lookup.capacity < kTextCapacity ? lookup.capacity : kTextCapacity;
  std::string expected = is_level ? "1100" : "0100";
  std::string in_buffer;
  int expected_length = lookup.first_only ? kTextCapacity : 0;
  if (Lookup::Fits(lookup.in_first, capacity)) {
    expected = in_buffer = *lookup.in_first;
    expected_length = static_cast<int>(in_buffer.size());
  } else if (!lookup.first_only && Lookup::Fits(lookup.in_second, kTextCapacity)) {
    expected = "as it was";
    in_buffer = *lookup.in_second;
    expected_length = static_cast<int>(in_buffer.size());
  }

  (is_level ? DEBUGLEVELITEM : DEBUGOUPUTTITEM) = lookup.name.c_str();
  Field field(kTextCapacity);
  field.Data()[0] = '\0';
  std::string text = "as it was";
  int length = capacity;
  auto* const read = is_level ? &VeltDebugMgr::GetStrlevel : &VeltDebugMgr::GetStroutput;
  read(text, field.Data(), length, files.first.Path(), files.second.Path(), lookup.first_only);

  CheckEqual(text, expected, "text of a text reader");
  CheckEqual(length, expected_length, "length of a text reader");
  CheckEqual(std::string(field.Data()), in_buffer, "buffer of a text reader");
  field.CheckGuards();
}

}  // namespace
}  // namespace velt::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  using namespace velt::fuzz;
  static Files files;
  Input input(data, size);
  Input operation(input.Line());
  Lookup lookup{};
  lookup.operation = Choose(operation.Character(), "sifxmznlo");
  lookup.first_only = !operation.AtEnd() && operation.Rest().front() == 'p';
  if (lookup.first_only) operation.Character();
  lookup.name = input.Line();
  lookup.name.resize(lookup.name.find('\0') == std::string::npos ? lookup.name.size()
                                                                 : lookup.name.find('\0'));
  std::string const text = Lengthened(input.Rest());
  std::string_view const both = text;
  constexpr std::string_view kBetween = "\n%%\n";
  std::size_t const between = both.find(kBetween);
  std::string_view const first = both.substr(0, between);
  std::string_view const second =
      between == std::string_view::npos ? std::string_view() : both.substr(between + kBetween.size());
  lookup.in_first = ModelFind(first, lookup.name);
  lookup.in_second = ModelFind(second, lookup.name);
  lookup.capacity = CapacityOf(operation.Rest(), lookup.in_first);
  files.first.Write(first);
  files.second.Write(second);

  if (lookup.operation == 's') CheckText(lookup, files.first.Path());
  if (lookup.operation == 'i') CheckNumber(lookup, files.first.Path());
  if (lookup.operation == 'l' || lookup.operation == 'o') CheckSetText(lookup, files);
  CheckReader(lookup, files);
  return 0;
}
