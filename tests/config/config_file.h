// What the tests of configuration files share: a file of one test, and look-ups in it.
#ifndef VELT_TESTS_CONFIG_CONFIG_FILE_H
#define VELT_TESTS_CONFIG_CONFIG_FILE_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "velt/config.h"

#include "tests/support/files.h"

namespace velt::test {

using Items = std::map<std::string, std::string>;

// A configuration file of one test.
class ConfigFile {
 public:
  explicit ConfigFile(std::string const& content) : path_(directory_ / "test.cfg") {
    WriteFile(path_, content);
  }

  char const* Path() const { return path_.c_str(); }

 private:
  ScratchDir directory_;
  std::string path_;
};

struct Found {
  bool found = false;
  std::string text;  // what the buffer holds
  int length = -1;
};

inline Found LookUp(char const* name, char const* file, int capacity = 4096) {
  std::vector<char> buffer(static_cast<std::size_t>(capacity > 0 ? capacity : 1), '#');
  Found result;
  result.length = capacity;
  result.found = VeltGetCfgString(name, buffer.data(), result.length, file);
  if (result.found) result.text = buffer.data();
  return result;
}

inline std::string ValueOf(char const* name, std::string const& content) {
  ConfigFile const file(content);
  Found const result = LookUp(name, file.Path());
  if (!result.found) return result.length == 0 ? "<none>" : "<none, but a length>";
  return static_cast<std::size_t>(result.length) == result.text.size() ? result.text : "<wrong length>";
}

inline Items AllOf(std::string const& content, std::string const& marker = {}) {
  ConfigFile const file(content);
  Items items;
  EXPECT_TRUE(VeltAllCfgItem(items, file.Path(), marker));
  return items;
}

}  // namespace velt::test

#endif
