// The files of one log family as they lie in its directory.
#ifndef VELT_TOOLS_VELTPIPE_LOG_FAMILY_H
#define VELT_TOOLS_VELTPIPE_LOG_FAMILY_H

#include <cstdint>
#include <set>
#include <string>

namespace velt::tools {

// LogFamily looks at the directory that a channel writes to: which file it is writing now, how large that is,
// and whether a file opened at this moment would take the name of another.
//
// Errors: nothing throws but an allocation failure; what cannot be read counts as not there.
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

  // Notes the log files that are there already.
  LogFamily(std::string const& directory, std::string const& prefix);

  // Whether a log file or an archive bears the current second.
  bool SecondIsTaken() const;

  // Looks for a log file that was not there at the last look. When there is one it is the current file from
  // now on.
  bool FindNewerLog();

  // The current log file and its archive; both -1 before the first was found. A log file that has gone counts
  // as a newer one should its name come again.
  Footprint Measure();

  // Why no file can be made and written to here at this moment; empty when one can, or the file system does
  // not say.
  std::string WhyNoFile() const;

  std::string const& Directory() const { return directory_; }  // ends in '/'

 private:
  std::set<std::string> LogNames() const;

  std::string directory_;
  std::string prefix_;
  std::set<std::string> known_logs_;
  std::string current_log_;  // name without directory; empty before the first
};

}  // namespace velt::tools

#endif
