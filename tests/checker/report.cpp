#include "tests/checker/report.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string_view>
#include <utility>

#include "tests/checker/family.h"
#include "tests/checker/lines.h"
#include "tests/checker/record_text.h"

namespace velt::checker {
namespace {

constexpr mode_t kLogMode = 0640;
constexpr mode_t kArchiveMode = 0440;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

using ProducerKey = std::pair<unsigned, unsigned>;  // run and number

// What the files hold of one producer.
struct Found {
  std::set<unsigned> sequences;
  long last = -1;  // the greatest one so far, for the order
};

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

class Inspection {
 public:
  Inspection(Expectation const& expected, std::vector<ProducerOutcomes> const& outcomes)
      : expected_(expected), outcomes_(outcomes) {}

  Report Run() {
    std::vector<FamilyFile> const files = ReadFamilyFiles(expected_.directory, expected_.prefix);
    for (std::size_t i = 0; i < files.size(); ++i) InspectFile(files[i], i + 1 == files.size());
    if (!expected_.witness_directory.empty()) InspectWitnesses(files);
    for (auto const& one : outcomes_) Account(one);
    for (auto const& entry : found_) {
      if (!Known(entry.first))
        Add(Kind::kRefusedFound, entry.second.sequences.size(),
            "records of a producer that never was: " + Describe(entry.first));
    }
    return std::move(report_);
  }

 private:
  void Add(Kind kind, std::size_t count, std::string const& text) {
    report_.findings.push_back({kind, count, text});
  }
  static std::string Describe(ProducerKey const& key) {
    return "R" + std::to_string(key.first) + " P" + std::to_string(key.second);
  }
  bool Known(ProducerKey const& key) const {
    return std::any_of(outcomes_.begin(), outcomes_.end(),
                       [&](auto const& one) { return ProducerKey(one.run, one.producer) == key; });
  }

  void InspectFile(FamilyFile const& file, bool is_last) {
    ++report_.files;
    if (file.has_archive) ++report_.archives;
    if (!file.archive_fault.empty()) Add(Kind::kBrokenArchive, 1, file.name + ".gz: " + file.archive_fault);
    if (file.has_log && file.log_mode != kLogMode && !(expected_.killed && file.text.empty()))
      Add(Kind::kMode, 1, file.name);
    if (file.has_archive && file.archive_fault.empty() && file.archive_mode != kArchiveMode)
      Add(Kind::kMode, 1, file.name + ".gz");
    if (!expected_.in_order)
      for (auto& entry : found_) entry.second.last = -1;
    if (!file.differing_log.empty()) {
      Add(Kind::kDifferingTwin, 1, file.name);
      InspectText(file.name, file.differing_log, false);
    }
    InspectText(file.name, file.text, is_last);
  }

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

  void InspectText(std::string const& name, std::string const& whole, bool is_last) {
    std::string_view text = whole;
    bool const head = TakeHead(text);
    if (!head) {
      text.remove_prefix(text.substr(0, kByteOrderMark.size()) == kByteOrderMark ? kByteOrderMark.size() : 0);
      if (!expected_.headless_allowed) Add(Kind::kNoHeader, 1, name);
    }
    std::string clean;  // only made when there are NUL bytes
    if (text.find('\0') != text.npos) {
      Add(Kind::kNulBytes, 1, name);
      std::remove_copy(text.begin(), text.end(), std::back_inserter(clean), '\0');
      text = clean;
    }
    std::vector<Piece> const pieces = Divide(text, whole.size() - text.size());
    std::size_t before_last_record = 0;  // 0 for the first one: only a record ends a file
    std::size_t records_end = 0;
    bool exit_lines = false;
    bool trailer = false;
    for (auto const& piece : pieces) {
      if (trailer) Add(Kind::kWrongLine, 1, name + ": a line behind the trailer: " + Shown(piece));
      if (piece.kind == PieceKind::kExitLine) exit_lines = true;
      trailer = trailer || (piece.kind == PieceKind::kTrailer && piece.well_formed && piece.has_newline);
      InspectPiece(name, piece, head);
      bool const torn_head = piece.kind == PieceKind::kOther && !piece.has_newline;
      if (piece.kind == PieceKind::kRecord || torn_head) {
        before_last_record = records_end;
        records_end = piece.end;
      }
    }
    if (!trailer && !(expected_.killed)) Add(Kind::kNoTrailer, 1, name + (is_last ? " (the last one)" : ""));
    if (expected_.max_bytes && records_end != 0) {
      std::size_t const limit = *expected_.max_bytes;
      if (before_last_record > limit) Add(Kind::kRotationPoint, 1, name + ": ended late");
      if (trailer && !exit_lines && records_end <= limit)
        Add(Kind::kRotationPoint, 1, name + ": ended early");
      if (exit_lines && records_end > limit) Add(Kind::kRotationPoint, 1, name + ": did not end");
    }
  }

  static std::string Shown(Piece const& piece) { return std::string(piece.text.substr(0, 100)); }

  void InspectPiece(std::string const& name, Piece const& piece, bool head) {
    if (piece.kind == PieceKind::kRecord) return InspectRecord(name, piece);
    if (piece.kind == PieceKind::kOther && piece.text.empty() && piece.has_newline)
      return Add(Kind::kWrongLine, 1, name + ": an empty line");
    if (!piece.has_newline) return Add(Kind::kTorn, 1, name + ": " + Shown(piece));
    bool const again = piece.kind == PieceKind::kCreation && head;
    if (!piece.well_formed || again) Add(Kind::kWrongLine, 1, name + ": " + Shown(piece));
  }

  void InspectRecord(std::string const& name, Piece const& piece) {
    std::string_view const message = MessageOf(piece.body);
    bool const other = std::find(expected_.other_texts.begin(), expected_.other_texts.end(), message) !=
                       expected_.other_texts.end();
    if (other && piece.has_newline) return;
    ParsedRecord const record = ParseRecord(message);
    if (record.state == TextState::kWhole) NoteFound(name, record.id);
    if (record.state == TextState::kWrongChecksum) {
      // A record that is torn within its last characters, and one that was changed, look alike.
      Add(piece.has_newline ? Kind::kWrongChecksum : Kind::kTorn, 1, name + ": " + Shown(piece));
    } else if (record.state == TextState::kTorn || !piece.has_newline) {
      Add(Kind::kTorn, 1, name + ": " + Shown(piece));
    }
  }

  void NoteFound(std::string const& name, RecordId const& id) {
    Found& found = found_[{id.run, id.producer}];
    std::string const which =
        name + ": " + Describe({id.run, id.producer}) + " S" + std::to_string(id.sequence);
    if (!found.sequences.insert(id.sequence).second) return Add(Kind::kDuplicate, 1, which);
    if (static_cast<long>(id.sequence) < found.last) Add(Kind::kOutOfOrder, 1, which);
    found.last = std::max(found.last, static_cast<long>(id.sequence));
  }

  // Witnesses without a file were pruned; others must hold what the file holds.
  void InspectWitnesses(std::vector<FamilyFile> const& files) {
    std::error_code none;
    for (auto const& entry : std::filesystem::directory_iterator(expected_.witness_directory, none)) {
      std::string const name = entry.path().filename();
      std::ifstream in(entry.path(), std::ios::binary);
      std::string const text{std::istreambuf_iterator<char>(in), {}};
      auto const same =
          std::find_if(files.begin(), files.end(), [&](auto const& f) { return f.name == name; });
      if (same != files.end()) {
        if (same->text != text) Add(Kind::kWitness, 1, name);
        continue;
      }
      for (auto const& piece : Divide(text, 0)) {
        ParsedRecord const record = ParseRecord(MessageOf(piece.body));
        if (record.state == TextState::kWhole)
          pruned_[{record.id.run, record.id.producer}].insert(record.id.sequence);
      }
    }
  }

  void Account(ProducerOutcomes const& one) {
    ProducerKey const key(one.run, one.producer);
    Found const& found = found_[key];
    std::set<unsigned> const& pruned = pruned_[key];
    report_.called += one.outcomes.size();
    report_.accepted += one.Count(Outcome::kAccepted);
    report_.refused += one.Count(Outcome::kRefused);
    report_.unknown += one.Count(Outcome::kBegun);
    long last_in_files = found.sequences.empty() ? -1 : static_cast<long>(*found.sequences.rbegin());
    if (!pruned.empty()) last_in_files = std::max(last_in_files, static_cast<long>(*pruned.rbegin()));

    report_.found_of[key] = found.sequences.size();

    std::size_t stretch = 0;
    auto const end_stretch = [&](std::size_t next) {
      if (stretch > 0)
        Add(Kind::kMissing, stretch,
            Describe(key) + " S" + std::to_string(next - stretch) + " to S" + std::to_string(next - 1));
      stretch = 0;
    };
    for (unsigned s = 0; s < one.outcomes.size(); ++s) {
      bool const in_files = found.sequences.count(s) != 0;
      if (in_files && (one.outcomes[s] == Outcome::kRefused || one.outcomes[s] == Outcome::kNotCalled))
        Add(Kind::kRefusedFound, 1, Describe(key) + " S" + std::to_string(s));
      if (in_files) ++report_.found;
      if (in_files && one.outcomes[s] == Outcome::kBegun) ++report_.found_unknown;
      bool const lost = !in_files && one.outcomes[s] == Outcome::kAccepted;
      bool const was_pruned = lost && pruned.count(s) != 0;
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
    for (unsigned const s : found.sequences)
      if (s >= one.outcomes.size()) Add(Kind::kRefusedFound, 1, Describe(key) + " S" + std::to_string(s));
  }

  Expectation const& expected_;
  std::vector<ProducerOutcomes> const& outcomes_;
  std::map<ProducerKey, Found> found_;
  std::map<ProducerKey, std::set<unsigned>> pruned_;
  Report report_;
};

}  // namespace

Report Check(Expectation const& expected, std::vector<ProducerOutcomes> const& outcomes) {
  return Inspection(expected, outcomes).Run();
}

}  // namespace velt::checker
