// Files and directories of a test: a scratch directory, whole files read back, archives unpacked.
#ifndef VELT_TESTS_SUPPORT_FILES_H
#define VELT_TESTS_SUPPORT_FILES_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace velt::test {

// A directory of its own under TMPDIR (or /tmp), removed with everything in it at the end.
class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  ScratchDir(ScratchDir const&) = delete;
  ScratchDir& operator=(ScratchDir const&) = delete;

  std::string const& Path() const { return path_; }  // without a '/' at its end
  std::string operator/(std::string const& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

std::string ReadFile(std::string const& path);  // empty when it cannot be read
std::string ReadGzip(std::string const& path);  // unpacked; empty when it cannot be read
void WriteFile(std::string const& path, std::string const& content);
bool Exists(std::string const& path);
mode_t ModeOf(std::string const& path);                     // permission bits; 0 when it does not exist
std::vector<std::string> ListDir(std::string const& path);  // sorted names without "." and ".."

// Names in `directory` that begin with `prefix` and end in `suffix`, sorted.
std::vector<std::string> FilesOf(std::string const& directory, std::string const& prefix,
                                 std::string const& suffix);

// The content of every .log and .log.gz of a family in the order of their names; a name that is there in both
// forms counts once, as the archive.
std::string ReadFamily(std::string const& directory, std::string const& prefix);

std::vector<std::string> Lines(std::string const& text);
std::size_t CountOf(std::string const& text, std::string const& piece);

}  // namespace velt::test

#endif
