// The limits of the log family that veltpipe writes.
#include "tools/veltpipe/limits.h"

#include "velt/manager.h"

namespace velt::tools {
namespace {

Limits ConfiguredLimits(std::string const& file) {
  int ring_records = 0;
  int channels = 0;  // not used: veltpipe has one channel
  int file_bytes = 0;
  int archives = 0;
  int files_per_archive = 0;
  VeltDebugMgr::ModuleSets modules;  // not used: the command line gives levels and outputs
  VeltDebugMgr::Instance()->GetCfgItem(file, ring_records, channels, file_bytes, archives, files_per_archive,
                                       modules);
  VeltDebugMgr::Destroy();

  auto const bounded = [](Limit limit, int value) {
    return static_cast<unsigned int>(Bounded(limit, value));
  };
  Limits limits;
  limits.ring_records = bounded(kRingRecords, ring_records);
  limits.file_bytes = bounded(kFileBytes, file_bytes);
  limits.archives = bounded(kArchives, archives);
  limits.files_per_archive = bounded(kFilesPerArchive, files_per_archive);
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
