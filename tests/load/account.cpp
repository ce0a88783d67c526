#include "tests/load/account.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "tests/checker/lines.h"
#include "tests/support/files.h"

namespace velt::load {
namespace {

using Checks = std::vector<std::unique_ptr<FamilyCheck>>;

// The families, several at a time.
void RunAll(Checks const& checks) {
  std::atomic<std::size_t> next{0};
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < std::max(1U, std::thread::hardware_concurrency()); ++i) {
    threads.emplace_back([&] {
      for (std::size_t which = next++; which < checks.size(); which = next++) checks[which]->Run();
    });
  }
  for (auto& thread : threads) thread.join();
}

// Nothing was pruned, and nothing else was written.
void CheckNames(Pacer const& pacer, std::string const& directory, Findings& findings) {
  std::vector<std::string> expected;
  for (unsigned i = 0; i < kFamilies; ++i) {
    auto const& opened = pacer.Opened(i);
    for (auto const& name : opened) expected.push_back(&name == &opened.back() ? name : name + ".gz");
  }
  std::sort(expected.begin(), expected.end());
  std::vector<std::string> const there = test::ListDir(directory);
  if (there != expected) {
    findings.Note(findings.wrong, std::to_string(there.size()) + " files in the directory, not those " +
                                      std::to_string(expected.size()) + " that were opened");
  }
}

void CheckPrinted(std::string const& printed, Checks const& checks, Findings& findings) {
  std::array<std::vector<unsigned>, kFamilies> numbers;
  for (auto const& piece : checker::Divide(printed, 0)) {
    std::size_t const colon = piece.body.find(": ");
    checker::ParsedRecord const record =
        checker::ParseRecord(colon == piece.body.npos ? piece.body : piece.body.substr(colon + 2));
    bool const ring_record = piece.has_newline && record.state == checker::TextState::kWhole &&
                             record.id.run == kFilteredRun && record.id.producer < kFamilies;
    if (ring_record) {
      numbers[record.id.producer].push_back(record.id.sequence);
    } else {
      findings.Note(findings.wrong, "printed: " + std::string(piece.text.substr(0, 100)));
    }
  }
  for (unsigned i = 0; i < kFamilies; ++i) {
    if (numbers[i] != checks[i]->RingRecords())
      findings.Note(findings.wrong, PrefixOf(i) + ": the ring records printed are not those in the files");
  }
}

// Goes through the steps in order, and through the sorted results beside them.
class Walk {
 public:
  explicit Walk(std::vector<unsigned> const& indices) : at_(indices.begin()), end_(indices.end()) {}
  bool Has(unsigned index) {
    if (at_ == end_ || *at_ != index) return false;
    ++at_;
    return true;
  }

 private:
  std::vector<unsigned>::const_iterator at_;
  std::vector<unsigned>::const_iterator end_;
};

void AddProducer(unsigned producer, Answers const& answers, std::vector<unsigned char> const& found,
                 Account& account) {
  Walk refused(answers.refused);
  Walk filtered_refused(answers.filtered_refused);
  Walk unknown(answers.unknown);
  for (unsigned index = 0; index < found.size(); ++index) {
    ++account.called;
    Kind const kind = StepOf(producer, index).kind;
    bool const in_files = found[index] != 0;
    bool const was_refused =
        refused.Has(index) || filtered_refused.Has(index) || (unknown.Has(index) && !in_files);
    ++(was_refused ? account.refused : account.accepted);
    std::string const which = "P" + std::to_string(producer) + " S" + std::to_string(index);
    if (kind == Kind::kBadLevel && !was_refused)
      account.findings.Note(account.findings.wrong, which + ": accepted with a level that there is not");
    if (kind == Kind::kBadLevel) ++account.refused_by_level;
    if (kind == Kind::kFiltered) continue;  // the ring's numbers account for them
    if (in_files) ++account.in_files;
    if (was_refused && in_files)
      account.findings.Note(account.findings.wrong, which + ": refused, and in the files");
    if (!was_refused && !in_files) account.findings.Note(account.findings.lost, which);
  }
}

}  // namespace

Account CheckAll(Scale const& scale, Pacer const& pacer, Producers const& producers,
                 std::string const& directory, std::string const& printed) {
  FoundMap found(kProducers, std::vector<unsigned char>(scale.records_each));
  Checks checks;
  for (unsigned i = 0; i < kFamilies; ++i) {
    checks.push_back(std::make_unique<FamilyCheck>(
        FamilyFacts{i, directory, pacer.Opened(i), std::size_t{scale.file_megabytes} << 20U,
                    scale.records_each, producers.InRing(i)},
        found));
  }
  RunAll(checks);

  Account account;
  for (auto const& check : checks) {
    account.findings.Add(check->Found());
    account.from_ring += check->RingRecords().size();
    account.evicted += check->Evicted();
    account.left_in_ring += check->Left();
    account.archives += check->Archives();
    account.bytes += check->Bytes();
  }
  account.in_files = account.from_ring;
  CheckNames(pacer, directory, account.findings);
  CheckPrinted(printed, checks, account.findings);
  for (unsigned i = 0; i < kProducers; ++i) AddProducer(i, producers.Of(i), found[i], account);
  return account;
}

}  // namespace velt::load
