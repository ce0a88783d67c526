// Configuration lines against the model of a file: one by one, all of them, and the trimming that they use.
// An input is a marker, a newline, and the text of a file, in which each "`" stands for 500 of them.
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "velt/config.h"

#include "fuzz/model/config_file.h"
#include "fuzz/support/check.h"
#include "fuzz/support/input.h"
#include "fuzz/support/memory_file.h"

namespace velt::fuzz {
namespace {

void CheckOneByOne(std::string const& path, std::vector<ModelLine> const& lines) {
  std::ifstream in(path);
  std::string name = "untouched name";
  std::string value = "untouched value";
  std::string expected_name = name;
  std::string expected_value = value;
  for (ModelLine const& line : lines) {
    Check(in.good(), "the stream ends before the file");
    CheckEqual(VeltGetLine(in, name, value), line.is_item ? 1 : 2, "result of VeltGetLine");
    if (line.is_item) {
      expected_name = line.name;
      expected_value = line.value;
    }
    CheckEqual(name, expected_name, "name of a line");
    CheckEqual(value, expected_value, "value of a line");
    CheckEqual(in.good(), !line.ends_scan, "stream after a line");
  }
  CheckEqual(VeltGetLine(in, name, value), 2, "result of VeltGetLine behind the end");
}

void CheckAllItems(std::string const& path, std::vector<ModelLine> const& lines, std::string const& marker) {
  std::map<std::string, std::string> expected = {{"net", "kept or overwritten"}, {"", "of no name"}};
  std::map<std::string, std::string> items = expected;
  ModelAddItems(lines, marker, expected);
  Check(VeltAllCfgItem(items, path, marker), "VeltAllCfgItem of a file that is there");
  Check(items == expected, "items of VeltAllCfgItem");
}

void CheckSplit(std::string_view text) {
  std::string name = "untouched";
  std::string value = name;
  std::size_t const equals = text.find('=');
  bool const has_one = equals != std::string_view::npos;
  CheckEqual(VeltGetNameValue(std::string(text), name, value), has_one ? 1 : -1,
             "result of VeltGetNameValue");
  CheckEqual(name, has_one ? ModelTrim(text.substr(0, equals)) : "untouched", "name of VeltGetNameValue");
  CheckEqual(value, has_one ? ModelTrim(text.substr(equals + 1)) : "untouched", "value of VeltGetNameValue");
}

void CheckTrimming(std::string_view text, std::string const& marker) {
  std::string_view const set = std::string_view(marker).substr(0, marker.find('\0'));
  CheckEqual(TrimString(std::string(text), marker.c_str()), ModelTrim(text, set), "TrimString");

  text = text.substr(0, text.find('\0'));
  std::vector<char> buffer(text.begin(), text.end());
  buffer.push_back('\0');
  VeltStrTrim(buffer.data());
  CheckEqual(std::string_view(buffer.data()), ModelTrim(text, " \t"), "VeltStrTrim");
}

}  // namespace
}  // namespace velt::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  using namespace velt::fuzz;
  static MemoryFile file;
  Input input(data, size);
  std::string const marker(input.Line());
  std::string const text = Lengthened(input.Rest());
  file.Write(text);
  std::vector<ModelLine> const lines = ModelLines(text);

  // One of the two for each input: opening the file is what costs.
  if (text.size() % 2 == 0) CheckOneByOne(file.Path(), lines);
  if (text.size() % 2 != 0) CheckAllItems(file.Path(), lines, marker);
  CheckSplit(text);
  CheckTrimming(text, marker);
  return 0;
}
