// Parts of the checker of log families: the text of a record, and the outcomes of its producer's calls.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <string>

#include "tests/checker/outcomes.h"
#include "tests/checker/record_text.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace velt::checker {
namespace {

using test::ScratchDir;

TEST(RecordTextTest, ARecordIsReadBackFromItsText) {
  for (std::size_t const length : {0U, 1U, 100U, 1'900U}) {
    auto const parsed = ParseRecord(MakeRecord({12, 3, 4'000'000}, length));

    EXPECT_EQ(parsed.state, TextState::kWhole) << length;
    EXPECT_EQ(parsed.id.run, 12U);
    EXPECT_EQ(parsed.id.producer, 3U);
    EXPECT_EQ(parsed.id.sequence, 4'000'000U);
  }
}

TEST(RecordTextTest, ItsTextIsTheSameForAllTime) {
  EXPECT_EQ(MakeRecord({1, 2, 3}, 0), "R1 P2 S3 L0  C262accb4");
}

TEST(RecordTextTest, EveryCutIsNoWholeRecord) {
  std::string const text = MakeRecord({1, 2, 3}, 50);

  for (std::size_t length = 0; length < text.size(); ++length)
    EXPECT_NE(ParseRecord(text.substr(0, length)).state, TextState::kWhole) << length;
}

TEST(RecordTextTest, EveryChangedByteIsNoWholeRecord) {
  std::string const text = MakeRecord({1, 2, 3}, 50);

  for (std::size_t at = 0; at < text.size(); ++at) {
    std::string changed = text;
    changed[at] ^= 1;
    EXPECT_NE(ParseRecord(changed).state, TextState::kWhole) << at;
  }
}

TEST(OutcomeTest, OutcomesOutliveAKillOfTheirWriter) {
  ScratchDir const dir;
  auto const ended = test::RunInChild([&dir]() -> int {
    OutcomeWriter writer(dir.Path(), 7, 2, 100);
    for (unsigned i = 0; i < 9; ++i) {
      writer.Begin(i);
      writer.End(i, i % 3 != 0);
    }
    writer.Begin(9);
    kill(getpid(), SIGKILL);
    return 0;
  });

  auto const read = ReadOutcomes(dir.Path());

  EXPECT_EQ(ended.signal, SIGKILL);
  ASSERT_EQ(read.size(), 1U);
  EXPECT_EQ(read[0].run, 7U);
  EXPECT_EQ(read[0].producer, 2U);
  EXPECT_EQ(read[0].outcomes.size(), 10U);
  EXPECT_EQ(read[0].Count(Outcome::kAccepted), 6U);
  EXPECT_EQ(read[0].Count(Outcome::kRefused), 3U);
  EXPECT_EQ(read[0].Count(Outcome::kBegun), 1U);
}

}  // namespace
}  // namespace velt::checker
