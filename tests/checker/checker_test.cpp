// The checker of log families: it finds every kind of damage, and nothing in an undamaged family.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "velt/channel.h"

#include "tests/checker/family.h"
#include "tests/checker/outcomes.h"
#include "tests/checker/report.h"
#include "tests/faults/host.h"
#include "tests/support/channel.h"
#include "tests/support/files.h"
#include "tests/support/process.h"

namespace fs = std::filesystem;

namespace velt::checker {
namespace {

using test::Lines;
using test::ReadFile;
using test::ScratchDir;
using test::WriteFile;

constexpr unsigned kLimit = 10'000;

// Three archives and a file that was closed in order, of two producers that took turns.
class CheckerTest : public ::testing::Test {
 protected:
  CheckerTest() {
    expected.directory = dir / "logs";
    expected.prefix = "t_";
    expected.max_bytes = kLimit;
  }

  void MakeFamily() {
    test::ChannelSetup setup(expected.directory);
    setup.max_bytes = kLimit;
    auto channel = MakeChannel(setup);
    faults::ProducerSetup producers;
    producers.side_directory = dir / "side";
    producers.length = [](unsigned) { return 100U; };
    faults::Producer first(producers, 0, faults::ToChannel(*channel));
    faults::Producer second(producers, 1, faults::ToChannel(*channel));
    ASSERT_TRUE(test::WaitUntil([&] { return !test::FilesOf(expected.directory, "t_", ".log").empty(); }));
    for (int i = 0; i < 3; ++i)
      ASSERT_TRUE(faults::FillFile({&first, &second}, expected.directory, "t_", kLimit));
    for (int i = 0; i < 10; ++i) {
      ASSERT_TRUE(first.TraceNext());
      ASSERT_TRUE(second.TraceNext());
    }
    channel.reset();
    outcomes = ReadOutcomes(dir / "side");
    ASSERT_EQ(outcomes.size(), 2U);
  }

  std::string LastLog() const {
    return expected.directory + "/" + test::FilesOf(expected.directory, "t_", ".log").back();
  }
  std::string ArchiveAt(std::size_t place) const {
    return expected.directory + "/" + test::FilesOf(expected.directory, "t_", ".log.gz").at(place);
  }
  Report Look() const { return Check(expected, outcomes); }

  // Changes the lines of the file that is no archive.
  void EditLines(std::function<void(std::vector<std::string>&)> const& edit) const {
    auto lines = Lines(ReadFile(LastLog()));
    edit(lines);
    std::string text;
    for (auto const& line : lines) text += line + "\n";
    WriteFile(LastLog(), text);
  }

  ScratchDir const dir;
  Expectation expected;
  std::vector<ProducerOutcomes> outcomes;
};

// The line of the n-th record.
std::size_t RecordAt(std::vector<std::string> const& lines, std::size_t place) {
  for (std::size_t i = 0; i < lines.size(); ++i)
    if (lines[i].find(" m I: R") != std::string::npos && place-- == 0) return i;
  throw std::out_of_range("no such record");
}

std::size_t RecordsOf(std::vector<std::string> const& lines) {
  return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), [](std::string const& line) {
    return line.find(" m I: R") != std::string::npos;
  }));
}

void Append(std::string const& path, std::string const& bytes) { WriteFile(path, ReadFile(path) + bytes); }

using Damage = std::function<void(std::vector<std::string>&)>;

struct DamagedLines {
  char const* what;
  Damage damage;
  std::map<Kind, std::size_t> expected;  // findings of each kind
};

constexpr auto kErase = [](std::vector<std::string>& lines, std::size_t at) {
  lines.erase(lines.begin() + static_cast<long>(at));
};

std::vector<DamagedLines> DamagedRecords() {
  auto const erase = kErase;
  return {
      {"one record dropped", [=](auto& l) { erase(l, RecordAt(l, 4)); }, {{Kind::kMissing, 1}}},
      {"two records of one producer dropped, one there between",
       [=](auto& l) {
         erase(l, RecordAt(l, 4));
         erase(l, RecordAt(l, 7));
       },
       {{Kind::kMissing, 2}}},
      {"one record doubled",
       [](auto& l) { l.insert(l.begin() + static_cast<long>(RecordAt(l, 4)), l[RecordAt(l, 4)]); },
       {{Kind::kDuplicate, 1}}},
      {"two records of one producer swapped",
       [](auto& l) { std::swap(l[RecordAt(l, 4)], l[RecordAt(l, 6)]); },
       {{Kind::kOutOfOrder, 1}}},
      {"a record cut in its payload",
       [](auto& l) { l[RecordAt(l, 4)].resize(80); },
       {{Kind::kTorn, 1}, {Kind::kMissing, 1}}},
      {"a record cut in its payload, the next behind it on the line",
       [=](auto& l) {
         std::size_t const at = RecordAt(l, 4);
         l[at] = l[at].substr(0, 80) + l[at + 1];
         erase(l, at + 1);
       },
       {{Kind::kTorn, 1}, {Kind::kMissing, 1}}},
      {"a record cut in its line head, the next behind it on the line",
       [=](auto& l) {
         std::size_t const at = RecordAt(l, 4);
         l[at] = l[at].substr(0, 11) + l[at + 1];
         erase(l, at + 1);
       },
       {{Kind::kTorn, 1}, {Kind::kMissing, 1}}},
      {"a record without its newline",
       [=](auto& l) {
         std::size_t const at = RecordAt(l, 4);
         l[at] += l[at + 1];
         erase(l, at + 1);
       },
       {{Kind::kTorn, 1}}},
      {"a record cut before the exit line",
       [=](auto& l) {
         std::size_t const at = RecordAt(l, 19);
         l[at] = l[at].substr(0, 80) + l[at + 1];
         erase(l, at + 1);
       },
       {{Kind::kTorn, 1}, {Kind::kMissing, 1}}},
      {"one letter of a payload changed",
       [](auto& l) { l[RecordAt(l, 4)][90] ^= 1; },
       {{Kind::kWrongChecksum, 1}, {Kind::kMissing, 1}}},
      {"a digit of a checksum changed",
       [](auto& l) { l[RecordAt(l, 4)].back() ^= 1; },
       {{Kind::kWrongChecksum, 1}, {Kind::kMissing, 1}}},
  };
}

std::vector<DamagedLines> DamagedFrames() {
  auto const erase = kErase;
  return {
      {"a line of somebody else",
       [](auto& l) { l.insert(l.begin() + static_cast<long>(RecordAt(l, 4)), "hello"); },
       {{Kind::kWrongLine, 1}}},
      {"an empty line",
       [](auto& l) { l.insert(l.begin() + static_cast<long>(RecordAt(l, 4)), ""); },
       {{Kind::kWrongLine, 1}}},
      {"a queue's complaint",
       [](auto& l) { l.insert(l.begin() + static_cast<long>(RecordAt(l, 4)), "can't get message block"); },
       {{Kind::kWrongLine, 1}}},
      {"NUL bytes before a record",
       [](auto& l) { l[RecordAt(l, 4)].insert(0, 100, '\0'); },
       {{Kind::kNulBytes, 1}}},
      {"no trailer", [](auto& l) { l.pop_back(); }, {{Kind::kNoTrailer, 1}}},
      {"a record behind the trailer",
       [](auto& l) { l.push_back(l[RecordAt(l, 4)]); },
       {{Kind::kWrongLine, 1}, {Kind::kDuplicate, 1}}},
      {"no creation line", [=](auto& l) { erase(l, 0); }, {{Kind::kNoHeader, 1}, {Kind::kWrongLine, 1}}},
      {"no header text", [=](auto& l) { erase(l, 1); }, {{Kind::kNoHeader, 1}}},
      {"no byte order mark",
       [](auto& l) { l[0].erase(0, 3); },
       {{Kind::kNoHeader, 1}, {Kind::kWrongLine, 1}}},
  };
}

std::map<Kind, std::size_t> KindsOf(Report const& report) {
  std::map<Kind, std::size_t> kinds;
  for (auto const& finding : report.findings) ++kinds[finding.kind];
  return kinds;
}

TEST_F(CheckerTest, AnUntouchedFamilyHasNoFindingsAndEveryRecord) {
  MakeFamily();

  Report const report = Look();

  EXPECT_TRUE(report.Clean()) << report.Text();
  EXPECT_EQ(report.files, 4U);
  EXPECT_EQ(report.archives, 3U);
  EXPECT_GT(report.found, 150U) << "three files of 10,000 bytes and 20 records";
  EXPECT_EQ(report.found, report.called);
  EXPECT_TRUE(report.Accounted());
}

TEST_F(CheckerTest, EveryKindOfDamageToTheLinesOfAFileIsReportedAsThatAndNothingElse) {
  MakeFamily();
  std::string const intact = ReadFile(LastLog());

  auto all = DamagedRecords();
  for (auto& damaged : DamagedFrames()) all.push_back(std::move(damaged));
  for (auto const& damaged : all) {
    SCOPED_TRACE(damaged.what);
    EditLines(damaged.damage);

    Report const report = Look();

    EXPECT_EQ(KindsOf(report), damaged.expected) << report.Text();
    EXPECT_EQ(report.missing, damaged.expected.count(Kind::kMissing) != 0
                                  ? damaged.expected.at(Kind::kMissing)
                                  : std::size_t{0});
    EXPECT_TRUE(report.Accounted()) << report.Text();
    WriteFile(LastLog(), intact);
  }
}

TEST_F(CheckerTest, ADamagedArchiveIsReported) {
  MakeFamily();
  std::string const archive = ArchiveAt(1);
  std::string const intact = ReadFile(archive);
  auto const kinds_with = [&](std::string const& bytes) {
    chmod(archive.c_str(), 0640);
    WriteFile(archive, bytes);
    chmod(archive.c_str(), 0440);
    return KindsOf(Look());
  };
  using Kinds = std::map<Kind, std::size_t>;
  std::string changed = intact;
  changed[intact.size() - 6] ^= 1;

  EXPECT_EQ(kinds_with(intact.substr(0, intact.size() - 8)), (Kinds{{Kind::kBrokenArchive, 1}}));
  EXPECT_EQ(kinds_with(intact + "garbage"), (Kinds{{Kind::kBrokenArchive, 1}}));
  EXPECT_EQ(kinds_with(intact + intact), (Kinds{{Kind::kBrokenArchive, 1}}));
  EXPECT_EQ(kinds_with(changed), (Kinds{{Kind::kBrokenArchive, 1}})) << "another checksum";
  EXPECT_GE(kinds_with("")[Kind::kBrokenArchive], 1U);
  EXPECT_EQ(kinds_with(intact.substr(0, intact.size() / 2))[Kind::kBrokenArchive], 1U);
  EXPECT_GE(Look().missing, 10U) << "half of the records were in the lost half of the archive";
  EXPECT_EQ(kinds_with(intact), Kinds{});
}

TEST_F(CheckerTest, ADeletedArchiveIsMissingFromEveryProducer) {
  MakeFamily();
  std::size_t const before = Look().found;
  fs::remove(ArchiveAt(1));

  Report const report = Look();

  EXPECT_EQ(KindsOf(report), (std::map<Kind, std::size_t>{{Kind::kMissing, 2}})) << report.Text();
  EXPECT_EQ(report.missing, before - report.found);
  EXPECT_GT(report.missing, 40U);
}

TEST_F(CheckerTest, AnArchiveThatWasPrunedIsCountedByItsWitness) {
  MakeFamily();
  fs::create_directory(dir / "witness");
  for (auto const& name : test::FilesOf(expected.directory, "t_", ".gz")) {
    WriteFile(dir / ("witness/" + name.substr(0, name.size() - 3)),
              test::ReadGzip(expected.directory + "/" + name));
  }
  expected.witness_directory = dir / "witness";
  EXPECT_TRUE(Look().Clean()) << Look().Text();
  std::size_t const before = Look().found;
  fs::remove(ArchiveAt(0));

  Report const report = Look();

  EXPECT_TRUE(report.Clean()) << report.Text();
  EXPECT_EQ(report.pruned, before - report.found);
  EXPECT_GT(report.pruned, 40U);
  EXPECT_TRUE(report.Accounted());

  Append(dir / ("witness/" + fs::path(ArchiveAt(0)).stem().string()), "more than the archive holds\n");
  EXPECT_EQ(KindsOf(Look()), (std::map<Kind, std::size_t>{{Kind::kWitness, 1}}));
}

TEST_F(CheckerTest, WrongModesAreReported) {
  MakeFamily();

  chmod(LastLog().c_str(), 0644);
  chmod(ArchiveAt(2).c_str(), 0640);

  EXPECT_EQ(KindsOf(Look()), (std::map<Kind, std::size_t>{{Kind::kMode, 2}}));
}

TEST_F(CheckerTest, AFileThatEndsBeforeOrAfterTheFirstRecordPastItsLimitIsReported) {
  MakeFamily();

  expected.max_bytes = kLimit - 400;  // each record is a little over 150 bytes
  EXPECT_EQ(KindsOf(Look()), (std::map<Kind, std::size_t>{{Kind::kRotationPoint, 3}})) << "three ended late";
  expected.max_bytes = kLimit + 400;
  EXPECT_EQ(KindsOf(Look()), (std::map<Kind, std::size_t>{{Kind::kRotationPoint, 3}})) << "three ended early";
  expected.max_bytes = kLimit;
  EXPECT_TRUE(Look().Clean());
}

TEST_F(CheckerTest, ALogBesideItsOwnArchiveIsOneFileAndBesideAnotherOneTwo) {
  MakeFamily();
  std::string const archive = ArchiveAt(1);
  std::string const log = archive.substr(0, archive.size() - 3);
  WriteFile(log, test::ReadGzip(archive));
  chmod(log.c_str(), 0640);

  EXPECT_TRUE(Look().Clean()) << Look().Text();
  EXPECT_EQ(Look().files, 4U);

  std::string const text = ReadFile(log);
  WriteFile(log, text.substr(0, text.size() - 1));
  auto const kinds = KindsOf(Look());
  EXPECT_EQ(kinds.at(Kind::kDifferingTwin), 1U);
  EXPECT_GE(kinds.at(Kind::kDuplicate), 40U);
}

TEST_F(CheckerTest, ARecordThatWasRefusedOrNeverTracedIsNotToBeInTheFiles) {
  MakeFamily();
  outcomes[0].outcomes[3] = Outcome::kRefused;
  outcomes[1].outcomes.resize(outcomes[1].outcomes.size() - 2);

  Report const report = Look();

  EXPECT_EQ(KindsOf(report), (std::map<Kind, std::size_t>{{Kind::kRefusedFound, 3}})) << report.Text();
  EXPECT_FALSE(report.Accounted());
}

TEST_F(CheckerTest, WhatAKilledProcessHadQueuedIsLostWithTheQueueAndGapsAreNot) {
  MakeFamily();
  expected.killed = true;
  outcomes[0].outcomes.resize(outcomes[0].outcomes.size() + 5, Outcome::kAccepted);
  outcomes[0].outcomes.push_back(Outcome::kBegun);
  std::size_t cut_off = 0;
  EditLines([&cut_off](auto& lines) {
    cut_off = RecordsOf(lines) - 10;
    lines.resize(RecordAt(lines, 9) + 1);
    lines.erase(lines.begin() + static_cast<long>(RecordAt(lines, 2)));
  });

  Report const report = Look();

  EXPECT_EQ(KindsOf(report), (std::map<Kind, std::size_t>{{Kind::kMissing, 1}})) << report.Text();
  EXPECT_GT(cut_off, 0U);
  EXPECT_EQ(report.lost_with_queue, 5U + cut_off) << "five that were never written, the others cut off here";
  EXPECT_EQ(report.unknown, 1U);
  EXPECT_TRUE(report.Accounted());
}

}  // namespace
}  // namespace velt::checker
