// Finds out which files of a directory belong to a channel.
#ifndef VELT_DEBUG_CHANNEL_FAMILY_H
#define VELT_DEBUG_CHANNEL_FAMILY_H

#include <dirent.h>

#include <memory>
#include <string>
#include <string_view>

namespace velt {

struct ChannelState;

// What VeltDebugInfo::GetFileType returns.
enum FileType : int { kTarArchive = 0, kLogFile = 1, kTar = 2, kLogArchive = 3, kForeign = 4 };

// The operations of VeltDebugInfo of the same names.
bool CheckFileLength(ChannelState const& state, std::string_view name, int type);
int GetFileType(ChannelState const& state, std::string const& name);

// The type of `name` if it is a regular file: only the name is looked at.
FileType FileTypeByName(ChannelState const& state, std::string_view name);

// As GetFileType, for a name that a listing gave with its kind (dirent's d_type): a stat, which takes longer
// than all the rest, is made only where the kind leaves the type open.
FileType FileTypeListed(ChannelState const& state, std::string_view name, unsigned char kind);

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};

// Calls `take` with every name of the directory `path` and its kind; the name is valid during that call.
// Returns false when the directory cannot be opened.
template <typename Take>
bool ForEachName(std::string const& path, Take take) {
  std::unique_ptr<DIR, CloseDirectory> const directory(opendir(path.c_str()));
  if (directory == nullptr) return false;
  while (dirent const* const entry = readdir(directory.get()))
    take(std::string_view(entry->d_name), entry->d_type);
  return true;
}

}  // namespace velt

#endif
