#include "debug/manager/config_problems.h"

#include <array>
#include <bitset>
#include <cerrno>
#include <map>

#include "velt/config.h"

#include "debug/manager/bit_set_text.h"
#include "platform/problem_report.h"

namespace velt {
namespace {

constexpr char const* kReplacedText = "1100";  // of level and of output items alike

// `value` in the unit of the file: sizes are megabytes there.
int InFile(Limit limit, int value) { return limit == kFileBytes ? value >> kMegabyteShift : value; }

// The file that has the item: the primary file, or else the secondary file.
std::string FileOf(char const* key, std::string const& primary) {
  int value = 0;
  return VeltGetCfgInt(key, value, primary.c_str()) ? primary : VeltGetDefaultCfgFile();
}

std::string ReplacedSentence(std::string item, std::string const& file, std::string const& fault,
                             std::string const& replacement) {
  return item.append(" in ")
      .append(file)
      .append(" ")
      .append(fault)
      .append(" and was replaced by ")
      .append(replacement);
}

}  // namespace

void ConfigProblems::LookAtFile(std::string const& cfgFile, bool found, DebugConfig const& config) {
  if (cfgFile.empty() || (found && config.file == cfgFile)) return;
  std::string const instead = found ? config.file + " is read instead" : "the defaults are used";
  problems_.push_back({VeltProblemKind::kNoConfiguration,
                       "the configuration file " + cfgFile + " is missing, " + instead, cfgFile, ENOENT});
}

void ConfigProblems::LookAtValues(DebugConfig const& config) {
  FileLimits const& limits = config.limits;
  std::array<int, kLimitCount> const values = {limits.m_nFiltLogBufSize, limits.m_nMaxFileNum,
                                               limits.m_nEachFileMaxSize, limits.m_nEachProcessMaxZipNum,
                                               limits.m_nZipFileIncludeFileNum};
  for (std::size_t i = 0; i < kLimitCount; ++i) {
    auto const limit = static_cast<Limit>(i);
    if (Bounded(limit, values[i]) == values[i]) continue;
    LimitRange const& range = kLimitRanges[i];
    std::string const file = FileOf(*range.key, config.file);
    std::string const bounds =
        std::to_string(InFile(limit, range.low)) + " to " + std::to_string(InFile(limit, range.high));
    problems_.push_back({VeltProblemKind::kValueReplaced,
                         ReplacedSentence(*range.key, file, "is outside " + bounds,
                                          std::to_string(InFile(limit, range.otherwise))),
                         file, 0});
  }
  LookAtTexts(config.file, "_level");
  LookAtTexts(config.file, "_output");
}

void ConfigProblems::LookAtTexts(std::string const& file, char const* marker) {
  std::map<std::string, std::string> items;
  // A file that has been removed meanwhile has nothing to report.
  (void)VeltAllCfgItem(items, file, marker);
  for (auto const& [module, text] : items) {
    std::string copy = text;
    std::bitset<32> set;
    if (BitSetFromText(copy, set)) continue;
    problems_.push_back({VeltProblemKind::kValueReplaced,
                         ReplacedSentence(module + marker, file, "is no text of 0 and 1", kReplacedText),
                         file, 0});
  }
}

void ConfigProblems::LookAtDefaultModule(bool exists) {
  if (exists) return;
  problems_.push_back({VeltProblemKind::kNoDefaultModule,
                       "no module \"debug\" exists, modules that are not registered reach no output", "", 0});
}

void ConfigProblems::Tell() const {
  for (Problem const& problem : problems_) {
    TellProblem(problem.kind, problem.sentence, problem.path, problem.error, 1);
  }
}

}  // namespace velt
