// What a report says about itself.
#include <algorithm>
#include <sstream>

#include "tests/checker/report.h"

namespace velt::checker {
namespace {

constexpr std::size_t kFindingsShown = 20;

}  // namespace

char const* NameOf(Kind kind) {
  switch (kind) {
    case Kind::kMissing:
      return "missing";
    case Kind::kRefusedFound:
      return "in the files although not accepted";
    case Kind::kDuplicate:
      return "duplicate";
    case Kind::kOutOfOrder:
      return "out of order";
    case Kind::kTorn:
      return "torn";
    case Kind::kWrongChecksum:
      return "wrong checksum";
    case Kind::kWrongLine:
      return "wrong line";
    case Kind::kNulBytes:
      return "NUL bytes";
    case Kind::kRotationPoint:
      return "rotation point";
    case Kind::kMode:
      return "mode";
    case Kind::kNoHeader:
      return "no header";
    case Kind::kNoTrailer:
      return "no trailer";
    case Kind::kBrokenArchive:
      return "broken archive";
    case Kind::kDifferingTwin:
      return "a log beside another archive";
    case Kind::kWitness:
      return "not what was written";
  }
  return "?";
}

bool Report::CleanBut(std::initializer_list<Kind> allowed) const {
  return std::all_of(findings.begin(), findings.end(), [&](Finding const& finding) {
    return std::find(allowed.begin(), allowed.end(), finding.kind) != allowed.end();
  });
}

std::size_t Report::Count(Kind kind) const {
  return static_cast<std::size_t>(
      std::count_if(findings.begin(), findings.end(), [&](Finding const& f) { return f.kind == kind; }));
}

bool Report::Accounted() const {
  return called == accepted + refused + unknown &&
         accepted == found - found_unknown + missing + pruned + lost_with_queue;
}

std::string Report::Text() const {
  std::ostringstream out;
  out << "called " << called << ", accepted " << accepted << ", refused " << refused << ", unknown "
      << unknown << "; " << files << " files, " << archives << " archives, found " << found << " ("
      << found_unknown << " of them unknown), missing " << missing << ", pruned " << pruned
      << ", lost with the queue " << lost_with_queue << "\n";
  for (std::size_t i = 0; i < findings.size() && i < kFindingsShown; ++i)
    out << "  " << NameOf(findings[i].kind) << " (" << findings[i].count << "): " << findings[i].text << "\n";
  if (findings.size() > kFindingsShown) out << "  and " << findings.size() - kFindingsShown << " more\n";
  return out.str();
}

}  // namespace velt::checker
