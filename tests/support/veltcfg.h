// veltcfg, run on an installation of its own, and its findings.
#ifndef VELT_TESTS_SUPPORT_VELTCFG_H
#define VELT_TESTS_SUPPORT_VELTCFG_H

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/support/installation.h"
#include "tests/support/process.h"

namespace velt::test {

inline std::string const kVeltcfg = std::string(VELT_TOOLS_DIR) + "/veltcfg";

class VeltcfgTest : public testing::Test {
 protected:
  Outcome Run(std::vector<std::string> const& arguments = {}) const {
    std::vector<std::string> command{kVeltcfg};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return RunProgram(command);
  }

  // The findings on default_debug.cfg with that text, each without the path; velt.cfg stays as it is.
  std::vector<std::string> FindingsOn(std::string const& debug_text, int exit_code = 1) {
    WriteFile(root_.DebugFile(), debug_text);
    Outcome const outcome = Run();
    EXPECT_EQ(outcome.exit_code, exit_code) << outcome.out << outcome.err;
    EXPECT_THAT(outcome.err, testing::IsEmpty());
    return Findings(outcome.out);
  }

  std::vector<std::string> Findings(std::string const& report) const {
    std::vector<std::string> found;
    std::string const directory = root_.Dir() / "conf/";
    bool inside = false;
    for (auto line : Lines(report)) {
      if (inside) {
        for (std::size_t at = line.find(directory); at != std::string::npos; at = line.find(directory))
          line.erase(at, directory.size());
        found.push_back(line);
      }
      inside = inside || line == "Findings";
    }
    return found;
  }

  InstalledRoot root_;
};

}  // namespace velt::test

#endif
