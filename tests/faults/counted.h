// The library's own counts, compared with what calls returned and with what is in the files.
#ifndef VELT_TESTS_FAULTS_COUNTED_H
#define VELT_TESTS_FAULTS_COUNTED_H

#include <gtest/gtest.h>

#include <cstddef>
#include <fstream>
#include <map>
#include <string>

#include "velt/channel.h"
#include "velt/manager.h"

#include "tests/checker/report.h"
#include "tests/support/files.h"

namespace velt::faults {

inline constexpr unsigned kFlushMs = 120'000;

// Every accepted record is somewhere.
inline void ExpectSum(VeltTraceCounts const& counts) {
  EXPECT_EQ(counts.accepted, counts.written + counts.printedOnly + counts.lost + counts.queued);
}

// Once everything accepted has been dealt with. No thread may trace.
inline VeltTraceCounts QuietCounts(VeltDebugInfo& channel) {
  EXPECT_TRUE(channel.Flush(kFlushMs));
  VeltTraceCounts const counts = channel.Counts();
  EXPECT_EQ(counts.queued, 0U);
  ExpectSum(counts);
  return counts;
}

// Of all channels of the manager, by prefix. Ask it before Destroy.
inline std::map<std::string, VeltTraceCounts> QuietCounts() {
  std::map<std::string, VeltTraceCounts> all;
  EXPECT_TRUE(VeltDebugMgr::Instance()->Flush(kFlushMs));
  EXPECT_TRUE(VeltDebugMgr::Instance()->GetCounts(all));
  for (auto const& [prefix, counts] : all) {
    EXPECT_EQ(counts.queued, 0U) << prefix;
    ExpectSum(counts);
  }
  return all;
}

// `accepted` and `refused` are what calls returned, `written` what is in the files. None was printed only.
inline void ExpectCounts(VeltTraceCounts const& counts, std::size_t accepted, std::size_t refused,
                         std::size_t written) {
  EXPECT_EQ(counts.accepted, accepted);
  EXPECT_EQ(counts.refused, refused);
  EXPECT_EQ(counts.written, written);
  EXPECT_EQ(counts.printedOnly, 0U);
  EXPECT_EQ(counts.lost, accepted - written);
}

// The same with what the checker found; `others` are records that it does not know, accepted and written.
inline void ExpectCounted(VeltTraceCounts const& counts, checker::Report const& report,
                          std::size_t others = 0) {
  ExpectCounts(counts, report.accepted + others, report.refused, report.found + others);
  EXPECT_EQ(counts.lost, report.missing);
}

inline void AddCounts(VeltTraceCounts& sum, VeltTraceCounts const& counts) {
  sum.accepted += counts.accepted;
  sum.refused += counts.refused;
  sum.written += counts.written;
  sum.printedOnly += counts.printedOnly;
  sum.lost += counts.lost;
  sum.queued += counts.queued;
}

// Leaves the counts of a run in the directory of its side files, for another process.
inline void WriteCounts(std::string const& directory, unsigned run, VeltTraceCounts const& counts) {
  std::ofstream(directory + "/counts." + std::to_string(run))
      << counts.accepted << ' ' << counts.refused << ' ' << counts.written << ' ' << counts.printedOnly << ' '
      << counts.lost << ' ' << counts.queued << '\n';
}

// Of one run; it must have left them.
inline VeltTraceCounts ReadCounts(std::string const& directory, unsigned run) {
  VeltTraceCounts counts{};
  std::ifstream in(directory + "/counts." + std::to_string(run));
  in >> counts.accepted >> counts.refused >> counts.written >> counts.printedOnly >> counts.lost >>
      counts.queued;
  EXPECT_TRUE(in) << run;
  ExpectSum(counts);
  return counts;
}

// The sums of all runs that have left theirs.
inline VeltTraceCounts ReadCounts(std::string const& directory) {
  VeltTraceCounts sum{};
  for (auto const& name : test::FilesOf(directory, "counts.", "")) {
    auto const run = static_cast<unsigned>(std::stoul(name.substr(name.rfind('.') + 1)));
    AddCounts(sum, ReadCounts(directory, run));
  }
  return sum;
}

}  // namespace velt::faults

#endif
