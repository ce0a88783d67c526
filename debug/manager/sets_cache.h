// Remembers, per thread, what a module's level and output sets are, until any module changes.
//
// Every trace call needs the sets of its module, and they change a few times a day. The table costs a reader
// lock and a map look-up; with several threads most of that time goes into the lock's cache line, which all
// of them write to.
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

// A number that changes whenever the module table changes. To store what the table says, read it under the
// table's lock and pass it to StoreSets.
std::uint64_t SetsGeneration();

// Makes everything that all threads remember out of date. Called after each change, under the table's lock as
// a writer.
void ForgetSets();

// Sets `sets` to what this thread remembers of `module`. Returns false when it remembers nothing, or what it
// remembers is out of date.
bool FindSets(std::string const& module, KnownSets& sets);

// Remembers the `sets` of `module` as found at `generation`. Does nothing for a name over 46 characters, when
// memory has run out, and when the thread is ending. The first call of a thread allocates 8 KB, which are
// freed when the thread ends.
void StoreSets(std::string const& module, std::uint64_t generation, KnownSets const& sets);

}  // namespace velt

#endif
