// What veltcfg finds worth saying about a configuration.
#ifndef VELT_TOOLS_VELTCFG_FINDING_H
#define VELT_TOOLS_VELTCFG_FINDING_H

#include <string>
#include <vector>

namespace velt::tools::cfg {

// Where something stands. Line 0 is the file as a whole; no file at all is the environment.
struct Place {
  std::string file;
  int line = 0;
};

// A note is no reason to change anything; an error means that the configuration is not used at all.
enum class Severity { kNote, kWarning, kError };

struct Finding {
  Severity severity = Severity::kWarning;
  std::string kind;  // one word for scripts, such as "duplicate"
  Place place;
  std::string message;
};

using Findings = std::vector<Finding>;

void AddFinding(Findings& findings, Severity severity, char const* kind, Place const& place,
                std::string const& message);

// The value of a variable or item in quotes, cut where it is long.
std::string Quoted(std::string const& value);

// "note", "warning" or "error".
char const* NameOf(Severity severity);

// The exit status: 0 without warnings, 1 with, 2 with an error.
int StatusOf(Findings const& findings);

}  // namespace velt::tools::cfg

#endif
