#include "debug/manager/debug_config.h"

#include <unistd.h>

#include <array>
#include <bitset>
#include <map>
#include <string>

#include "velt/config.h"
#include "velt/manager.h"

#include "debug/manager/bit_set_text.h"
#include "debug/manager/limits.h"
#include "debug/manager/module_name.h"

char const* DEBUGLEVELITEM = "debug_level";
char const* DEBUGOUPUTTITEM = "debug_output";
char const* MAXLOGSIZEITEM = "nEachFileMaxSize";
char const* MAXFILENUMITEM = "nMaxFileNum";
char const* NFILTLOGBUFSIZE = "nFiltLogBufSize";
char const* MAXZIPNUMINPROCITEM = "nEachProcessMaxZipNum";
char const* FILENUMINZIPITEM = "nZipFileIncludeFileNum";

namespace {

constexpr int kTextCapacity = 2048;

constexpr char const* kLevelMarker = "_level";
constexpr char const* kOutputMarker = "_output";
constexpr char const* kDefaultLevelText = "1100";
constexpr char const* kDefaultOutputText = "0100";

using Texts = std::map<std::string, std::string>;

bool Exists(std::string const& path) { return access(path.c_str(), F_OK) == 0; }

bool FindNumber(char const* key, int& value, std::string const& primary, std::string const& secondary,
                bool primary_only) {
  return VeltGetCfgInt(key, value, primary.c_str()) ||
         (!primary_only && VeltGetCfgInt(key, value, secondary.c_str()));
}

bool ReadNumber(velt::Limit limit, int& value, std::string const& primary, std::string const& secondary,
                bool primary_only) {
  if (FindNumber(*velt::kLimitRanges[limit].key, value, primary, secondary, primary_only)) return true;
  value = velt::DefaultOf(limit);
  return false;
}

struct TextSource {
  char* buffer;
  int& length;
  std::string const& primary;
  std::string const& secondary;
  bool primary_only;
};

void ReadText(char const* key, char const* default_text, std::string& text, TextSource const& from) {
  if (VeltGetCfgString(key, from.buffer, from.length, from.primary.c_str())) {
    text = from.buffer;
    return;
  }
  from.length = kTextCapacity;
  bool const in_secondary =
      !from.primary_only && VeltGetCfgString(key, from.buffer, from.length, from.secondary.c_str());
  // A value of the secondary file is only put into the buffer: module "debug" then has the empty set.
  if (!in_secondary) text = default_text;
}

// Makes the set from `text`; if that is invalid, replaces it by `replacement` and makes the set from that.
void SetFromText(std::string& text, char const* replacement, std::bitset<32>& set) {
  if (velt::BitSetFromText(text, set)) return;
  text = replacement;
  velt::BitSetFromText(text, set);
}

}  // namespace

bool VeltDebugMgr::GetFiltLogBufSize(int& value, std::string const& primary, std::string const& secondary,
                                     bool primaryOnly) {
  return ReadNumber(velt::kRingRecords, value, primary, secondary, primaryOnly);
}

bool VeltDebugMgr::GetMaxFileNum(int& value, std::string const& primary, std::string const& secondary,
                                 bool primaryOnly) {
  return ReadNumber(velt::kChannels, value, primary, secondary, primaryOnly);
}

bool VeltDebugMgr::GetMaxFileSize(int& value, std::string const& primary, std::string const& secondary,
                                  bool primaryOnly) {
  if (!ReadNumber(velt::kFileBytes, value, primary, secondary, primaryOnly)) return false;
  // The file has megabytes. Bits that do not fit are lost.
  value = static_cast<int>(static_cast<unsigned>(value) << velt::kMegabyteShift);
  return true;
}

bool VeltDebugMgr::GetEachProcessMaxZipNum(int& value, std::string const& primary,
                                           std::string const& secondary, bool primaryOnly) {
  return ReadNumber(velt::kArchives, value, primary, secondary, primaryOnly);
}

bool VeltDebugMgr::GetZipFileIncludeFileNum(int& value, std::string const& primary,
                                            std::string const& secondary, bool primaryOnly) {
  return ReadNumber(velt::kFilesPerArchive, value, primary, secondary, primaryOnly);
}

void VeltDebugMgr::GetStrlevel(std::string& text, char* buffer, int& bufferLength, std::string const& primary,
                               std::string const& secondary, bool primaryOnly) {
  ReadText(DEBUGLEVELITEM, kDefaultLevelText, text, {buffer, bufferLength, primary, secondary, primaryOnly});
}

void VeltDebugMgr::GetStroutput(std::string& text, char* buffer, int& bufferLength,
                                std::string const& primary, std::string const& secondary, bool primaryOnly) {
  ReadText(DEBUGOUPUTTITEM, kDefaultOutputText, text,
           {buffer, bufferLength, primary, secondary, primaryOnly});
}

void VeltDebugMgr::GetParams(std::bitset<32>& levels, std::bitset<32>& outputs, std::string& levelText,
                             std::string& outputText, std::string& primary, ModuleSets& modules) {
  modules[velt::kDebugModule] = {levels, outputs};
  Texts level_items;
  Texts output_items;
  VeltAllCfgItem(level_items, primary, kLevelMarker);
  VeltAllCfgItem(output_items, primary, kOutputMarker);

  outputText = kDefaultOutputText;
  SetFromText(outputText, kDefaultOutputText, outputs);
  for (auto const& [module, text] : level_items) {
    levelText = text;
    SetFromText(levelText, kDefaultLevelText, levels);
    modules[module] = {levels, outputs};
  }

  levelText = kDefaultLevelText;
  SetFromText(levelText, kDefaultLevelText, levels);
  for (auto const& [module, text] : output_items) {
    outputText = text;
    SetFromText(outputText, kDefaultLevelText, outputs);  // the level default, for outputs too
    modules.try_emplace(module, levels, outputs).first->second.second = outputs;
  }
}

namespace velt {

void ReadModuleSets(std::string& primary, std::string const& secondary, bool primary_only,
                    VeltDebugMgr::ModuleSets& modules) {
  std::array<char, kTextCapacity> buffer{};
  int length = kTextCapacity;
  std::string level_text;
  std::bitset<32> levels;
  VeltDebugMgr::GetStrlevel(level_text, buffer.data(), length, primary, secondary, primary_only);
  SetFromText(level_text, kDefaultLevelText, levels);

  length = kTextCapacity;
  std::string output_text;
  std::bitset<32> outputs;
  VeltDebugMgr::GetStroutput(output_text, buffer.data(), length, primary, secondary, primary_only);
  SetFromText(output_text, kDefaultOutputText, outputs);

  VeltDebugMgr::GetParams(levels, outputs, level_text, output_text, primary, modules);
}

bool ReadDebugConfig(std::string const& cfgFile, DebugConfig& config) {
  bool const missing = !cfgFile.empty() && !Exists(cfgFile);
  bool const usable = !cfgFile.empty() && !missing;
  std::string const default_file = VeltGetDefaultDebugCfgFile();
  std::string const secondary = VeltGetDefaultCfgFile();
  FileLimits& limits = config.limits;
  if (default_file.empty() && !usable) {
    limits = FileLimits();
    return false;
  }
  config.file = usable ? cfgFile : default_file;
  std::string& primary = config.file;
  bool const primary_only = default_file.empty() || primary == secondary;

  VeltDebugMgr::GetFiltLogBufSize(limits.m_nFiltLogBufSize, primary, secondary, primary_only);
  VeltDebugMgr::GetMaxFileNum(limits.m_nMaxFileNum, primary, secondary, primary_only);
  VeltDebugMgr::GetMaxFileSize(limits.m_nEachFileMaxSize, primary, secondary, primary_only);
  VeltDebugMgr::GetEachProcessMaxZipNum(limits.m_nEachProcessMaxZipNum, primary, secondary, primary_only);
  VeltDebugMgr::GetZipFileIncludeFileNum(limits.m_nZipFileIncludeFileNum, primary, secondary, primary_only);

  ReadModuleSets(primary, secondary, primary_only, config.modules);
  return true;
}

}  // namespace velt
