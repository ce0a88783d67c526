// The text of a test record: it shows which producer made it, its number, and whether it is whole.
//
//   R<run> P<producer> S<sequence> L<length> <payload> C<crc32 of all before, 8 hex digits>
//
// One line of letters, digits and single spaces, so that nothing in it can be taken for a line of the
// library.
#ifndef VELT_TESTS_CHECKER_RECORD_TEXT_H
#define VELT_TESTS_CHECKER_RECORD_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace velt::checker {

struct RecordId {
  unsigned run = 0;       // one process life, or whatever a test counts
  unsigned producer = 0;  // a thread of it
  unsigned sequence = 0;  // 0, 1, 2, ... of that thread
};

// The message of one record, with `length` letters of payload. At most 70 characters longer than that.
std::string MakeRecord(RecordId const& id, std::size_t length);

// A length for the n-th record: mostly 10 to 130, now and then 0, 700 or 1,900. The same for the same n.
std::size_t MixedLength(unsigned sequence);

enum class TextState {
  kWhole,
  kTorn,           // begins like a record and is not all of one
  kWrongChecksum,  // has every part, and one of them was changed
};

struct ParsedRecord {
  TextState state = TextState::kTorn;
  RecordId id;  // only of a whole one
};

// Reads a message back; `text` is the message alone, without line head and newline.
ParsedRecord ParseRecord(std::string_view text);

}  // namespace velt::checker

#endif
