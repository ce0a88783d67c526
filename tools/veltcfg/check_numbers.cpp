// Finds numbers that are read differently from their text, and numbers that are out of bounds.
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <string>

#include "tools/veltcfg/checks.h"

namespace velt::tools::cfg {
namespace {

std::string InUnit(Limit limit, int value) {
  if (limit == kFileBytes) return std::to_string(value / kMegabyte) + " MB";
  return std::to_string(value);
}

// Whether `text` is the decimal form of `number` and nothing else.
bool SaysExactly(std::string const& text, int number) {
  std::size_t const digits = text.empty() || (text[0] != '+' && text[0] != '-') ? 0 : 1;
  if (digits == text.size()) return false;
  for (std::size_t at = digits; at < text.size(); ++at) {
    if (std::isdigit(static_cast<unsigned char>(text[at])) == 0) return false;
  }
  errno = 0;
  return std::strtol(text.c_str(), nullptr, 10) == number && errno == 0;
}

void CheckText(NumberView const& number, Findings& findings) {
  if (!number.text || SaysExactly(*number.text, number.number)) return;
  AddFinding(findings, Severity::kWarning, "number-text", number.place,
             number.key + " = " + Quoted(*number.text) + " is read as " + std::to_string(number.number));
}

// Warns of an item that the look-up of a number skips, so that the other file or the default counts.
void CheckPassedOver(ConfigFile const& file, NumberView const& number, Findings& findings) {
  Item const* const item = FirstOf(file, number.key);
  if (item == nullptr || (number.text && number.place.file == file.path)) return;
  AddFinding(findings, Severity::kWarning, "number-too-long", {file.path, item->line},
             number.key + " is passed over: its value has " + std::to_string(item->value.size()) +
                 " characters, more than are read of a number");
}

void CheckLimit(LimitView const& view, Findings& findings) {
  if (!view.number.text) return;
  LimitRange const& range = kLimitRanges[view.limit];
  bool const wrapped = view.limit == kFileBytes && view.as_read / kMegabyte != view.number.number;
  if (wrapped) {
    AddFinding(findings, Severity::kWarning, "limit-wrapped", view.number.place,
               view.number.key + " = " + std::to_string(view.number.number) +
                   " MB is more than 32 bits hold: it is taken as " + InUnit(view.limit, view.as_read));
  }
  if (view.as_read >= range.low && view.as_read <= range.high) return;
  AddFinding(findings, Severity::kWarning, "limit-replaced", view.number.place,
             view.number.key + " = " + std::to_string(view.number.number) + " is not from " +
                 InUnit(view.limit, range.low) + " to " + InUnit(view.limit, range.high) + ": " +
                 InUnit(view.limit, range.otherwise) + " replaces it");
}

}  // namespace

void CheckNumbers(Report& report) {
  Sources const& sources = report.sources;
  for (auto const& view : report.limits) {
    CheckText(view.number, report.findings);
    CheckPassedOver(sources.first, view.number, report.findings);
    bool const asked =
        sources.main_is_second && (!view.number.text || view.number.place.file == sources.main.path);
    if (asked) CheckPassedOver(sources.main, view.number, report.findings);
    CheckLimit(view, report.findings);
  }
  for (auto const& view : report.switches) {
    CheckText(view.number, report.findings);
    CheckPassedOver(sources.main, view.number, report.findings);
  }
}

}  // namespace velt::tools::cfg
