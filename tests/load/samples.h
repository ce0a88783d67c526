// Memory, threads and descriptors of the process, sampled once a second under load, and whether they stayed
// flat.
#ifndef VELT_TESTS_LOAD_SAMPLES_H
#define VELT_TESTS_LOAD_SAMPLES_H

#include <cstdint>
#include <string>
#include <vector>

namespace velt::load {

struct Sample {
  double seconds = 0;  // since the load began
  long rss_kb = 0;     // resident memory
  long threads = 0;
  long descriptors = 0;
  std::uint64_t traced = 0;
  unsigned rotated = 0;

  static Sample Now();  // of this process; the last two and the time are the caller's
};

void WriteCsv(std::string const& path, std::vector<Sample> const& samples);

// In the first fifth of the samples caches fill, and families go through all their states. Flat means that
// the maxima of the rest exceed those of that fifth by no more than this:
//
// Memory, 64 MB: records on their way. Nine families that all have their whole window of 1 MB in their queues
// hold about 57,000 records of 960 bytes, 55 MB, and the first fifth may by chance never have met that. A
// leak of four bytes for each record of the long run is more.
inline constexpr long kMemoryBoundKb = 64L * 1024;
// Threads, none: producers, output threads and the main one are there from the first sample to the last.
inline constexpr long kThreadBound = 0;
// Descriptors, one for each family: an output thread holds its log file, or while it compresses two files. By
// chance all nine may do that first in a later sample.
inline constexpr long kDescriptorBound = 9;

struct Range {
  long least = 0;
  long most = 0;
  long most_at_first = 0;  // in the first fifth
  bool Within(long bound) const { return most <= most_at_first + bound; }
};
Range RangeOf(std::vector<Sample> const& samples, long Sample::*field);

// The sample at `percent` of the run.
Sample const& SampleAt(std::vector<Sample> const& samples, unsigned percent);

}  // namespace velt::load

#endif
