// Divides the text of a log file into its pieces: lines, and the parts of lines that a torn write left.
#ifndef VELT_TESTS_CHECKER_LINES_H
#define VELT_TESTS_CHECKER_LINES_H

#include <cstddef>
#include <string_view>
#include <vector>

namespace velt::checker {

enum class PieceKind {
  kRecord,  // begins with a line head
  kDayLine,
  kTrailer,    // "File close at ..."
  kCreation,   // "File create at ..."
  kStartLine,  // the two lines of a channel's first file
  kExitLine,   // what a channel says at its end
  kOther,
};

struct Piece {
  PieceKind kind = PieceKind::kOther;
  std::string_view text;     // without its newline
  bool has_newline = false;  // false: torn, or the end of the file
  bool well_formed = false;  // its fixed parts are all there and of the right shape
  std::string_view body;     // of a record: what follows the thread id
  std::size_t end = 0;       // offset in the text behind it, its newline included
};

// Pieces in order, cut at newlines and at every line head or line of the library within a line. `offset` is
// where `text` begins in its file.
std::vector<Piece> Divide(std::string_view text, std::size_t offset);

}  // namespace velt::checker

#endif
