// The notes, warnings and errors of veltcfg.
#ifndef VELT_TOOLS_VELTCFG_FINDING_H
#define VELT_TOOLS_VELTCFG_FINDING_H

#include <string>
#include <vector>

namespace velt::tools::cfg {

// What a finding is about. Line 0 means the file as a whole; an empty file means the environment.
struct Place {
  std::string file;
  int line = 0;
};

// A note needs no action. An error means that the configuration is not used at all.
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

// `value` in quotes, cut after 60 bytes.
std::string Quoted(std::string const& value);

// "note", "warning" or "error".
char const* NameOf(Severity severity);

// The exit status: 0 without warnings, 1 with, 2 with an error.
int StatusOf(Findings const& findings);

}  // namespace velt::tools::cfg

#endif
