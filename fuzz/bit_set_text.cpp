// Bit-set texts, alone and through the debug configuration, against the model of a set.
// An input is a level text, a line end, an output text, a line end, and the text of a configuration file.
#include <algorithm>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <numeric>
#include <string>
#include <string_view>

#include "velt/manager.h"

#include "debug/manager/bit_set_text.h"
#include "fuzz/model/debug_config.h"
#include "fuzz/support/check.h"
#include "fuzz/support/input.h"
#include "fuzz/support/memory_file.h"

namespace velt::fuzz {
namespace {

using Bits = std::bitset<32>;

// Checks the set of a text; `otherwise` is that of an invalid text.
Bits CheckText(std::string_view text, ModelSet otherwise) {
  std::string work(text);
  Bits const before(otherwise);
  Bits set = before;
  std::optional<ModelSet> const expected = ModelSetOf(text);

  CheckEqual(BitSetFromText(work, set), expected.has_value(), "validity of a bit-set text");

  CheckEqual(set, Bits(expected.value_or(otherwise)), "set of a bit-set text");
  CheckEqual(work, std::string(text.rbegin(), text.rend()), "text that is left");
  return set;
}

void CheckModules(VeltDebugMgr::ModuleSets const& modules, ModelModules const& expected) {
  CheckEqual(modules.size(), expected.size(), "number of modules");
  for (auto const& [name, sets] : expected) {
    auto const found = modules.find(name);
    if (found == modules.end()) Fail("module " + Shown(name) + " is missing");
    CheckEqual(found->second.first, Bits(sets.first), "levels of a module");
    CheckEqual(found->second.second, Bits(sets.second), "outputs of a module");
  }
}

void CheckItems(MemoryFile const& file, std::string_view text, Bits levels, Bits outputs) {
  ModelModules const expected = ModelModulesOf(text, static_cast<ModelSet>(levels.to_ulong()),
                                               static_cast<ModelSet>(outputs.to_ulong()));
  VeltDebugMgr::ModuleSets modules;
  std::string work_levels;
  std::string work_outputs;
  std::string path = file.Path();
  VeltDebugMgr::GetParams(levels, outputs, work_levels, work_outputs, path, modules);
  CheckModules(modules, expected);
}

// From file to module table, of a host that has a file of its own and no installation.
void CheckManager(MemoryFile const& file, ModelModules const& expected) {
  static int const no_installation = unsetenv("APP_ROOT");
  Check(no_installation == 0, "the environment cannot be changed");
  VeltDebugMgr* const manager = VeltDebugMgr::Instance();
  VeltDebugMgr::ModuleSets modules;
  Check(manager->Init("fuzz_", file.Path(), "", "", false, true), "a silent Init");
  Check(manager->GetAllModuleInfo(modules), "GetAllModuleInfo");
  Check(VeltDebugMgr::Destroy() == 0, "Destroy");
  CheckModules(modules, expected);
}

}  // namespace
}  // namespace velt::fuzz

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  using namespace velt::fuzz;
  static MemoryFile file;
  Input input(data, size);
  Bits const levels = CheckText(input.Line(), kLevelsByDefault);
  Bits const outputs = CheckText(input.Line(), kOutputsByDefault);
  // A file takes many times as long as a text, and the manager longer still: only a part of the inputs goes
  // there, chosen by their bytes.
  unsigned const sum = std::accumulate(data, data + size, 0U);
  if (sum % 4 != 0) return 0;
  std::string_view const text = input.Rest();
  file.Write(text);
  CheckItems(file, text, levels, outputs);
  if (sum % 64 == 0) CheckManager(file, ModelConfigOf(text).modules);
  return 0;
}
