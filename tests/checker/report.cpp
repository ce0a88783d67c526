#include "tests/checker/report.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/checker/bytes.h"
#include "tests/checker/family.h"
#include "tests/checker/file_check.h"

namespace velt::checker {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kFilesOfAThread = 8;

// Runs `job(0)` to `job(count - 1)`, in several threads when there are many.
template <typename Job>
void ForEach(std::size_t count, Job const& job) {
  std::atomic<std::size_t> next{0};
  auto const work = [&] {
    for (std::size_t i = next++; i < count; i = next++) job(i);
  };
  std::size_t const processors = std::max(1U, std::thread::hardware_concurrency());
  std::vector<std::thread> helpers;
  for (std::size_t i = 1; i < std::min(processors, count / kFilesOfAThread); ++i) helpers.emplace_back(work);
  work();
  for (auto& helper : helpers) helper.join();
}

// Sequence numbers of one producer.
class Sequences {
 public:
  bool Insert(unsigned sequence) {  // false: it was there
    if (sequence >= has_.size())
      has_.resize(std::max<std::size_t>(std::size_t{sequence} + 1, has_.size() * 2));
    if (has_[sequence]) return false;
    has_[sequence] = true;
    ++count_;
    greatest_ = std::max(greatest_, static_cast<long>(sequence));
    return true;
  }
  bool Has(std::size_t sequence) const { return sequence < has_.size() && has_[sequence]; }
  std::size_t Count() const { return count_; }
  long Greatest() const { return greatest_; }  // -1 when there is none

 private:
  std::vector<bool> has_;
  std::size_t count_ = 0;
  long greatest_ = -1;
};

// What the files hold of one producer.
struct Found {
  Sequences sequences;
  long last = -1;  // the greatest one so far, for the order
};

class Inspection {
 public:
  Inspection(Expectation const& expected, std::vector<ProducerOutcomes> const& outcomes)
      : expected_(expected), outcomes_(outcomes) {}

  Report Run() {
    InspectFiles();
    for (auto const& one : outcomes_) Account(one);
    for (auto const& entry : found_) {
      if (!Known(entry.first))
        Add(Kind::kRefusedFound, entry.second.sequences.Count(),
            "records of a producer that never was: " + Describe(entry.first));
    }
    return std::move(report_);
  }

 private:
  void Add(Kind kind, std::size_t count, std::string const& text) {
    report_.findings.push_back({kind, count, text});
  }
  bool Known(ProducerKey const& key) const {
    return std::any_of(outcomes_.begin(), outcomes_.end(),
                       [&](auto const& one) { return ProducerKey(one.run, one.producer) == key; });
  }

  void InspectFiles() {
    std::vector<FamilyFile> files = ListFamilyFiles(expected_.directory, expected_.prefix);
    std::set<std::string> const witnesses = Witnesses();
    std::vector<FileCheck> checks(files.size());
    ForEach(files.size(), [&](std::size_t i) {
      FamilyFile& file = files[i];
      ReadFamilyFile(expected_.directory, file);
      checks[i] = CheckFile(expected_, file, i + 1 == files.size());
      bool const witness = witnesses.count(file.name) != 0;
      if (witness && ReadWhole(fs::path(expected_.witness_directory) / file.name) != file.text)
        checks[i].findings.push_back({Kind::kWitness, 1, file.name});
      std::string().swap(file.text);  // a large family is larger than memory
      std::string().swap(file.differing_log);
    });
    for (std::size_t i = 0; i < files.size(); ++i) Note(files[i], checks[i]);
    NotePruned(files, witnesses);
  }

  std::set<std::string> Witnesses() const {
    std::set<std::string> names;
    if (expected_.witness_directory.empty()) return names;
    std::error_code none;
    for (auto const& entry : fs::directory_iterator(expected_.witness_directory, none))
      names.insert(entry.path().filename());
    return names;
  }

  // In the order of the names.
  void Note(FamilyFile const& file, FileCheck& check) {
    ++report_.files;
    if (file.has_archive) ++report_.archives;
    std::move(check.findings.begin(), check.findings.end(), std::back_inserter(report_.findings));
    if (!expected_.in_order)
      for (auto& entry : found_) entry.second.last = -1;
    for (auto const& [key, sequences] : check.records) {
      Found& found = found_[key];
      for (unsigned const sequence : sequences) NoteFound(file.name, key, found, sequence);
    }
  }

  void NoteFound(std::string const& name, ProducerKey const& key, Found& found, unsigned sequence) {
    auto const which = [&] { return name + ": " + Describe(key) + " S" + std::to_string(sequence); };
    if (!found.sequences.Insert(sequence)) return Add(Kind::kDuplicate, 1, which());
    if (static_cast<long>(sequence) < found.last) Add(Kind::kOutOfOrder, 1, which());
    found.last = std::max(found.last, static_cast<long>(sequence));
  }

  // A witness whose file is gone was pruned.
  void NotePruned(std::vector<FamilyFile> const& files, std::set<std::string> pruned) {
    for (auto const& file : files) pruned.erase(file.name);
    std::vector<std::string> const names(pruned.begin(), pruned.end());
    std::vector<RecordsOfProducers> records(names.size());
    ForEach(names.size(), [&](std::size_t i) {
      records[i] = RecordsIn(ReadWhole(fs::path(expected_.witness_directory) / names[i]));
    });
    for (auto const& of_file : records)
      for (auto const& [key, sequences] : of_file)
        for (unsigned const sequence : sequences) (void)pruned_[key].Insert(sequence);  // twice is once
  }

  void Account(ProducerOutcomes const& one) {
    ProducerKey const key(one.run, one.producer);
    Sequences const& found = found_[key].sequences;
    Sequences const& pruned = pruned_[key];
    report_.called += one.outcomes.size();
    report_.accepted += one.Count(Outcome::kAccepted);
    report_.refused += one.Count(Outcome::kRefused);
    report_.unknown += one.Count(Outcome::kBegun);
    long const last_in_files = std::max(found.Greatest(), pruned.Greatest());

    report_.found_of[key] = found.Count();

    std::size_t stretch = 0;
    auto const end_stretch = [&](std::size_t next) {
      if (stretch > 0)
        Add(Kind::kMissing, stretch,
            Describe(key) + " S" + std::to_string(next - stretch) + " to S" + std::to_string(next - 1));
      stretch = 0;
    };
    for (unsigned s = 0; s < one.outcomes.size(); ++s) {
      bool const in_files = found.Has(s);
      if (in_files && (one.outcomes[s] == Outcome::kRefused || one.outcomes[s] == Outcome::kNotCalled))
        Add(Kind::kRefusedFound, 1, Describe(key) + " S" + std::to_string(s));
      if (in_files) ++report_.found;
      if (in_files && one.outcomes[s] == Outcome::kBegun) ++report_.found_unknown;
      bool const lost = !in_files && one.outcomes[s] == Outcome::kAccepted;
      bool const was_pruned = lost && pruned.Has(s);
      bool const with_queue = lost && !was_pruned && expected_.killed && static_cast<long>(s) > last_in_files;
      if (was_pruned) ++report_.pruned;
      if (with_queue) ++report_.lost_with_queue;
      if (lost && !was_pruned && !with_queue) {
        ++report_.missing;
        ++stretch;
      } else {
        end_stretch(s);
      }
    }
    end_stretch(one.outcomes.size());
    for (long s = static_cast<long>(one.outcomes.size()); s <= found.Greatest(); ++s)
      if (found.Has(static_cast<std::size_t>(s)))
        Add(Kind::kRefusedFound, 1, Describe(key) + " S" + std::to_string(s));
  }

  Expectation const& expected_;
  std::vector<ProducerOutcomes> const& outcomes_;
  std::map<ProducerKey, Found> found_;
  std::map<ProducerKey, Sequences> pruned_;
  Report report_;
};

}  // namespace

Report Check(Expectation const& expected, std::vector<ProducerOutcomes> const& outcomes) {
  return Inspection(expected, outcomes).Run();
}

}  // namespace velt::checker
