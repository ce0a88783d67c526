// Which files of a directory are a channel's, and what its housekeeping does to them.
#ifndef VELT_FUZZ_MODEL_LOG_FAMILY_H
#define VELT_FUZZ_MODEL_LOG_FAMILY_H

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>

namespace velt::fuzz {

// One name of a directory. Kinds: 'f' file, 'd' directory, 'l' link to a file elsewhere, 'x' link to nothing,
// 's' socket, 'p' pipe.
struct Entry {
  char kind = 'f';
  std::string content;  // of the file, or of the one that a link leads to
  bool packed = false;  // content is what an archive holds
  ino_t identity = 0;   // 0: made by the housekeeping, so it has a new one
};
using Listing = std::map<std::string, Entry>;

struct Family {
  std::string prefix;
  std::string first_file;  // empty when none was opened
  std::size_t keep = 0;

  static bool EndsIn(std::string_view name, std::string_view tail) {
    return name.size() >= tail.size() && name.substr(name.size() - tail.size()) == tail;
  }

  // Whether the length is that of a file of this type.
  bool HasLength(std::string_view name, int type) const {
    if (type == 1 || type == 2) return name.size() == prefix.size() + 19;
    return (type == 0 || type == 3) && name.size() == prefix.size() + 22;
  }

  int TypeByName(std::string_view name) const {
    if (name.substr(0, prefix.size()) != prefix) return 4;
    if (HasLength(name, 1) && EndsIn(name, ".log")) return 1;
    if (HasLength(name, 2) && EndsIn(name, ".tar")) return 2;
    if (HasLength(name, 0) && EndsIn(name, ".tar.gz")) return 0;
    return HasLength(name, 3) && EndsIn(name, ".gz") ? 3 : 4;
  }

  // A socket has the bit of a regular file in its mode, and counts as one.
  int TypeOf(Listing const& listing, std::string const& name) const {
    auto const found = listing.find(name);
    bool const regular =
        found != listing.end() && std::string_view("fls").find(found->second.kind) != std::string::npos;
    return regular ? TypeByName(name) : 4;
  }

  // Replaces a file by its archive.
  void Pack(Listing& listing, std::string const& name) const {
    auto const source = listing.find(name);
    if (source == listing.end() || source->second.kind == 's' || source->second.kind == 'x') return;
    auto const old = listing.find(name + ".gz");
    bool const there = old != listing.end();
    if (there && old->second.kind != 'f') return;  // it cannot be opened for writing
    Entry archive;
    archive.packed = true;
    archive.identity = there ? old->second.identity : 0;
    bool const is_directory = source->second.kind == 'd';  // its first read fails, which counts as done
    archive.content = source->second.content;
    listing.erase(name + ".gz");
    if (archive.content.empty() && !is_directory) return;  // an empty file stays, without an archive
    listing.erase(name);
    listing[name + ".gz"] = std::move(archive);
  }

  void Prune(Listing& listing) const {
    std::string const stem = first_file.substr(0, first_file.find('.'));
    std::size_t archives = 0;
    for (auto const& [name, entry] : listing) archives += TypeOf(listing, name) == 3 ? 1 : 0;
    for (auto at = listing.begin(); at != listing.end() && archives > keep;) {  // oldest first: names sort
      bool const kept = !stem.empty() && at->first.find(stem) != std::string::npos;
      bool const goes = TypeOf(listing, at->first) == 3 && !kept;
      at = goes ? listing.erase(at) : std::next(at);
      archives -= goes ? 1 : 0;
    }
  }

  void KeepHouse(Listing& listing) const {
    Listing const before = listing;
    for (auto const& [name, entry] : before) {
      if (TypeOf(before, name) == 1) Pack(listing, name);
    }
    Prune(listing);
  }
};

}  // namespace velt::fuzz

#endif
