// veltcfg: shows what a host reads from its environment and its debug configuration, and what the library
// silently replaces or ignores there.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <tuple>

#include "tools/say.h"
#include "tools/veltcfg/checks.h"
#include "tools/veltcfg/effective.h"
#include "tools/veltcfg/installation.h"
#include "tools/veltcfg/options.h"
#include "tools/veltcfg/output.h"
#include "tools/veltcfg/report.h"
#include "tools/veltcfg/sources.h"

namespace {

using namespace velt::tools::cfg;

constexpr int kSuccess = 0;
constexpr int kUnusable = 2;

Report MakeReport(Options const& options) {
  Report report;
  report.host_name = options.name;
  report.installation = DescribeInstallation();
  Findings const environment = report.installation.findings;
  report.sources = ReadSources(options.file, report.findings);
  if (report.sources.AreUsable()) {
    AskLibrary(options.file, report);
    CheckNames(report);
    CheckNumbers(report);
    CheckModules(report);
  }
  auto const before = [](Finding const& left, Finding const& right) {
    return std::tie(left.place.file, left.place.line) < std::tie(right.place.file, right.place.line);
  };
  std::stable_sort(report.findings.begin(), report.findings.end(), before);
  report.findings.insert(report.findings.begin(), environment.begin(), environment.end());
  return report;
}

bool Say(std::string const& text) { return velt::tools::Say("veltcfg", text); }

std::string InForm(Options const& options, Report const& report) {
  if (options.json) return AsJson(report);
  return options.quiet ? FindingsAsText(report.findings) : AsText(report);
}

int Run(Options const& options) {
  Report const report = MakeReport(options);
  if (!Say(InForm(options, report))) return kUnusable;
  return StatusOf(report.findings);
}

int Serve(int argc, char** argv) {
  CommandLine const line = ParseCommandLine(argc, argv);
  switch (line.request) {
    case Request::kHelp:
      return Say(HelpText()) ? kSuccess : kUnusable;
    case Request::kVersion:
      return Say("veltcfg " VELT_VERSION "\n") ? kSuccess : kUnusable;
    case Request::kUsageError:
      return kUnusable;
    case Request::kRun:
      break;
  }
  return Run(line.options);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Serve(argc, argv);
  } catch (std::exception const& problem) {
    std::fprintf(stderr, "veltcfg: %s\n", problem.what());
    return kUnusable;
  }
}
