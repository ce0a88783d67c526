#include "tests/checker/lines.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string>

namespace velt::checker {
namespace {

constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// In `shape` '9' stands for a digit, '#' for a hexadecimal one, '+' for more of the same; other characters
// stand for themselves. Returns the length that matches, 0 when `text` does not begin so.
std::size_t Match(std::string_view text, std::string_view shape) {
  auto const fits = [](char wanted, char c) {
    if (wanted == '9') return IsDigit(c);
    if (wanted == '#') return std::isxdigit(static_cast<unsigned char>(c)) != 0;
    return wanted == c;
  };
  std::size_t at = 0;
  for (std::size_t i = 0; i < shape.size(); ++i) {
    if (shape[i] == '+') {
      while (at < text.size() && fits(shape[i - 1], text[at])) ++at;
    } else if (at == text.size() || !fits(shape[i], text[at++])) {
      return 0;
    }
  }
  return at;
}

constexpr std::string_view kLineHead = "99-99 99:99:99.999999.T9";
constexpr std::string_view kStamp = "9999-99-99 99:99:99.999999";
constexpr std::string_view kDate = "9999-99-99 99:99:99";

bool StartsWith(std::string_view text, std::string_view head) { return text.substr(0, head.size()) == head; }

// "<head><shape>" and nothing behind it.
bool Is(std::string_view text, std::string_view head, std::string_view shape) {
  if (!StartsWith(text, head)) return false;
  std::string_view const rest = text.substr(head.size());
  return rest.size() == Match(rest, shape) && rest.size() >= shape.size() - (shape.find('+') != shape.npos);
}

bool IsShutdownLine(std::string_view text) {
  if (Match(text, kStamp) != kStamp.size()) return false;
  std::string_view const rest = text.substr(kStamp.size());
  return Is(rest, " about to clear m_", "DiscardQueue(9+)") ||
         Is(rest, " about to clear m_", "OutputQueue(9+)") || rest == " after m_OutputQueue cleared";
}

bool IsTrailer(std::string_view text) {
  std::string_view rest = text.substr(std::min(text.size(), std::string_view("File close at ").size()));
  std::size_t const zone = rest.find(' ');
  return zone != rest.npos && zone > 0 && Is(rest.substr(zone + 1), "", kDate);
}

struct Phrase {
  std::string_view head;
  PieceKind kind;
};
constexpr std::array<Phrase, 6> kPhrases = {{{"Current date&time:", PieceKind::kDayLine},
                                             {"File close at ", PieceKind::kTrailer},
                                             {"File create at ", PieceKind::kCreation},
                                             {"This is the first log file", PieceKind::kStartLine},
                                             {"Thread handle output string is ", PieceKind::kStartLine},
                                             {"thread handle output string exit", PieceKind::kExitLine}}};

// Whether a piece other than kOther may begin with it. Looked at for every character that is read.
constexpr bool BeginsPiece(char c) { return IsDigit(c) || c == 'C' || c == 'F' || c == 'T' || c == 't'; }

PieceKind KindAt(std::string_view text) {
  if (text.empty() || !BeginsPiece(text.front())) return PieceKind::kOther;
  if (IsDigit(text.front())) {
    if (Match(text, kLineHead) != 0) return PieceKind::kRecord;
    bool const stamp = Match(text, kStamp) != 0;
    return stamp && StartsWith(text.substr(kStamp.size()), " a") ? PieceKind::kExitLine : PieceKind::kOther;
  }
  for (auto const& phrase : kPhrases)
    if (StartsWith(text, phrase.head)) return phrase.kind;
  return PieceKind::kOther;
}

Piece MakePiece(std::string_view text, bool has_newline, std::size_t end) {
  Piece piece{KindAt(text), text, has_newline, false, {}, end};
  switch (piece.kind) {
    case PieceKind::kRecord: {
      std::size_t const digits = kLineHead.size() - 1;
      std::size_t const body = text.find_first_not_of("0123456789", digits);
      piece.body = body == text.npos ? std::string_view() : text.substr(body);
      piece.well_formed = true;
      break;
    }
    case PieceKind::kDayLine:
      piece.well_formed = Is(text, "Current date&time:", kStamp);
      break;
    case PieceKind::kTrailer:
      piece.well_formed = IsTrailer(text);
      break;
    case PieceKind::kCreation:
      piece.well_formed = Is(text, "File create at time ", "9999-99-99 99:99:99. Current ospid is 9+");
      break;
    case PieceKind::kStartLine:
      piece.well_formed =
          text == "This is the first log file" || Is(text, "Thread handle output string is 0x", "#+");
      break;
    case PieceKind::kExitLine:
      piece.well_formed = text == "thread handle output string exit" || IsShutdownLine(text);
      break;
    case PieceKind::kOther:
      break;
  }
  return piece;
}

// Where the next piece of a line begins, behind its first character.
std::size_t NextCut(std::string_view line) {
  for (std::size_t at = 1; at < line.size(); ++at) {
    if (!BeginsPiece(line[at])) continue;
    if (KindAt(line.substr(at)) == PieceKind::kOther) continue;
    return at;
  }
  return line.size();
}

}  // namespace

std::vector<Piece> Divide(std::string_view text, std::size_t offset) {
  std::vector<Piece> pieces;
  while (!text.empty()) {
    std::size_t const newline = text.find('\n');
    bool const ended = newline != text.npos;
    std::string_view line = text.substr(0, newline);
    text.remove_prefix(line.size() + (ended ? 1 : 0));
    do {
      std::size_t const cut = NextCut(line);
      bool const last = cut == line.size();
      offset += cut + (last && ended ? 1 : 0);
      pieces.push_back(MakePiece(line.substr(0, cut), last && ended, offset));
      line.remove_prefix(cut);
    } while (!line.empty());
  }
  return pieces;
}

}  // namespace velt::checker
