// What came out of channels, read back and compared with the model: the text of a file, and standard output.
#ifndef VELT_FUZZ_SUPPORT_CHANNEL_OUTPUT_H
#define VELT_FUZZ_SUPPORT_CHANNEL_OUTPUT_H

#include <string>
#include <string_view>
#include <vector>

#include "fuzz/model/channel.h"

namespace velt::fuzz {

// A text that is read from its beginning.
class OutputText {
 public:
  explicit OutputText(std::string text) : text_(std::move(text)), rest_(text_) {}
  OutputText(OutputText const&) = delete;
  OutputText& operator=(OutputText const&) = delete;

  bool AtEnd() const { return rest_.empty(); }
  bool StartsWith(std::string_view literal) const { return rest_.substr(0, literal.size()) == literal; }
  bool Skip(std::string_view literal);  // false, and nothing skipped, when it is not next
  void Expect(std::string_view literal);
  std::string_view ExpectShape(std::string_view shape);  // '0' in it stands for any digit
  void ExpectRest(std::string_view set);  // at least one character, all of `set`, up to a newline
  void ExpectEnd() const;
  std::string ExpectLineHead();  // of this thread; returns its month and day

 private:
  std::string text_;
  std::string_view rest_;
};

// Standard output of the process, kept from its reader. Nothing else may print.
class CapturedOutput {
 public:
  CapturedOutput();
  CapturedOutput(CapturedOutput const&) = delete;
  CapturedOutput& operator=(CapturedOutput const&) = delete;
  std::string Take();
};

// The file of a channel that has been stopped. `printed`, when it is not null, is standard output, with the
// records of this channel and no other; day lines must then be exactly where they are due.
void CheckFile(std::string const& text, std::string const& header, ModelChannel const& channel,
               OutputText* printed);

// Standard output of several channels: each one's records in order. No two records have the same text.
void CheckPrinted(std::string const& text, std::vector<ModelChannel const*> const& channels);

}  // namespace velt::fuzz

#endif
