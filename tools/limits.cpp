// The limits of the log family that veltpipe writes.
#include "tools/limits.h"

#include "velt/manager.h"

namespace velt::tools {
namespace {

constexpr int kMegabyteShift = 20;

// A number out of its range is replaced, as for every host of the library: never moved to the nearer end.
unsigned int Bounded(int value, unsigned int low, unsigned int high, unsigned int otherwise) {
  auto const number = static_cast<unsigned int>(value);  // a negative one becomes too large
  return number >= low && number <= high ? number : otherwise;
}

Limits ConfiguredLimits(std::string const& file) {
  int ring_records = 0;
  int channels = 0;  // veltpipe has one
  int file_bytes = 0;
  int archives = 0;
  int files_per_archive = 0;
  VeltDebugMgr::ModuleSets modules;  // levels and outputs are the command line's here
  VeltDebugMgr::Instance()->GetCfgItem(file, ring_records, channels, file_bytes, archives, files_per_archive,
                                       modules);
  VeltDebugMgr::Destroy();

  Limits const defaults;
  Limits limits;
  limits.ring_records = Bounded(ring_records, 0, 1000, defaults.ring_records);
  limits.file_bytes = Bounded(file_bytes, 1U << kMegabyteShift, 50U << kMegabyteShift, defaults.file_bytes);
  limits.archives = Bounded(archives, 1, 200, defaults.archives);
  limits.files_per_archive = Bounded(files_per_archive, 1, 50, defaults.files_per_archive);
  return limits;
}

}  // namespace

Limits LimitsFor(Options const& options) {
  Limits limits = options.config_file.empty() ? Limits{} : ConfiguredLimits(options.config_file);
  if (options.size_mb) limits.file_bytes = static_cast<unsigned int>(*options.size_mb) << kMegabyteShift;
  if (options.keep_files) limits.archives = static_cast<unsigned int>(*options.keep_files);
  return limits;
}

}  // namespace velt::tools
