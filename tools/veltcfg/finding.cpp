// The notes, warnings and errors of veltcfg.
#include "tools/veltcfg/finding.h"

#include <algorithm>
#include <utility>

namespace velt::tools::cfg {

void AddFinding(Findings& findings, Severity severity, char const* kind, Place const& place,
                std::string const& message) {
  Finding finding;
  finding.severity = severity;
  finding.kind = kind;
  finding.place = place;
  finding.message = message;
  findings.push_back(std::move(finding));
}

std::string Quoted(std::string const& value) {
  constexpr std::size_t kShown = 60;
  std::size_t end = std::min(value.size(), kShown);
  // Do not cut inside a UTF-8 sequence.
  while (end < value.size() && end > 0 && (static_cast<unsigned char>(value[end]) & 0xC0U) == 0x80U) --end;
  return '"' + value.substr(0, end) + (end < value.size() ? "...\"" : "\"");
}

char const* NameOf(Severity severity) {
  switch (severity) {
    case Severity::kNote:
      return "note";
    case Severity::kWarning:
      return "warning";
    case Severity::kError:
      break;
  }
  return "error";
}

int StatusOf(Findings const& findings) {
  int status = 0;
  for (auto const& finding : findings) status = std::max(status, static_cast<int>(finding.severity));
  return status;
}

}  // namespace velt::tools::cfg
