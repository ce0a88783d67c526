// The report for machines: one JSON object.
#include <optional>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

#include "tools/veltcfg/bytes.h"
#include "tools/veltcfg/module_item.h"
#include "tools/veltcfg/output.h"

namespace velt::tools::cfg {
namespace {

using Json = nlohmann::ordered_json;  // members stay in the order in which they are set

Json Text(std::string const& text) { return AsUtf8(text); }

Json TextOrNull(std::optional<std::string> const& text) { return text ? Text(*text) : Json(); }

Json PathOrNull(std::string const& path) { return path.empty() ? Json() : Text(path); }

template <typename Entries, typename MakeEntry>
Json List(Entries const& entries, MakeEntry const& make) {
  Json list = Json::array();
  for (auto const& entry : entries) list.push_back(make(entry));
  return list;
}

// An empty file name and a line 0 become null.
void AddPlace(Place const& place, Json& object) {
  object["file"] = PathOrNull(place.file);
  object["line"] = place.line == 0 ? Json() : Json(place.line);
}

Json VariableObject(Variable const& variable) {
  return {{"variable", Text(variable.name)}, {"value", TextOrNull(variable.value)}};
}

Json LocationObject(Location const& location) {
  return {{"name", Text(location.name)},
          {"path", PathOrNull(location.path)},
          {"from", location.path.empty() ? Json() : Text(location.from)},
          {"exists", location.exists}};
}

void AddOrigin(NumberView const& number, Json& object) {
  object["text"] = TextOrNull(number.text);
  AddPlace(number.place, object);
  object["number"] = number.text ? Json(number.number) : Json();
}

Json LimitObject(LimitView const& view) {
  LimitRange const& range = kLimitRanges[view.limit];
  Json limit{{"key", Text(view.number.key)}, {"value", view.value}, {"unit", view.unit}};
  AddOrigin(view.number, limit);
  limit["as_read"] = view.as_read;
  limit["low"] = range.low;
  limit["high"] = range.high;
  limit["default"] = range.otherwise;
  limit["replaced"] = view.as_read < range.low || view.as_read > range.high;
  return limit;
}

Json SwitchObject(SwitchView const& view) {
  Json object{{"key", Text(view.number.key)}, {"on", view.on}};
  AddOrigin(view.number, object);
  return object;
}

Json SetObject(SetKind kind, SetView const& set, std::string const& file) {
  Json bits = Json::array();
  for (std::size_t bit = 0; bit < set.bits.size(); ++bit) {
    if (set.bits[bit]) bits.push_back({{"bit", bit}, {"tag", TagOf(kind, bit)}});
  }
  Json object{{"set", TextOf(set.bits)}, {"bits", std::move(bits)}};
  object["text"] = set.item ? Text(set.item->value) : Json();
  AddPlace(set.item ? Place{file, set.item->line} : Place{}, object);
  return object;
}

Json FindingObject(Finding const& finding) {
  Json object{{"severity", NameOf(finding.severity)}, {"kind", finding.kind}};
  AddPlace(finding.place, object);
  object["message"] = Text(finding.message);
  return object;
}

}  // namespace

std::string AsJson(Report const& report) {
  Installation const& installation = report.installation;
  Sources const& sources = report.sources;
  auto const module = [&sources](ModuleView const& view) {
    return Json{{"name", Text(view.name)},
                {"levels", SetObject(SetKind::kLevels, view.levels, sources.first.path)},
                {"outputs", SetObject(SetKind::kOutputs, view.outputs, sources.first.path)}};
  };
  Json const json{
      {"program", "veltcfg"},
      {"version", VELT_VERSION},
      {"environment", List(installation.environment, VariableObject)},
      {"directories", List(installation.directories, LocationObject)},
      {"files", List(installation.files, LocationObject)},
      {"read",
       {{"first", PathOrNull(sources.first.path)},
        {"second", sources.main_is_second ? PathOrNull(sources.main.path) : Json()}}},
      {"limits", List(report.limits, LimitObject)},
      {"switches", List(report.switches, SwitchObject)},
      {"modules", List(report.modules, module)},
      {"findings", List(report.findings, FindingObject)},
      {"status", StatusOf(report.findings)},
  };
  return json.dump(2) + "\n";
}

}  // namespace velt::tools::cfg
