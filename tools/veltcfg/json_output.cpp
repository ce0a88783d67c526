// The report for machines: one JSON object.
#include <optional>
#include <string>

#include "tools/veltcfg/json_writer.h"
#include "tools/veltcfg/module_item.h"
#include "tools/veltcfg/output.h"

namespace velt::tools::cfg {
namespace {

void PutText(char const* key, std::string const& value, JsonWriter& json) {
  json.Key(key);
  json.String(value);
}

void PutNumber(char const* key, long long value, JsonWriter& json) {
  json.Key(key);
  json.Number(value);
}

void PutBool(char const* key, bool value, JsonWriter& json) {
  json.Key(key);
  json.Bool(value);
}

void PutOptional(char const* key, std::optional<std::string> const& value, JsonWriter& json) {
  json.Key(key);
  value ? json.String(*value) : json.Null();
}

// What is empty or 0 when there is nothing of the kind.
void PutPlace(Place const& place, JsonWriter& json) {
  PutOptional("file", place.file.empty() ? std::nullopt : std::optional(place.file), json);
  json.Key("line");
  place.line == 0 ? json.Null() : json.Number(place.line);
}

template <typename List, typename Put>
void PutList(char const* key, List const& list, Put const& put, JsonWriter& json) {
  json.Key(key);
  json.BeginArray();
  for (auto const& entry : list) {
    json.BeginObject();
    put(entry);
    json.EndObject();
  }
  json.EndArray();
}

void PutInstallation(Installation const& installation, JsonWriter& json) {
  auto const variable = [&json](Variable const& entry) {
    PutText("variable", entry.name, json);
    PutOptional("value", entry.value, json);
  };
  auto const location = [&json](Location const& entry) {
    bool const any = !entry.path.empty();
    PutText("name", entry.name, json);
    PutOptional("path", any ? std::optional(entry.path) : std::nullopt, json);
    PutOptional("from", any ? std::optional(entry.from) : std::nullopt, json);
    PutBool("exists", entry.exists, json);
  };
  PutList("environment", installation.environment, variable, json);
  PutList("directories", installation.directories, location, json);
  PutList("files", installation.files, location, json);
}

void PutOrder(Sources const& sources, JsonWriter& json) {
  auto const path = [](ConfigFile const& file) {
    return file.path.empty() ? std::nullopt : std::optional(file.path);
  };
  json.Key("read");
  json.BeginObject();
  PutOptional("first", path(sources.first), json);
  PutOptional("second", sources.main_is_second ? path(sources.main) : std::nullopt, json);
  json.EndObject();
}

void PutOrigin(NumberView const& number, JsonWriter& json) {
  PutOptional("text", number.text, json);
  PutPlace(number.place, json);
  json.Key("number");
  number.text ? json.Number(number.number) : json.Null();
}

void PutNumbers(Report const& report, JsonWriter& json) {
  auto const limit = [&json](LimitView const& view) {
    LimitRange const& range = kLimitRanges[view.limit];
    PutText("key", view.number.key, json);
    PutNumber("value", view.value, json);
    PutText("unit", view.unit, json);
    PutOrigin(view.number, json);
    PutNumber("as_read", view.as_read, json);
    PutNumber("low", range.low, json);
    PutNumber("high", range.high, json);
    PutNumber("default", range.otherwise, json);
    PutBool("replaced", view.as_read < range.low || view.as_read > range.high, json);
  };
  auto const switched = [&json](SwitchView const& view) {
    PutText("key", view.number.key, json);
    PutBool("on", view.on, json);
    PutOrigin(view.number, json);
  };
  PutList("limits", report.limits, limit, json);
  PutList("switches", report.switches, switched, json);
}

void PutSet(SetKind kind, SetView const& set, std::string const& file, JsonWriter& json) {
  auto const& item = set.item;
  json.Key(NameOf(kind));
  json.BeginObject();
  PutText("set", TextOf(set.bits), json);
  json.Key("bits");
  json.BeginArray();
  for (std::size_t bit = 0; bit < set.bits.size(); ++bit) {
    if (!set.bits[bit]) continue;
    json.BeginObject();
    PutNumber("bit", static_cast<long long>(bit), json);
    PutText("tag", TagOf(kind, bit), json);
    json.EndObject();
  }
  json.EndArray();
  PutOptional("text", item ? std::optional(item->value) : std::nullopt, json);
  PutPlace(item ? Place{file, item->line} : Place{}, json);
  json.EndObject();
}

void PutModules(Report const& report, JsonWriter& json) {
  auto const module = [&](ModuleView const& view) {
    PutText("name", view.name, json);
    PutSet(SetKind::kLevels, view.levels, report.sources.first.path, json);
    PutSet(SetKind::kOutputs, view.outputs, report.sources.first.path, json);
  };
  PutList("modules", report.modules, module, json);
}

void PutFindings(Findings const& findings, JsonWriter& json) {
  auto const finding = [&json](Finding const& entry) {
    PutText("severity", NameOf(entry.severity), json);
    PutText("kind", entry.kind, json);
    PutPlace(entry.place, json);
    PutText("message", entry.message, json);
  };
  PutList("findings", findings, finding, json);
}

}  // namespace

std::string AsJson(Report const& report) {
  JsonWriter json;
  json.BeginObject();
  PutText("program", "veltcfg", json);
  PutText("version", VELT_VERSION, json);
  PutInstallation(report.installation, json);
  PutOrder(report.sources, json);
  PutNumbers(report, json);
  PutModules(report, json);
  PutFindings(report.findings, json);
  PutNumber("status", StatusOf(report.findings), json);
  json.EndObject();
  return json.Text() + "\n";
}

}  // namespace velt::tools::cfg
