// The files of one log family, as its directory shows them.
#ifndef VELT_TOOLS_VELTPIPE_LOG_FAMILY_H
#define VELT_TOOLS_VELTPIPE_LOG_FAMILY_H

#include <cstdint>
#include <set>
#include <string>

namespace velt::tools {

// LogFamily looks into the directory that a channel writes to: which file the channel is writing, how large
// it is, and whether a file opened now would get the name of an existing one.
//
// Errors: nothing throws but an allocation failure; a file that cannot be read counts as missing.
class LogFamily {
 public:
  // Sizes in bytes, -1 for a file that does not exist.
  struct Footprint {
    std::int64_t log_bytes = -1;
    std::int64_t archive_bytes = -1;
    bool operator==(Footprint const& other) const {
      return log_bytes == other.log_bytes && archive_bytes == other.archive_bytes;
    }
  };

  // Remembers the log files that exist already.
  LogFamily(std::string const& directory, std::string const& prefix);

  // Whether the name of a log file or archive has the current second.
  bool SecondIsTaken() const;

  // Looks for a log file that did not exist at the last call. If there is one, it becomes the current file.
  bool FindNewerLog();

  // The sizes of the current log file and its archive; both -1 before the first file was found. If the log
  // file is gone and its name appears again, FindNewerLog takes it for a newer file.
  Footprint Measure();

  // Why no file can be created and written here now; empty when one can, or the reason is unknown.
  std::string WhyNoFile() const;

  std::string const& Directory() const { return directory_; }  // ends in '/'

 private:
  std::set<std::string> LogNames() const;

  std::string directory_;
  std::string prefix_;
  std::set<std::string> known_logs_;
  std::string current_log_;  // file name without directory; empty before the first file
};

}  // namespace velt::tools

#endif
