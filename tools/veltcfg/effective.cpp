// Asks the library itself what it reads from a configuration.
#include "tools/veltcfg/effective.h"

#include <array>
#include <stdexcept>

#include "velt/config.h"
#include "velt/manager.h"

#include "tools/veltcfg/module_item.h"

namespace velt::tools::cfg {
namespace {

// In the order of Limit.
constexpr std::array<char const*, kLimitCount> kUnits{"records", "channels", "bytes", "archives", "files"};

struct Configured {
  std::array<int, kLimitCount> numbers{};
  VeltDebugMgr::ModuleSets modules;
};

Configured ReadConfigured(std::string const& own_file) {
  Configured read;
  auto& numbers = read.numbers;
  VeltDebugMgr::Instance()->GetCfgItem(own_file, numbers[kRingRecords], numbers[kChannels],
                                       numbers[kFileBytes], numbers[kArchives], numbers[kFilesPerArchive],
                                       read.modules);
  return read;
}

// Initialises the manager silent, so that it opens no channel, and without a log directory, so that it makes
// none.
VeltDebugMgr::ModuleSets ReadRegistered(std::string const& host_name, std::string const& own_file) {
  VeltDebugMgr::ModuleSets modules;
  VeltDebugMgr* const manager = VeltDebugMgr::Instance();
  bool const known =
      manager->Init(host_name, own_file, "", "", false, true) && manager->GetAllModuleInfo(modules);
  VeltDebugMgr::Destroy();
  if (!known) throw std::runtime_error("the library cannot be initialised");
  return modules;
}

bool LookUp(ConfigFile const& file, NumberView& number) {
  if (!VeltGetCfgInt(number.key.c_str(), number.number, file.path.c_str())) return false;
  Item const* const item = FirstOf(file, number.key);
  if (item == nullptr) return false;  // the file was changed since it was read
  number.text = item->value;
  number.place = {file.path, item->line};
  return true;
}

LimitView DescribeLimit(Limit limit, int as_read, Report const& report) {
  LimitView view;
  view.limit = limit;
  view.unit = kUnits[limit];
  view.number.key = *kLimitRanges[limit].key;
  Sources const& sources = report.sources;
  if (!LookUp(sources.first, view.number) && sources.main_is_second) (void)LookUp(sources.main, view.number);
  view.as_read = as_read;
  view.value = Bounded(limit, as_read);
  if (limit == kArchives) view.value *= ArchiveFactor(report.host_name);
  return view;
}

SwitchView DescribeSwitch(char const* key, bool otherwise, ConfigFile const& main) {
  SwitchView view;
  view.number.key = key;
  view.on = LookUp(main, view.number) ? view.number.number != 0 : otherwise;
  return view;
}

}  // namespace

void AskLibrary(std::string const& own_file, Report& report) {
  Configured const configured = ReadConfigured(own_file);
  auto const registered = ReadRegistered(report.host_name, own_file);
  for (std::size_t limit = 0; limit < kLimitCount; ++limit) {
    report.limits.push_back(DescribeLimit(static_cast<Limit>(limit), configured.numbers[limit], report));
  }
  report.switches = {DescribeSwitch("EnablePrint", false, report.sources.main),
                     DescribeSwitch("EnableLog", true, report.sources.main)};
  for (auto const& [name, sets] : registered) {
    auto const before = configured.modules.find(name);
    auto const& unmasked = before == configured.modules.end() ? sets : before->second;
    report.modules.push_back(
        {name,
         {sets.first, unmasked.first, CountingItem(report.sources.first, name, SetKind::kLevels)},
         {sets.second, unmasked.second, CountingItem(report.sources.first, name, SetKind::kOutputs)}});
  }
}

}  // namespace velt::tools::cfg
