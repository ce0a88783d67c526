// The report for people: sections with a line for each entry.
#include <string>

#include "tools/veltcfg/bytes.h"
#include "tools/veltcfg/module_item.h"
#include "tools/veltcfg/output.h"

namespace velt::tools::cfg {
namespace {

// Builds the text. A path or a name with a line end in it stays on its line.
class Page {
 public:
  void Add(std::string const& line) { text_ += Printable(line) + '\n'; }
  std::string const& Text() const { return text_; }

 private:
  std::string text_;
};

std::string Padded(std::string text, std::size_t width) {
  if (text.size() < width) text.append(width - text.size(), ' ');
  return text;
}

std::string At(Place const& place) {
  if (place.file.empty()) return "environment";
  return place.line == 0 ? place.file : place.file + ":" + std::to_string(place.line);
}

void AddEnvironment(Report const& report, Page& page) {
  page.Add("Environment");
  for (auto const& variable : report.installation.environment) {
    page.Add("  " + Padded(variable.name, 17) + (variable.value ? Quoted(*variable.value) : "not set"));
  }
}

void AddLocations(char const* title, std::vector<Location> const& locations, Page& page) {
  page.Add(title);
  for (auto const& location : locations) {
    std::string const state = "  (" + location.from + (location.exists ? ")" : "; does not exist)");
    page.Add("  " + Padded(location.name, 19) + (location.path.empty() ? "none" : location.path + state));
  }
}

void AddOrder(Sources const& sources, Page& page) {
  bool const with_second = sources.main_is_second && !sources.main.path.empty();
  page.Add("Read");
  page.Add("  first   " + (sources.first.path.empty() ? "nothing" : sources.first.path));
  page.Add("  second  " + (with_second ? sources.main.path : "nothing"));
}

std::string Origin(NumberView const& number) {
  return number.text ? "  (" + Quoted(*number.text) + " in " + At(number.place) + ")" : "  (default)";
}

void AddNumbers(Report const& report, Page& page) {
  page.Add("Limits");
  for (auto const& view : report.limits) {
    bool const replaced = Bounded(view.limit, view.as_read) != view.as_read;
    page.Add("  " + Padded(view.number.key, 24) + std::to_string(view.value) + " " + view.unit +
             Origin(view.number) + (replaced ? "  instead of " + std::to_string(view.as_read) : ""));
  }
  page.Add("Switches");
  for (auto const& view : report.switches) {
    page.Add("  " + Padded(view.number.key, 24) + (view.on ? "yes" : "no") + Origin(view.number));
  }
}

void AddSet(SetKind kind, SetView const& set, std::string const& file, Page& page) {
  std::string const origin =
      set.item ? Quoted(set.item->value) + " in " + At({file, set.item->line}) : "default";
  page.Add("    " + Padded(NameOf(kind), 9) + WrittenOut(kind, set.bits) + "  (" + origin + ")");
}

void AddModules(Report const& report, Page& page) {
  page.Add("Modules");
  for (auto const& module : report.modules) {
    page.Add("  " + module.name);
    AddSet(SetKind::kLevels, module.levels, report.sources.first.path, page);
    AddSet(SetKind::kOutputs, module.outputs, report.sources.first.path, page);
  }
}

void AddFindings(Findings const& findings, Page& page) {
  for (auto const& finding : findings) {
    page.Add(At(finding.place) + ": " + NameOf(finding.severity) + ": " + finding.message + " [" +
             finding.kind + "]");
  }
}

}  // namespace

std::string FindingsAsText(Findings const& findings) {
  Page page;
  AddFindings(findings, page);
  return page.Text();
}

std::string AsText(Report const& report) {
  Page page;
  AddEnvironment(report, page);
  AddLocations("Directories", report.installation.directories, page);
  AddLocations("Files", report.installation.files, page);
  AddOrder(report.sources, page);
  if (report.sources.AreUsable()) {
    AddNumbers(report, page);
    AddModules(report, page);
  }
  page.Add(report.findings.empty() ? "Findings: none" : "Findings");
  AddFindings(report.findings, page);
  return page.Text();
}

}  // namespace velt::tools::cfg
