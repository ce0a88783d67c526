// Remembers, per thread, what a module's level and output sets are, until any module changes.
//
// A trace call asks for the sets of its module every time, and they change a few times a day. Asking the
// table costs a reader lock that all threads write to, and a map look-up; with several threads the cache
// line of that lock is most of it.
#ifndef VELT_DEBUG_MANAGER_SETS_CACHE_H
#define VELT_DEBUG_MANAGER_SETS_CACHE_H

#include <bitset>
#include <cstdint>
#include <string>

namespace velt {

struct KnownSets {
  bool known = false;  // false: neither the module nor "debug" is registered
  std::bitset<32> levels;
  std::bitset<32> outputs;
};

// The number of the module table's present state. Read it before the table, under its lock, to store what was
// found.
std::uint64_t SetsGeneration();

// Makes everything that any thread remembers out of date. Called under the table's write lock after each
// change.
void ForgetSets();

// Gives what this thread remembers of `module`. Returns false when that is nothing, or out of date.
bool FindSets(std::string const& module, KnownSets& sets);

// Remembers `sets` for `module`, found when the generation was `generation`. Not remembered are names of more
// than 46 characters, and anything when there is no memory or the thread is at its end. The first call of a
// thread allocates 8 KB, which go with the thread.
void StoreSets(std::string const& module, std::uint64_t generation, KnownSets const& sets);

}  // namespace velt

#endif
