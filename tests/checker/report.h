// Compares a family of log files with what its producers traced, and lists every difference.
//
//   Expectation expected;
//   expected.directory = ...; expected.prefix = ...; expected.header = ...; expected.max_bytes = ...;
//   Report const report = Check(expected, ReadOutcomes(side_files));
//   EXPECT_TRUE(report.Clean()) << report.Text();                        // nothing at all
//   EXPECT_TRUE(report.CleanBut({Kind::kTorn})) << report.Text();        // what a fault may leave behind
//   EXPECT_EQ(report.accepted, report.found + report.missing);
#ifndef VELT_TESTS_CHECKER_REPORT_H
#define VELT_TESTS_CHECKER_REPORT_H

#include <cstddef>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/checker/outcomes.h"

namespace velt::checker {

enum class Kind {
  kMissing,        // accepted and not in the files; one finding for each stretch of a producer
  kRefusedFound,   // refused, or never traced, and in the files
  kDuplicate,      // whole twice
  kOutOfOrder,     // behind a later record of its producer
  kTorn,           // part of a record or of a line, or a record without its newline
  kWrongChecksum,  // a record with changed bytes
  kWrongLine,      // a line that no part of the library writes there
  kNulBytes,       // a stretch of NUL bytes
  kRotationPoint,  // a file that ended before or after the first record past its limit
  kMode,
  kNoHeader,
  kNoTrailer,
  kBrokenArchive,
  kDifferingTwin,  // a .log that is not what the whole archive beside it holds
  kWitness,        // a file that is not what its witness holds
};
char const* NameOf(Kind kind);

// What a family must be like. The defaults are for a channel that was stopped in order.
struct Expectation {
  std::string directory;
  std::string prefix;
  std::string header = "header\n";       // the host's header text
  std::optional<std::size_t> max_bytes;  // the limit of a file; unset: rotation points are not looked at
  bool killed = false;   // files may lack their trailer, and records after the last one of each
                         // producer went with the queue: they count as `lost_with_queue`
  bool in_order = true;  // false: names do not tell the order (clock changes, several channels of
                         // one prefix): only the order within each file counts
  std::vector<std::string> other_texts;  // messages of other records that may be there, after the level tag
  // Hard links to all files of the family, made when they were opened, under the names of the plain files. A
  // file that is there and not in the family was pruned: its records count as `pruned`. Others must be equal.
  std::string witness_directory;
  // Where a whole file of no records may lack header or trailer, as after a kill while it was opened.
  bool headless_allowed = false;
};

struct Finding {
  Kind kind;
  std::size_t count;  // records of a stretch; else 1
  std::string text;   // which file, which record
};

struct Report {
  // From the side files; called = accepted + refused + unknown.
  std::size_t called = 0;
  std::size_t accepted = 0;
  std::size_t refused = 0;
  std::size_t unknown = 0;  // cut off by the end of the process
  // From the files.
  std::size_t files = 0;
  std::size_t archives = 0;
  std::size_t found = 0;          // different whole records that were traced
  std::size_t found_unknown = 0;  // those among them whose call never returned
  std::size_t missing = 0;        // accepted = found - found_unknown + missing + pruned + lost_with_queue
  std::size_t pruned = 0;
  std::size_t lost_with_queue = 0;

  std::map<std::pair<unsigned, unsigned>, std::size_t> found_of;  // by run and producer

  std::vector<Finding> findings;

  bool Clean() const { return findings.empty(); }
  bool CleanBut(std::initializer_list<Kind> allowed) const;
  std::size_t Count(Kind kind) const;  // findings of that kind
  bool Accounted() const;              // the two sums above hold
  std::string Text() const;            // all figures and the first findings, for a failure message
};

Report Check(Expectation const& expected, std::vector<ProducerOutcomes> const& outcomes);

}  // namespace velt::checker

#endif
