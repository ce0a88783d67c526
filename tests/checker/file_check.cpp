#include "tests/checker/file_check.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

#include "tests/checker/lines.h"
#include "tests/checker/record_text.h"

namespace velt::checker {
namespace {

constexpr mode_t kLogMode = 0640;
constexpr mode_t kArchiveMode = 0440;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// The message of a record body " module T: message", or " module message" for a level without a tag.
std::string_view MessageOf(std::string_view body) {
  if (body.empty() || body.front() != ' ') return {};
  std::size_t const space = body.find(' ', 1);
  if (space == body.npos) return {};
  std::string_view message = body.substr(space + 1);
  bool const tagged = message.size() >= 3 && message.substr(1, 2) == ": " &&
                      std::string_view("AEWI").find(message.front()) != std::string_view::npos;
  if (tagged) message.remove_prefix(3);
  return message;
}

std::string Shown(Piece const& piece) { return std::string(piece.text.substr(0, 100)); }

// Adds records; looks the producer up only when it is not that of the record before.
class RecordList {
 public:
  explicit RecordList(RecordsOfProducers& records) : records_(records) {}
  void Add(RecordId const& id) {
    ProducerKey const key(id.run, id.producer);
    if (last_ == nullptr || key != last_key_) {
      last_ = &records_[key];
      last_key_ = key;
    }
    last_->push_back(id.sequence);
  }

 private:
  RecordsOfProducers& records_;
  std::vector<unsigned>* last_ = nullptr;
  ProducerKey last_key_;
};

class Inspection {
 public:
  Inspection(Expectation const& expected, FamilyFile const& file) : expected_(expected), file_(file) {}

  FileCheck Run(bool is_last) {
    if (!file_.archive_fault.empty()) Add(Kind::kBrokenArchive, file_.name + ".gz: " + file_.archive_fault);
    if (file_.has_log && file_.log_mode != kLogMode && !(expected_.killed && file_.text.empty()))
      Add(Kind::kMode, file_.name);
    if (file_.has_archive && file_.archive_fault.empty() && file_.archive_mode != kArchiveMode)
      Add(Kind::kMode, file_.name + ".gz");
    if (!file_.differing_log.empty()) {
      Add(Kind::kDifferingTwin, file_.name);
      InspectText(file_.differing_log, false);
    }
    InspectText(file_.text, is_last);
    return std::move(check_);
  }

 private:
  void Add(Kind kind, std::string const& text) { check_.findings.push_back({kind, 1, text}); }

  // Removes what a file begins with. False: it is not there.
  bool TakeHead(std::string_view& text) const {
    if (text.substr(0, kByteOrderMark.size()) != kByteOrderMark) return false;
    std::string_view rest = text.substr(kByteOrderMark.size());
    std::size_t const newline = rest.find('\n');
    if (newline == rest.npos) return false;
    auto const creation = Divide(rest.substr(0, newline + 1), 0);
    if (creation.size() != 1 || creation[0].kind != PieceKind::kCreation || !creation[0].well_formed)
      return false;
    rest.remove_prefix(newline + 1);
    if (rest.substr(0, expected_.header.size()) != expected_.header) return false;
    text = rest.substr(expected_.header.size());
    return true;
  }

  void InspectText(std::string const& whole, bool is_last) {
    std::string_view text = whole;
    bool const head = TakeHead(text);
    if (!head) {
      text.remove_prefix(text.substr(0, kByteOrderMark.size()) == kByteOrderMark ? kByteOrderMark.size() : 0);
      if (!expected_.headless_allowed) Add(Kind::kNoHeader, file_.name);
    }
    std::string clean;  // only made when there are NUL bytes
    if (text.find('\0') != text.npos) {
      Add(Kind::kNulBytes, file_.name);
      std::remove_copy(text.begin(), text.end(), std::back_inserter(clean), '\0');
      text = clean;
    }
    std::vector<Piece> const pieces = Divide(text, whole.size() - text.size());
    std::size_t before_last_record = 0;  // 0 for the first one: only a record ends a file
    std::size_t records_end = 0;
    bool exit_lines = false;
    bool trailer = false;
    for (auto const& piece : pieces) {
      if (trailer) Add(Kind::kWrongLine, file_.name + ": a line behind the trailer: " + Shown(piece));
      if (piece.kind == PieceKind::kExitLine) exit_lines = true;
      trailer = trailer || (piece.kind == PieceKind::kTrailer && piece.well_formed && piece.has_newline);
      InspectPiece(piece, head);
      bool const torn_head = piece.kind == PieceKind::kOther && !piece.has_newline;
      if (piece.kind == PieceKind::kRecord || torn_head) {
        before_last_record = records_end;
        records_end = piece.end;
      }
    }
    if (!trailer && !(expected_.killed))
      Add(Kind::kNoTrailer, file_.name + (is_last ? " (the last one)" : ""));
    if (expected_.max_bytes && records_end != 0) {
      std::size_t const limit = *expected_.max_bytes;
      if (before_last_record > limit) Add(Kind::kRotationPoint, file_.name + ": ended late");
      if (trailer && !exit_lines && records_end <= limit)
        Add(Kind::kRotationPoint, file_.name + ": ended early");
      if (exit_lines && records_end > limit) Add(Kind::kRotationPoint, file_.name + ": did not end");
    }
  }

  void InspectPiece(Piece const& piece, bool head) {
    if (piece.kind == PieceKind::kRecord) return InspectRecord(piece);
    if (piece.kind == PieceKind::kOther && piece.text.empty() && piece.has_newline)
      return Add(Kind::kWrongLine, file_.name + ": an empty line");
    if (!piece.has_newline) return Add(Kind::kTorn, file_.name + ": " + Shown(piece));
    bool const again = piece.kind == PieceKind::kCreation && head;
    if (!piece.well_formed || again) Add(Kind::kWrongLine, file_.name + ": " + Shown(piece));
  }

  void InspectRecord(Piece const& piece) {
    std::string_view const message = MessageOf(piece.body);
    bool const other = std::find(expected_.other_texts.begin(), expected_.other_texts.end(), message) !=
                       expected_.other_texts.end();
    if (other && piece.has_newline) return;
    ParsedRecord const record = ParseRecord(message);
    if (record.state == TextState::kWhole) list_.Add(record.id);
    if (record.state == TextState::kWrongChecksum) {
      // A record torn within its last characters looks like a changed record.
      Add(piece.has_newline ? Kind::kWrongChecksum : Kind::kTorn, file_.name + ": " + Shown(piece));
    } else if (record.state == TextState::kTorn || !piece.has_newline) {
      Add(Kind::kTorn, file_.name + ": " + Shown(piece));
    }
  }

  Expectation const& expected_;
  FamilyFile const& file_;
  FileCheck check_;
  RecordList list_{check_.records};
};

}  // namespace

std::string Describe(ProducerKey const& key) {
  return "R" + std::to_string(key.first) + " P" + std::to_string(key.second);
}

FileCheck CheckFile(Expectation const& expected, FamilyFile const& file, bool is_last) {
  return Inspection(expected, file).Run(is_last);
}

RecordsOfProducers RecordsIn(std::string_view text) {
  RecordsOfProducers records;
  RecordList list(records);
  for (auto const& piece : Divide(text, 0)) {
    ParsedRecord const record = ParseRecord(MessageOf(piece.body));
    if (record.state == TextState::kWhole) list.Add(record.id);
  }
  return records;
}

}  // namespace velt::checker
