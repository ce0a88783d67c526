// Reads one family of the load run back, file by file, and compares each record with the plan.
#ifndef VELT_TESTS_LOAD_FAMILY_CHECK_H
#define VELT_TESTS_LOAD_FAMILY_CHECK_H

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "tests/checker/lines.h"
#include "tests/checker/record_text.h"
#include "tests/load/plan.h"

namespace velt::load {

// Differences from the plan: how many of each kind, and the first few in words.
struct Findings {
  std::size_t duplicated = 0;
  std::size_t out_of_order = 0;
  std::size_t lost = 0;
  std::size_t misplaced = 0;  // in another family, or ring records that are not in front of their alarm
  std::size_t wrong = 0;      // torn or changed records, lines and files that should not be, or not so
  std::vector<std::string> first;

  void Note(std::size_t& kind, std::string const& text, std::size_t count = 1);
  void Add(Findings const& other);
  std::size_t Sum() const { return duplicated + out_of_order + lost + misplaced + wrong; }
};

// One byte for each step of each producer: whether its record was found.
using FoundMap = std::vector<std::vector<unsigned char>>;

struct FamilyFacts {
  unsigned family = 0;
  std::string directory;
  std::vector<std::string> files;  // plain names, as they were opened
  std::size_t limit = 0;           // bytes past which a file is finished
  unsigned records_each = 0;
  unsigned in_ring = 0;  // filtered records that were accepted
};

// Threads: one family may be checked beside another: they touch different bytes of `found`.
class FamilyCheck {
 public:
  FamilyCheck(FamilyFacts facts, FoundMap& found) : facts_(std::move(facts)), found_(found) {
    last_.fill(-1);
  }

  void Run();

  // After Run:
  Findings const& Found() const { return findings_; }
  std::vector<unsigned> const& RingRecords() const {
    return ring_records_;
  }                                                 // numbers, as they are in the files
  std::size_t Evicted() const { return evicted_; }  // filtered records that made room for newer ones
  std::size_t Left() const { return left_; }        // that were in the ring at the end
  std::size_t Bytes() const { return bytes_; }
  std::size_t Archives() const { return archives_; }

 private:
  std::string ReadFile(std::size_t which);
  void InspectFile(std::size_t which, std::string const& whole);
  bool TakeHead(std::string_view& text) const;
  void InspectRecord(checker::Piece const& piece);
  void InspectExitLine(checker::Piece const& piece);
  bool ReadRecord(std::string_view message, checker::RecordId& id) const;
  bool IsStepOf(checker::RecordId const& id, Step& step) const;
  void Plain(checker::RecordId const& id, char tag, std::size_t length);
  void Filtered(checker::RecordId const& id, char tag);
  void PassOver(long number);
  void EndOfRing();
  void Wrong(std::string const& what, checker::Piece const& piece);

  FamilyFacts facts_;
  FoundMap& found_;
  Findings findings_;
  std::string name_;                     // of the file in hand
  std::array<long, kProducers> last_{};  // index of each producer's last record
  std::vector<unsigned> ring_records_;
  long ring_last_ = -1;      // all up to this one came out or were evicted
  std::size_t stretch_ = 0;  // ring records since the last other record
  std::size_t evicted_ = 0;
  std::size_t left_ = 0;
  bool left_known_ = false;
  std::size_t exit_lines_ = 0;
  std::size_t bytes_ = 0;
  std::size_t archives_ = 0;
};

// "R<run> P<producer> S<sequence> L" at the head of a message. False: it is not there.
bool ReadHead(std::string_view message, checker::RecordId& id);

}  // namespace velt::load

#endif
