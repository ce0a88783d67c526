#include "tests/load/family_check.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <utility>

#include "tests/checker/family.h"
#include "tests/support/files.h"

namespace velt::load {
namespace {

using checker::Piece;
using checker::PieceKind;

constexpr std::size_t kFindingsShown = 20;
constexpr std::size_t kExitLines = 4;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string Describe(checker::RecordId const& id) {
  return "R" + std::to_string(id.run) + " P" + std::to_string(id.producer) + " S" +
         std::to_string(id.sequence);
}

}  // namespace

void Findings::Note(std::size_t& kind, std::string const& text, std::size_t count) {
  kind += count;
  if (first.size() < kFindingsShown) first.push_back(text);
}

void Findings::Add(Findings const& other) {
  duplicated += other.duplicated;
  out_of_order += other.out_of_order;
  lost += other.lost;
  misplaced += other.misplaced;
  wrong += other.wrong;
  for (auto const& text : other.first)
    if (first.size() < kFindingsShown) first.push_back(text);
}

bool ReadHead(std::string_view message, checker::RecordId& id) {
  auto const take = [&message](char mark, unsigned& number) {
    if (message.empty() || message.front() != mark) return false;
    char const* const end = message.data() + message.size();
    auto const [next, error] = std::from_chars(message.data() + 1, end, number);
    if (error != std::errc() || next == end || *next != ' ') return false;
    message.remove_prefix(static_cast<std::size_t>(next - message.data()) + 1);
    return true;
  };
  return take('R', id.run) && take('P', id.producer) && take('S', id.sequence) && !message.empty() &&
         message.front() == 'L';
}

void FamilyCheck::Run() {
  for (std::size_t i = 0; i < facts_.files.size(); ++i) {
    name_ = facts_.files[i];
    InspectFile(i, ReadFile(i));
  }
  if (stretch_ != 0) findings_.Note(findings_.misplaced, name_ + ": ring records at the end", stretch_);
  EndOfRing();
}

// All but the last file are archives, and the plain ones are gone.
std::string FamilyCheck::ReadFile(std::size_t which) {
  std::string const path = facts_.directory + "/" + facts_.files[which];
  if (which + 1 == facts_.files.size()) {
    if (test::ModeOf(path) != 0640) findings_.Note(findings_.wrong, name_ + ": its mode");
    return test::ReadFile(path);
  }
  checker::Archive archive = checker::ReadArchive(path + ".gz");
  if (!archive.fault.empty()) findings_.Note(findings_.wrong, name_ + ".gz: " + archive.fault);
  if (test::ModeOf(path + ".gz") != 0440) findings_.Note(findings_.wrong, name_ + ".gz: its mode");
  ++archives_;
  return std::move(archive.text);
}

bool FamilyCheck::TakeHead(std::string_view& text) const {
  if (text.substr(0, kByteOrderMark.size()) != kByteOrderMark) return false;
  std::string_view rest = text.substr(kByteOrderMark.size());
  std::size_t const newline = rest.find('\n');
  if (newline == rest.npos) return false;
  auto const creation = checker::Divide(rest.substr(0, newline + 1), 0);
  if (creation.size() != 1 || creation[0].kind != PieceKind::kCreation || !creation[0].well_formed)
    return false;
  rest.remove_prefix(newline + 1);
  std::string const header = HeaderOf(facts_.family);
  if (rest.substr(0, header.size()) != header) return false;
  text = rest.substr(header.size());
  return true;
}

void FamilyCheck::InspectFile(std::size_t which, std::string const& whole) {
  bool const is_last = which + 1 == facts_.files.size();
  bytes_ += whole.size();
  std::string_view text = whole;
  if (!TakeHead(text)) findings_.Note(findings_.wrong, name_ + ": not its head");
  std::size_t start_lines = 0;
  std::size_t records_end = 0;
  std::size_t before_last_record = 0;
  exit_lines_ = 0;
  auto const pieces = checker::Divide(text, whole.size() - text.size());
  for (auto const& piece : pieces) {
    if (piece.kind == PieceKind::kOther || piece.kind == PieceKind::kCreation || !piece.well_formed ||
        !piece.has_newline) {
      Wrong("no line of the library", piece);
      continue;
    }
    if (piece.kind == PieceKind::kRecord) {
      before_last_record = std::exchange(records_end, piece.end);
      InspectRecord(piece);
    }
    if (piece.kind == PieceKind::kStartLine) ++start_lines;
    if (piece.kind == PieceKind::kExitLine) InspectExitLine(piece);
    if (piece.kind == PieceKind::kTrailer && &piece != &pieces.back()) Wrong("not the last line", piece);
  }
  if (pieces.empty() || pieces.back().kind != PieceKind::kTrailer)
    findings_.Note(findings_.wrong, name_ + ": no trailer");
  if (start_lines != (which == 0 ? 2 : 0)) findings_.Note(findings_.wrong, name_ + ": start lines");
  if (exit_lines_ != (is_last ? kExitLines : 0)) findings_.Note(findings_.wrong, name_ + ": exit lines");
  if (before_last_record > facts_.limit || (records_end > facts_.limit) == is_last)
    findings_.Note(findings_.wrong, name_ + ": not ended by the first record past the limit");
}

void FamilyCheck::Wrong(std::string const& what, Piece const& piece) {
  findings_.Note(findings_.wrong, name_ + ": " + what + ": " + std::string(piece.text.substr(0, 100)));
}

void FamilyCheck::InspectExitLine(Piece const& piece) {
  ++exit_lines_;
  std::size_t const open = piece.text.rfind('(');
  if (open == piece.text.npos) return;
  unsigned number = 0;
  std::from_chars(piece.text.data() + open + 1, piece.text.data() + piece.text.size(), number);
  if (piece.text.find("m_DiscardQueue") != piece.text.npos) {
    left_ = number;
    left_known_ = true;
  } else if (number != 0) {
    Wrong("records that were accepted and thrown away", piece);
  }
}

void FamilyCheck::InspectRecord(Piece const& piece) {
  // " load E: message"
  static std::string const module = std::string(" ") + kModule + " ";
  std::size_t const message_at = module.size() + 3;
  if (piece.body.size() < message_at || piece.body.substr(0, module.size()) != module ||
      piece.body.substr(module.size() + 1, 2) != ": ")
    return Wrong("no record of this run", piece);
  char const tag = piece.body[module.size()];
  std::string_view const message = piece.body.substr(message_at);
  checker::RecordId id;
  if (!ReadRecord(message, id)) return Wrong("torn or changed", piece);
  if (id.run == kFilteredRun) return Filtered(id, tag);
  Plain(id, tag, message.size());
}

// True when the message is whole, or cut where its call cuts messages.
bool FamilyCheck::ReadRecord(std::string_view message, checker::RecordId& id) const {
  checker::ParsedRecord const parsed = checker::ParseRecord(message);
  id = parsed.id;
  if (parsed.state == checker::TextState::kWhole) return true;
  Step step{};
  if (!ReadHead(message, id) || id.run == kFilteredRun || !IsStepOf(id, step)) return false;
  std::size_t const limit = LimitOf(step.call);
  return step.length > limit && message.size() == limit &&
         MessageOf(id, step.length).compare(0, limit, message) == 0;
}

bool FamilyCheck::IsStepOf(checker::RecordId const& id, Step& step) const {
  if (id.producer >= kProducers || id.sequence >= facts_.records_each) return false;
  step = StepOf(id.producer, id.sequence);
  return step.kind == (id.run == kOrdinaryRun ? Kind::kOrdinary : Kind::kAlarm);
}

void FamilyCheck::Plain(checker::RecordId const& id, char tag, std::size_t length) {
  std::string const which = name_ + ": " + Describe(id);
  Step step{};
  if (!IsStepOf(id, step)) return findings_.Note(findings_.wrong, which + ": nobody traced that");
  if (step.family != facts_.family) return findings_.Note(findings_.misplaced, which + ": another family's");
  if (tag != TagOf(step.kind) || length != std::min(LimitOf(step.call), SizeOf(id, step.length)))
    findings_.Note(findings_.wrong, which + ": its tag or length");

  unsigned char& found = found_[id.producer][id.sequence];
  long& last = last_[id.producer];
  if (found != 0) {
    findings_.Note(findings_.duplicated, which);
  } else if (last > static_cast<long>(id.sequence)) {
    findings_.Note(findings_.out_of_order, which);
  }
  found = 1;
  last = std::max(last, static_cast<long>(id.sequence));

  if (step.kind == Kind::kAlarm) {
    // The records that were in the ring before this call have been written by now, or were evicted.
    PassOver(static_cast<long>(id.run - kFirstAlarmRun) - 1);
  } else if (stretch_ != 0) {
    findings_.Note(findings_.misplaced, which + ": behind ring records, and no alarm", stretch_);
  }
  stretch_ = 0;
}

void FamilyCheck::Filtered(checker::RecordId const& id, char tag) {
  std::string const which = name_ + ": " + Describe(id);
  long const number = id.sequence;
  if (id.producer != facts_.family) return findings_.Note(findings_.misplaced, which + ": another family's");
  if (number >= static_cast<long>(facts_.in_ring) || tag != TagOf(Kind::kFiltered))
    return findings_.Note(findings_.wrong, which + ": nobody traced that");
  if (number <= ring_last_) {
    bool const again =
        std::find(ring_records_.begin(), ring_records_.end(), id.sequence) != ring_records_.end();
    return findings_.Note(again ? findings_.duplicated : findings_.misplaced, which);
  }
  PassOver(number - 1);
  ring_last_ = number;
  ring_records_.push_back(id.sequence);
  if (++stretch_ > kRingCapacity) findings_.Note(findings_.misplaced, which + ": more than the ring holds");
}

// Counts ring records up to `number` that were not written as evicted. They can only be if a full ring of
// newer ones followed.
void FamilyCheck::PassOver(long number) {
  for (; ring_last_ < number; ++ring_last_) {
    bool const had_reason = ring_last_ + 1 + kRingCapacity < static_cast<long>(facts_.in_ring);
    if (!had_reason)
      findings_.Note(findings_.lost, name_ + ": ring record " + std::to_string(ring_last_ + 1));
    evicted_ += had_reason ? 1 : 0;
  }
}

void FamilyCheck::EndOfRing() {
  std::size_t const since = facts_.in_ring - static_cast<std::size_t>(ring_last_ + 1);
  std::size_t const expected = std::min<std::size_t>(since, kRingCapacity);
  if (!left_known_ || left_ != expected) {
    findings_.Note(findings_.wrong, name_ + ": " + std::to_string(left_) + " records left in the ring, not " +
                                        std::to_string(expected));
  }
  evicted_ += since - expected;
}

}  // namespace velt::load
