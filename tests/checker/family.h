// Reads a whole family of log files back: the open file, finished ones, archives, in the order of their
// names.
#ifndef VELT_TESTS_CHECKER_FAMILY_H
#define VELT_TESTS_CHECKER_FAMILY_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace velt::checker {

// One gzip member, read by zlib's file functions and by a reader of our own that inflates the body and
// compares length and checksum of the trailer itself.
struct Archive {
  std::string text;   // as far as it could be unpacked
  std::string fault;  // empty when both readers found it whole and agree
};
Archive ReadArchive(std::string const& path);

struct FamilyFile {
  std::string name;          // of the plain file: <prefix><15 characters>.log
  std::string text;          // from the archive when there is one that is whole
  bool has_log = false;      // <name> is there
  bool has_archive = false;  // <name>.gz is there
  mode_t log_mode = 0;       // permission bits
  mode_t archive_mode = 0;
  std::string archive_fault;  // see Archive
  std::string differing_log;  // text of the plain file where it is not what the whole archive holds
};

// Files <prefix><15 characters>.log and .log.gz of `directory`, sorted. A .log beside its own whole .gz is
// one file. Prefixes that begin alike are told apart by the length of the name.
std::vector<FamilyFile> ReadFamilyFiles(std::string const& directory, std::string const& prefix);

// The two halves of that, for families that are too large for memory: the list has names and which of the
// two files there are; the other function, on any thread, adds what one of them holds.
std::vector<FamilyFile> ListFamilyFiles(std::string const& directory, std::string const& prefix);
void ReadFamilyFile(std::string const& directory, FamilyFile& file);

}  // namespace velt::checker

#endif
