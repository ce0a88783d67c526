// The sets of a module: what a thread remembers beside the locked table.
#include <bitset>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "debug/manager/sets_cache.h"
#include "harness/line.h"
#include "platform/locks.h"

namespace velt::bench {
namespace {

constexpr std::size_t kNameLength = 10;
std::vector<std::string> const& Names() {
  static std::vector<std::string> const names = [] {
    std::vector<std::string> made;
    for (std::string const& module : MakeModules(kLineLength - kNameLength)) made.push_back(module);
    return made;
  }();
  return names;
}

void SetsRemembered(benchmark::State& state) {
  KnownSets sets{true, 15, 3};
  for (std::string const& name : Names()) StoreSets(name, SetsGeneration(), sets);
  std::size_t i = 0;
  while (state.KeepRunning()) benchmark::DoNotOptimize(FindSets(Names()[i++ % kModules], sets));
}
BENCHMARK(SetsRemembered)->Threads(1)->Threads(4)->UseRealTime();

void SetsFromTheTable(benchmark::State& state) {
  static RwMutex lock;
  static std::map<std::string, std::pair<std::bitset<32>, std::bitset<32>>> const table = [] {
    std::map<std::string, std::pair<std::bitset<32>, std::bitset<32>>> made;
    for (std::string const& name : Names()) made[name] = {15, 3};
    return made;
  }();
  std::size_t i = 0;
  while (state.KeepRunning()) {
    ReadLock const guard(lock);
    benchmark::DoNotOptimize(table.find(Names()[i++ % kModules])->second);
  }
}
BENCHMARK(SetsFromTheTable)->Threads(1)->Threads(4)->UseRealTime();

}  // namespace
}  // namespace velt::bench
